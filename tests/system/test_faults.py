# Faults a robot meets in the field: daemons that keep dying, and the power cut off while the
# crash counter is being written.

import os
import random
import re
import signal
import time

from supervisor_log import FAST, PHASE_6, crash_counter, run, supervisor_exits, wait_checks

# The ordinary daemons of the sample list and their keys in the crash statistics.
STAT_KEYS = {"tqlogd": 5, "chimer": 12, "AppBridge": 7, "netmgrd": 8, "quom_client": 10}


def daemons_on(board):
    # The board's running stub daemons as {name: [host pids]}.
    found = [(name, pid) for pid, name, state, _ in board.processes() if state != "Z" and name in STAT_KEYS]
    return {name: [pid for other, pid in found if other == name] for name, _ in found}


def test_crash_storm_restarts_each_daemon_once_per_crash(board):
    run(board)
    rng = random.Random(200)
    kills = dict.fromkeys(STAT_KEYS, 0)
    # Two minutes of board time, at FAST's pace; a random daemon killed every 200 ms.
    end = time.monotonic() + 15
    while time.monotonic() < end:
        running = daemons_on(board)
        assert all(len(pids) == 1 for pids in running.values()), running
        if running:
            name = rng.choice(sorted(running))
            os.kill(running[name][0], signal.SIGKILL)
            kills[name] += 1
        time.sleep(0.2)
    board.wait(lambda: len(daemons_on(board)) == len(STAT_KEYS), what="every daemon back")
    # Let the checks that are under way settle before counting.
    wait_checks(board, 3)
    assert supervisor_exits(board) == []  # the same supervisor all along
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
            time.sleep(rng.uniform(0, 0.02))  # a random moment of the write
        else:
            board.wait_record("init", "exit status")  # 1, or 0 after the fifth crash's reboot
        board.stop(signal.SIGQUIT)  # the plug is pulled
        text = crash_counter(board) or "0"
        assert re.fullmatch(r"\d+", text) and int(text) & 0xFF <= 4, text
        counts.append(int(text))
    assert counts == sorted(counts) and counts[-1] > counts[0]
    # A temporary that a cut left behind is gone after the next whole write.
    assert [n for n in os.listdir(board.path("opt/belvane/watchdog")) if n.startswith("failure_count.")] == []
