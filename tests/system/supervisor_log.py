"""Reading the supervisor on a board: its log messages, the boot loader's flags, its state files."""

import os
import re
import socket
import struct
import subprocess

from board import wait_for

TAG = " tqwatchdog "
PHASE_6 = "##################### 6. Restore partition flag done..."
FAST = {"CUSTODO_SIM_TIMESCALE": "8"}


def messages(board):
    """The console of this run as message texts: log lines without their stamp and tag, other
    output (the crash mask, tools' complaints, continuation lines) as it stands."""
    return [line.partition(TAG)[2] if TAG in line else line for line in board.console()]


def in_order(found, expected):
    """Asserts that `expected` (texts, or compiled patterns) appear in `found` in this order;
    returns the index of each match."""
    at, where = 0, []
    for item in expected:
        while at < len(found) and not (item.fullmatch(found[at]) if isinstance(item, re.Pattern)
                                       else found[at] == item):
            at += 1
        assert at < len(found), "missing, in order: %r\nafter: %r" % (item, found[where[-1]:][:40]
                                                                      if where else found[:40])
        where.append(at)
        at += 1
    return where


def after(found, text, occurrence=1):
    """The messages after the given occurrence of `text`."""
    indexes = [i for i, line in enumerate(found) if line == text]
    return found[indexes[occurrence - 1] + 1:]


def boot_flags(board):
    out = subprocess.run(["fw_printenv", "-c", board.path("etc/fw_env.config")],
                         capture_output=True, text=True, check=True).stdout
    return dict(line.split("=", 1) for line in out.split())


def set_boot_flags(board, **flags):
    for name, value in flags.items():
        subprocess.run(["fw_setenv", "-c", board.path("etc/fw_env.config"), name, str(value)],
                       check=True)


def crash_counter(board, text=None):
    """The crash counter file's text (None when absent); with `text`, writes it first."""
    path = "opt/belvane/watchdog/failure_count"
    if text is not None:
        with open(board.path(path), "w") as f:
            f.write(text)
    return board.read(path) if os.path.exists(board.path(path)) else None


def supervisor_exits(board):
    """The exit statuses of the supervisor so far in this run, from the init's record."""
    return [int(m.group(1)) for m in (re.search(r"exit status (\d+)$", t) for t in board.texts("init"))
            if m]


# Messages to and from the supervisor, module 7.
SHUTDOWN, SHUTDOWN_ACK, CHIMER_REBOOT = 0x0701002F, 0x01070030, 0x07040334
QUOM_RESET, QUOM_RESET_ACK = 0x0708032E, 0x0807032F
STAGE_START, STAGE_DONE = 0x0701076D, 0x07050776
RECEIVED = "ipc_com_rcv_thread RecvPacket MsgId = %d rval = %d"


def packet(ident, payload=b"", length=None):
    return struct.pack("<III32s", ident, 0, len(payload) if length is None else length, payload)


def to_supervisor(board, datagram):
    """Sends a raw datagram to the supervisor's socket, whatever module its id names."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
        s.sendto(datagram, board.path("run/nodeipc/7"))


def starts(board):
    """The stub daemons' starts of this run, as (name, pid), from their records."""
    return [(m.group(1), int(m.group(2))) for m in (re.fullmatch(r"(\S+) (\d+) start.*", t)
                                                   for t in board.texts("daemons")) if m]


def started(board, name):
    """The process ids of one daemon's starts."""
    return [pid for daemon, pid in starts(board) if daemon == name]


def pids(board):
    """The daemons' latest process ids by name."""
    return dict(starts(board))


def listening(board, old=None):
    """Waits until the supervisor's receive thread has bound its socket, a new one when `old`
    (what an earlier call returned) is given; returns the socket's identity."""
    def bound():
        try:
            info = os.stat(board.path("run/nodeipc/7"))
        except FileNotFoundError:
            return None
        identity = (info.st_ino, info.st_ctime_ns)
        return identity if identity != old else None
    return wait_for(bound, what="the supervisor's socket")


def run(board, env=FAST):
    """Runs the board and waits for the supervisor's socket; returns its identity. The clock
    sync thread is held in its first query, so that its lines never fall among those compared."""
    board.tool("ntpdate", "hold")
    board.run(env=env)
    return listening(board)
