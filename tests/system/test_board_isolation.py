"""Boards side by side, a whole run of Custodo ended with Ctrl-C, and refused input."""

import os
import signal
import subprocess

from board import program

IDLE = ["-c", "sleep 3600"]


def test_two_boards_do_not_see_each_others_processes_queues_or_sockets(make_board):
    first, second = make_board(), make_board()
    for b in (first, second):
        b.run(custodo="/bin/sh", args=IDLE)
    assert first.exec("ipcmk", "-Q").returncode == 0
    for b in (first, second):
        assert len(b.exec("pidof", "sleep").stdout.split()) == 1
    queues = lambda b: [line for line in b.exec("ipcs", "-q").stdout.splitlines() if line.startswith("0x")]
    assert len(queues(first)) == 1 and queues(second) == []
    host = subprocess.run(["ipcs", "-q"], capture_output=True, text=True).stdout
    assert queues(first)[0].split()[0] not in [line.split()[0] for line in host.splitlines()
                                               if line.startswith("0x")]
    with first.receiver(9, timeout=0.5) as rx:
        assert second.tool("send", "0x09070001", check=False).returncode == 1
    assert rx.packets == []


def test_board_processes_cannot_set_the_host_clock_or_reboot_it(board):
    board.run(custodo="/bin/sh", args=IDLE)
    status = board.exec("sh", "-c", "grep -H -E '^Cap(Eff|Prm|Bnd)' /proc/1/status /proc/2/status "
                                    "/proc/self/status").stdout.split("\n")
    masks = [int(line.split()[1], 16) for line in status if line]
    no_time_no_boot = (1 << 25) | (1 << 22)
    assert len(masks) == 9 and all(mask & no_time_no_boot == 0 for mask in masks)


def test_custodo_run_until_ctrl_c_leaves_nothing_behind(board):
    board.run(env={"CUSTODO_SIM_TIMESCALE": "8"})
    board.wait_console("##################### 6. Restore partition flag done...")
    assert board.texts("mcu")[0].startswith("init_uart ")
    assert board.stop(signal.SIGINT) == 0  # also checks that nothing is left
    # Ctrl-C reaches the supervisor, which stops its daemons, last started first.
    assert board.texts("init")[-3:] == ["signal 2 to supervisor pid 2",
                                        "supervisor pid 2 exit status 2", "end of run: interrupted"]
    stopped = [line.split()[-1] for line in board.console() if " Kill Process: " in line]
    assert stopped == ["quom_client", "netmgrd", "AppBridge", "CoreCtl", "chimer", "tqlogd"]


def test_bad_input_is_refused_with_a_clear_error(board, tmp_path):
    def refused(*args):
        done = subprocess.run([program("custodo-board"), *map(str, args)], capture_output=True, text=True)
        assert done.returncode == 1, done
        return done.stderr.strip()

    assert refused("run", "/tmp/cb-no-such-root").endswith("is not a board root "
                                                           "(create it with: custodo-board init /tmp/cb-no-such-root)")
    long_root = "/tmp/" + "r" * 100
    assert refused("init", long_root) == ("custodo-board: board root path too long for socket names; "
                                          "use a short path such as /tmp/cb1")
    assert not os.path.exists(long_root)
    (tmp_path / "keep.txt").write_text("mine")
    assert "neither empty nor a board root" in refused("init", tmp_path)
    assert (tmp_path / "keep.txt").exists()
    assert "no supervisor program at /nonexistent" in refused("run", board.root, "--custodo", "/nonexistent")
    assert "unknown command 'frobnicate'" in refused("frobnicate", board.root)
    board.run(custodo="/bin/sh", args=IDLE)
    assert "a board is already running at" in refused("run", board.root)
    assert "a board is running at" in refused("init", board.root)
    assert "unknown mode" in refused("daemon", board.root, "CoreCtl", "sulk")


def test_simulated_custodo_refuses_to_run_outside_a_board(tmp_path):
    env = {k: v for k, v in os.environ.items() if k != "CUSTODO_BOARD_ROOT"}
    for extra, reason in (({}, "CUSTODO_BOARD_ROOT is not set"),
                          ({"CUSTODO_BOARD_ROOT": str(tmp_path)}, "not inside a simulated board")):
        done = subprocess.run([program("custodo")], env=dict(env, **extra), capture_output=True,
                              text=True, timeout=10)
        assert done.returncode == 1 and reason in done.stderr and done.stdout == ""
