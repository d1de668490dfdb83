# What the simulated board promises beyond what the supervisor's scenarios show: nothing on a
# board sees the host's processes and queues, sets its clock or reboots it; bad commands are
# refused before they touch anything; the simulated supervisor runs on a board only.

import os
import subprocess

from board import program

IDLE = ["-c", "sleep 3600"]  # a stand-in supervisor


def test_board_processes_are_confined_to_the_board(board):
    board.run(custodo="/bin/sh", args=IDLE)
    # No capability to set the clock (25) or to reboot (22), for the init, its child or any later.
    status = board.exec("sh", "-c", "grep -h -E '^Cap(Eff|Prm|Bnd)' /proc/1/status /proc/2/status "
                                    "/proc/self/status").stdout.split()
    masks = [int(word, 16) for word in status[1::2]]
    assert len(masks) == 9 and all(mask & ((1 << 25) | (1 << 22)) == 0 for mask in masks)
    # A queue made on the board is not the host's.
    queues = lambda out: [line.split()[0] for line in out.splitlines() if line.startswith("0x")]
    assert board.exec("ipcmk", "-Q").returncode == 0 and len(queues(board.exec("ipcs", "-q").stdout)) == 1
    assert not set(queues(board.exec("ipcs", "-q").stdout)) & set(
        queues(subprocess.run(["ipcs", "-q"], capture_output=True, text=True).stdout))


def test_bad_commands_are_refused_before_they_touch_anything(board, tmp_path):
    (tmp_path / "keep.txt").write_text("mine")
    board.run(custodo="/bin/sh", args=IDLE)
    refused = [(["init", tmp_path], "neither empty nor a board root"), (["init", board.root],
               "a board is running at"), (["run", board.root], "a board is already running at")]
    # Values out of range, refused before anything is set or waited for.
    for command, *values in (["wallclock", "99999999999999999999"], ["wallclock", "-1"],
                             ["wallclock", "0", "901"], ["recv", "7", "--timeout", "inf"],
                             ["recv", "7", "--timeout", "nan"], ["counter", "set", str(2 ** 61)],
                             ["counter", "freeze", str(2 ** 64 - 1)]):
        refused.append(([command, board.root, *values], ""))
    for args, refusal in refused:
        done = subprocess.run([program("custodo-board"), *map(str, args)], capture_output=True, text=True,
                              timeout=10)
        assert done.returncode == 1 and refusal in done.stderr, done
    assert (tmp_path / "keep.txt").read_text() == "mine"
    assert board.texts("clock") == [] and board.proc.poll() is None
    # The simulated supervisor starts only on a board: it could power off the host otherwise.
    env = {k: v for k, v in os.environ.items() if k != "CUSTODO_BOARD_ROOT"}
    for extra, reason in (({}, "CUSTODO_BOARD_ROOT is not set"),
                          ({"CUSTODO_BOARD_ROOT": board.root}, "not inside a simulated board")):
        done = subprocess.run([program("custodo")], env=dict(env, **extra), capture_output=True,
                              text=True, timeout=10)
        assert (done.returncode, done.stdout) == (1, "") and reason in done.stderr
