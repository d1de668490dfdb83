"""A minute of garbage from a peer must not stall the supervisor's receive thread or its main
loop."""

import random
import socket
import struct
import time

from board import sanitized_build, wait_for
from supervisor_log import (CHIMER_REBOOT, QUOM_RESET, QUOM_RESET_ACK, SHUTDOWN, SHUTDOWN_ACK,
                            STAGE_DONE, STAGE_START, TAG, messages, run, supervisor_exits)

# The supervisor's own ids, but the requests that end the run, and an id nobody handles.
OWN = [STAGE_START, STAGE_DONE, QUOM_RESET, SHUTDOWN_ACK, QUOM_RESET_ACK, 0x07010099]
# The whole minute on the sanitizer build, where a fault in the receive path shows best; a
# shorter stream on the plain one keeps the suite's time in bounds.
SECONDS = 60 if sanitized_build() else 15
RATE = 400  # packets per second
SPACING = {"reset": 1, "pause": 15}  # seconds


def garbage(rng):
    """One datagram: random ids and lengths, the supervisor's own ids with in-range lengths,
    short and over-long datagrams."""
    kind = rng.random()
    if kind < 0.1:
        return rng.randbytes(rng.choice([0, 1, 3, 4, 6, 11]))
    if kind < 0.15:
        return rng.randbytes(rng.randrange(45, 200))
    if kind < 0.55:
        ident = rng.choice(OWN)
        length = rng.randrange(0, {STAGE_START: 5, STAGE_DONE: 9}.get(ident, 33))
        stage = struct.pack("<ii", rng.choice([0, 1, 2, 3, 9, -1]), rng.choice([1, 2, 7]))
        payload = stage + rng.randbytes(24)
    else:
        ident = rng.getrandbits(32) if kind < 0.8 else 0x07000000 | rng.getrandbits(24)
        length = rng.getrandbits(32)
        payload = rng.randbytes(32)
    return struct.pack("<III", ident, rng.getrandbits(32), length) + payload


class PacketBuffer:
    """What the receive thread's packet buffer holds: a datagram overwrites only its own
    bytes, so a short one combines with what earlier ones left."""

    def __init__(self):
        self.buffer = bytes(44)
        self.last = {}  # kind of request -> when last sent

    @staticmethod
    def kind(packet):
        ident, _, length = struct.unpack_from("<III", packet)
        if ident in (SHUTDOWN, CHIMER_REBOOT) or (ident == STAGE_START and length > 4) \
                or (ident == STAGE_DONE and length > 8):
            return "end"
        if ident == QUOM_RESET:
            return "reset"
        record = (packet[12:12 + length] + bytes(8))[:8]
        return "pause" if ident == STAGE_DONE and record == struct.pack("<ii", 1, 1) else None

    def offer(self, datagram, now):
        """Whether to send the datagram: never what would end the run (a power-off or reboot
        request, a stage payload too large for its record), and what stalls it (a cloud-client
        reset restarts a daemon, a successful phase 0 pauses the thread) only now and then."""
        if not datagram:
            return True
        packet = datagram[:44] + self.buffer[len(datagram[:44]):]
        kind = self.kind(packet)
        if kind == "end" or now - self.last.get(kind, -100) < SPACING.get(kind, 0):
            return False
        self.buffer, self.last[kind] = packet, now
        return True


def test_garbage_stream_never_stalls_the_supervisor(board):
    run(board, env={})  # the minute is a real one
    stream_begin = board.counter()
    rng = random.Random(20240607)
    model = PacketBuffer()
    sent = empty = 0
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as peer:
        peer.connect(board.path("run/nodeipc/7"))
        # A receive thread that stops taking packets blocks the sender: fail instead of hanging.
        peer.settimeout(10)
        begin = time.monotonic()
        while (now := time.monotonic()) < begin + SECONDS:
            datagram = garbage(rng)
            if not model.offer(datagram, now):
                continue
            peer.send(datagram)
            sent += 1
            empty += not datagram
            time.sleep(max(0.0, begin + sent / RATE - time.monotonic()))
    stream_end = board.counter()

    with board.receiver(8) as rx:
        board.tool("quom-reset")
    assert [p.id for p in rx.packets] == [QUOM_RESET_ACK]
    found = messages(board)
    # Every packet was taken, the last cloud-client reset's included.
    assert sum(m.startswith("ipc_com_rcv_thread RecvPacket MsgId = ") for m in found) \
        == sent - empty + 1
    assert found.count("ignore ipc_com_rcv_thread RecvPacket rval = 0") == empty
    # The main loop went on checking the daemons once a second throughout.
    checks = [int(line.split()[0]) for line in board.console()
              if line.partition(TAG)[2].startswith("CHECK_PROCESS")]
    during = [stamp for stamp in checks if stream_begin <= stamp <= stream_end]
    assert len(during) >= SECONDS - 2
    assert max(b - a for a, b in zip(during, during[1:])) < 2000
    assert supervisor_exits(board) == []
    wait_for(lambda: board.exec("pidof", "quom_client").returncode == 0, what="quom_client back")
