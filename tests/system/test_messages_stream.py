"""A minute of garbage from a peer must not stall the supervisor's receive thread or its main
loop."""

import random
import socket
import struct
import time

from board import sanitized_build, wait_for
from supervisor_log import (CHIMER_REBOOT, QUOM_RESET, QUOM_RESET_ACK, SHUTDOWN, SHUTDOWN_ACK,
                            STAGE_DONE, STAGE_START, TAG, messages, run, supervisor_exits)

# The whole minute on the sanitizer build, where a fault in the receive path shows best; a
# shorter stream on the plain one keeps the suite's time in bounds.
SECONDS = 60 if sanitized_build() else 15
RATE = 400  # packets per second
# Requests that end the run, or stall it on purpose, are left out; so are the stage messages,
# whose payload limits a short datagram could break through the bytes earlier ones left.
LEFT_OUT = {SHUTDOWN, CHIMER_REBOOT, STAGE_START, STAGE_DONE, QUOM_RESET}
IGNORED = [SHUTDOWN_ACK, QUOM_RESET_ACK, 0x07010099]  # ids the supervisor sends or never uses


def garbage(rng):
    """One datagram: random ids, length fields and payloads, ids of the supervisor's module,
    ids it only sends, short and over-long datagrams."""
    kind = rng.random()
    if kind < 0.1:
        return rng.randbytes(rng.choice([0, 1, 3, 4, 6, 11]))
    if kind < 0.15:
        return rng.randbytes(rng.randrange(45, 200))
    ident = rng.choice([rng.getrandbits(32), 0x07000000 | rng.getrandbits(24), *IGNORED])
    if ident in LEFT_OUT:
        ident = IGNORED[0]
    return struct.pack("<III", ident, rng.getrandbits(32), rng.getrandbits(32)) + rng.randbytes(32)


def test_garbage_stream_never_stalls_the_supervisor(board):
    run(board, env={})  # the minute is a real one
    stream_begin = board.counter()
    rng = random.Random(20240607)
    sent = empty = 0
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as peer:
        peer.connect(board.path("run/nodeipc/7"))
        # A receive thread that stops taking packets blocks the sender: fail instead of hanging.
        peer.settimeout(10)
        begin = time.monotonic()
        while time.monotonic() < begin + SECONDS:
            datagram = garbage(rng)
            peer.send(datagram)
            sent += 1
            empty += not datagram
            time.sleep(max(0.0, begin + sent / RATE - time.monotonic()))
    stream_end = board.counter()

    with board.receiver(8) as rx:
        board.tool("quom-reset")
    assert [p.id for p in rx.packets] == [QUOM_RESET_ACK]
    found = messages(board)
    # Every packet was taken, the cloud-client reset's included.
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
