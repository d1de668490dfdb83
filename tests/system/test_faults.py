"""Faults a robot meets in the field: daemons that keep dying, and the power cut off while the
crash counter is being written."""

import os
import random
import re
import signal
import time

from board import wait_for
from supervisor_log import FAST, PHASE_6, crash_counter, messages, run

# The ordinary daemons of the sample list and their keys in the crash statistics.
STAT_KEYS = {"tqlogd": 5, "chimer": 12, "AppBridge": 7, "netmgrd": 8, "quom_client": 10}


def daemons_on(board):
    """The board's running stub daemons as {name: [host pids]}."""
    marker = ("CUSTODO_BOARD_ROOT=%s\0" % board.root).encode()
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/stat" % pid) as f:
                name, rest = f.read().split(" (", 1)[1].rsplit(")", 1)
            with open("/proc/%s/environ" % pid, "rb") as f:
                ours = marker in f.read()
        except (OSError, IndexError):
            continue
        if ours and rest.split()[0] != "Z" and name in STAT_KEYS:
            found.setdefault(name, []).append(int(pid))
    return found


def test_crash_storm_restarts_each_daemon_once_per_crash(board):
    run(board)
    rng = random.Random(200)
    kills = dict.fromkeys(STAT_KEYS, 0)
    supervisor = board.texts("init")[-1]
    # Two minutes of board time, a random daemon killed every 200 ms.
    end = board.counter() + 120000
    while board.counter() < end:
        running = daemons_on(board)
        assert all(len(pids) == 1 for pids in running.values()), running
        if running:
            name = rng.choice(sorted(running))
            os.kill(running[name][0], signal.SIGKILL)
            kills[name] += 1
        time.sleep(0.2)
    wait_for(lambda: len(daemons_on(board)) == len(STAT_KEYS), what="every daemon back")
    # Let the checks that are under way settle before counting.
    checks = sum(m.startswith("CHECK_PROCESS") for m in messages(board))
    wait_for(lambda: sum(m.startswith("CHECK_PROCESS") for m in messages(board)) > checks + 2,
             what="two more checks")
    assert board.texts("init")[-1] == supervisor  # the same supervisor all along
    stats = board.read("sim/tqstat.log").splitlines()
    assert {name: stats.count("tq_stat_int 6 %d 1" % key) for name, key in STAT_KEYS.items()} == kills
    assert crash_counter(board) is None


def test_power_cut_while_the_crash_counter_is_written_leaves_a_whole_value(board):
    rng = random.Random(7)
    counts = []
    for cut in range(6):
        board.run(env=FAST)
        board.wait_console(PHASE_6)
        board.kill("CoreCtl", "KILL")
        board.wait_console("key process crash, restart all")
        if cut < 5:
            time.sleep(rng.uniform(0, 0.02))
            board.stop(signal.SIGQUIT)  # the plug is pulled
        else:
            board.wait_record("init", "exit status 1")
            board.stop(signal.SIGQUIT)
        text = crash_counter(board) or "0"
        assert re.fullmatch(r"\d+", text) and int(text) & 0xFF <= 4, text
        counts.append(int(text))
    assert counts == sorted(counts) and counts[-1] > counts[0]
    # A temporary that a cut left behind is gone after the next whole write.
    assert [n for n in os.listdir(board.path("opt/belvane/watchdog")) if n.startswith("failure_count.")] == []
