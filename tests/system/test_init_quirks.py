"""What an init system may do to the supervisor: start it under a parent that never reaps, or
with SIGCHLD ignored."""

import os

from board import program, wait_for
from supervisor_log import PHASE_6, messages, started


def started_through(board, python):
    """A stand-in for the init's start of the supervisor: `python` runs with `custodo`, the
    supervisor's command line."""
    path = board.path("bin/starter")
    with open(path, "w") as f:
        f.write("#!/usr/bin/python3\nimport os, signal, subprocess, sys\ncustodo = [%r] + sys.argv[1:]\n%s\n"
                % (program("custodo"), python))
    os.chmod(path, 0o755)
    return path


def test_a_parent_that_never_reaps_leaves_the_restarts_alone(board):
    # The supervisor's parent waits for it alone: a daemon left to it would stay a zombie.
    board.run(custodo=started_through(board, "sys.exit(subprocess.call(custodo))"))
    board.wait_console(PHASE_6)
    pid = started(board, "chimer")[-1]
    board.kill("chimer", "KILL")
    board.wait_console("Process: %d chimer disappeared??" % pid)
    wait_for(lambda: len(started(board, "chimer")) == 2, what="chimer started again")


def test_with_sigchld_ignored_every_command_has_its_own_outcome(board):
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "w") as f:
        f.write("tqlogd,tqlogd &,0,3,0\nthree,exit 3,0,1,0\nCoreCtl,CoreCtl &,1,5,0\n")
    # The clock sync thread's queries fail every minute, the checks start "three" every second.
    starter = started_through(board, "signal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
                                     "signal.signal(signal.SIGPIPE, signal.SIG_DFL)\nos.execv(custodo[0], custodo)")
    board.run(custodo=starter, env={"CUSTODO_SIM_TIMESCALE": "100"})
    outcome = "run shell script fail, script exit code:  3"
    wait_for(lambda: messages(board).count(outcome) >= 100, 60, "100 starts of three")
    assert board.stop() == 0
    found = messages(board)
    assert found.count("tq_system: exit 3") == found.count(outcome)
    assert "tq_system %s error! " not in found and "pipe open failed" not in found
