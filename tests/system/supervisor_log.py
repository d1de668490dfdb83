"""Reading the supervisor on a board: its log messages, the boot loader's flags, its state files."""

import os
import re
import subprocess

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
