# Reading the supervisor on a board: its log messages, the boot loader's flags, its state files.

import contextlib
import os
import re
import socket
import struct
import subprocess

from board import wait_for

TAG = " tqwatchdog "
PHASE_6 = "##################### 6. Restore partition flag done..."
FAST = {"CUSTODO_SIM_TIMESCALE": "8"}
REVERSE = ["quom_client", "netmgrd", "AppBridge", "CoreCtl", "chimer", "tqlogd"]  # the stop order
COUNTER = "opt/belvane/watchdog/failure_count"


def messages(board):
    # The console of this run as message texts: log lines without their stamp and tag, other
    # output (the crash mask, tools' complaints, continuation lines) as it stands.
    return [line.partition(TAG)[2] if TAG in line else line for line in board.console()]


def stamps(board, text):
    # The board-time stamps of the supervisor's log lines that begin with `text`.
    return [int(line.split()[0]) for line in board.console() if TAG + text in line]


def in_order(found, expected):
    # Asserts that `expected` (texts, or compiled patterns) appear in `found` in this order.
    at = 0
    for item in expected:
        begin = at
        while at < len(found) and not (item.fullmatch(found[at]) if isinstance(item, re.Pattern)
                                       else found[at] == item):
            at += 1
        assert at < len(found), "missing, in order: %r\nafter: %r" % (item, found[begin:begin + 40])
        at += 1


def after(found, text, occurrence=1):
    # The messages after the given occurrence of `text`.
    return found[[i for i, line in enumerate(found) if line == text][occurrence - 1] + 1:]


def wait_checks(board, count, text="CHECK_PROCESS"):
    # Waits until `count` more messages that begin with `text` have been logged.
    seen = sum(m.startswith(text) for m in messages(board))
    board.wait(lambda: sum(m.startswith(text) for m in messages(board)) >= seen + count,
               what="%d more %r" % (count, text))


def boot_flags(board):
    out = subprocess.run(["fw_printenv", "-c", board.path("etc/fw_env.config")],
                         capture_output=True, text=True, check=True).stdout
    return dict(line.split("=", 1) for line in out.split())


def set_boot_flags(board, **flags):
    for name, value in flags.items():
        subprocess.run(["fw_setenv", "-c", board.path("etc/fw_env.config"), name, str(value)], check=True)


def crash_counter(board, text=None):
    # The crash counter file's text (None when absent); with `text`, writes it first.
    if text is not None:
        board.write(COUNTER, text)
    return board.read(COUNTER) if os.path.exists(board.path(COUNTER)) else None


def supervisor_exits(board):
    # The exit statuses of the supervisor so far in this run, from the init's record. An exit seen
    # for the first time waits for the console to catch up: the init records it at once, the
    # console's relay passes the supervisor's last lines on when it runs.
    exits = [int(m.group(1)) for m in (re.search(r"exit status (\d+)$", t) for t in board.texts("init"))
             if m]
    if len(exits) > board.exits_seen:
        board.console_caught_up()
        board.exits_seen = len(exits)
    return exits


# Messages to and from the supervisor, module 7.
SHUTDOWN, SHUTDOWN_ACK, CHIMER_REBOOT = 0x0701002F, 0x01070030, 0x07040334
QUOM_RESET, QUOM_RESET_ACK = 0x0708032E, 0x0807032F
STAGE_START, STAGE_DONE = 0x0701076D, 0x07050776
RECEIVED = "ipc_com_rcv_thread RecvPacket MsgId = %d rval = %d"


def packet(ident, payload=b""):
    return struct.pack("<III32s", ident, 0, len(payload), payload)


def to_supervisor(board, datagram):
    # Sends a raw datagram to the supervisor's socket, whatever module its id names.
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
        s.sendto(datagram, board.path("run/nodeipc/7"))


def started(board, name):
    # The process ids of one daemon's starts in this run, from the stub daemons' records.
    return [int(m.group(1)) for m in (re.fullmatch(r"%s (\d+) start.*" % name, t)
                                      for t in board.texts("daemons")) if m]


def pids(board):
    # The daemons' latest process ids by name.
    return {m.group(1): int(m.group(2)) for m in (re.fullmatch(r"(\S+) (\d+) start.*", t)
                                                  for t in board.texts("daemons")) if m}


def listening(board, old=None):
    # Waits until the supervisor's receive thread has bound its socket, a new one when `old`
    # (what an earlier call returned) is given; returns the socket's identity.
    def bound():
        with contextlib.suppress(FileNotFoundError):
            info = os.stat(board.path("run/nodeipc/7"))
            return (info.st_ino, info.st_ctime_ns) != old and (info.st_ino, info.st_ctime_ns)
    return wait_for(bound, what="the supervisor's socket")


def run(board, env=FAST):
    # Runs the board and waits for the supervisor's socket; returns its identity. The clock
    # sync thread is held in its first query, so that its lines never fall among those compared.
    board.tool("ntpdate", "hold")
    board.run(env=env)
    return listening(board)
