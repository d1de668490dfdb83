"""Soak: 300 kills of an ordinary daemon, with the one-second check and with fast restart, must
leave the supervisor's memory, descriptors and threads as they were, and no zombie on the board.

Run as root beside `make bench` (bench/README.md); exits 1 when a figure changed.
"""

import os
import signal
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tests", "system"))

from bench import DAEMONS, host_pids, log, logged, prepared_board, run, stub_names  # noqa: E402
from board import wait_for  # noqa: E402

KILLS = int(os.environ.get("SOAK_KILLS", "300"))
TIMESCALE = {"CUSTODO_SIM_TIMESCALE": "8"}


def footprint(pid):
    """VmRSS in KiB, open descriptors, threads."""
    status = dict(line.split(":", 1) for line in open("/proc/%d/status" % pid))
    return (int(status["VmRSS"].split()[0]), len(os.listdir("/proc/%d/fd" % pid)),
            int(status["Threads"]))


def zombies(board):
    found = []
    for pids in host_pids(board).values():
        for pid in pids:
            try:
                with open("/proc/%d/stat" % pid) as f:
                    if f.read().rpartition(")")[2].split()[0] == "Z":
                        found.append(pid)
            except OSError:
                pass
    return found


def settled(board, checks=3):
    """Waits for a few more checks, so that the last restart's search has ended."""
    seen = sum(m.startswith("CHECK_PROCESS") for _, m in logged(board))
    wait_for(lambda: sum(m.startswith("CHECK_PROCESS") for _, m in logged(board)) >= seen + checks,
             60, "%d checks" % checks)


def soak(env):
    board = prepared_board(DAEMONS)
    try:
        pid = run(board, dict(TIMESCALE, **env))
        settled(board)
        before = footprint(pid)
        names = stub_names(DAEMONS)
        for i in range(KILLS):
            name = names[i % len(names)]
            old = host_pids(board)[name][0]
            os.kill(old, signal.SIGKILL)
            wait_for(lambda: [p for p in host_pids(board).get(name, []) if p != old], 30,
                     "%s started again" % name)
        settled(board)
        after = footprint(pid)
        left = zombies(board)
        assert board.stop() == 0
        return before, after, left
    finally:
        board.close()


def main():
    changed = False
    print("%-26s %-20s %-12s %-10s %s" % ("", "VmRSS KiB", "descriptors", "threads", "zombies"))
    for label, env in (("one-second check", {}), ("CUSTODO_FAST_RESTART=1", {"CUSTODO_FAST_RESTART": "1"})):
        log("%s: %d kills" % (label, KILLS))
        before, after, left = soak(env)
        print("%-26s %-20s %-12s %-10s %d" % (label, "%d -> %d" % (before[0], after[0]),
                                             "%d -> %d" % (before[1], after[1]),
                                             "%d -> %d" % (before[2], after[2]), len(left)))
        changed |= before != after or bool(left)
    sys.exit(1 if changed else 0)


if __name__ == "__main__":
    main()
