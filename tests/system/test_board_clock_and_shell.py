"""The counter device under the supervisor's log line and clock, and its shell runner on the
board, through the probe program run inside the board."""

import pytest

from board import program

PROBE = program("custodo-probe")
IDLE = ["-c", "sleep 3600"]  # a stand-in supervisor: these tests drive the board themselves


def test_frozen_counter_stamps_log_lines_exactly(board):
    board.run(custodo="/bin/sh", args=IDLE)
    board.freeze(1234)
    assert board.exec(PROBE, "log", "abc").stdout == "1234 tqwatchdog abc\n"
    assert board.exec(PROBE, "clock").stdout == "1234\n"
    board.tool("counter", "set", 5000)
    board.tool("counter", "run")
    assert 5000 <= int(board.exec(PROBE, "clock").stdout) < 65000


def test_without_counter_device_lines_carry_zero_and_the_open_error(board):
    board.run(custodo="/bin/sh", args=IDLE, no_counter=True)
    out = board.exec(PROBE, "log", "abc").stdout
    assert out == ("init_jiffies_mmap:open uart mcu driver error: No such file or directory\n"
                   "0 tqwatchdog abc\n")


NTP_ANSWER = "22 Nov 03:30:05 ntpdate[9]: adjust time server 10.0.0.1 offset 0.25 sec"


@pytest.mark.parametrize("cmdline, answers, status, lines", [
    ("true", [], 0, ["run shell script successfully. "]),
    ("exit 3", [], 3, ["run shell script fail, script exit code:  3",
                       "run shell script fail, cmdline:  exit 3"]),
    ("kill -9 $$", [], 0, ["exit status = 0"]),
    # The board's ntpdate answers from its queue, and fails when that is empty.
    ("ntpdate -q t1 | grep -q 'offset 0.25'", [NTP_ANSWER], 0, ["run shell script successfully. "]),
    ("ntpdate -q t1", [], 1, ["run shell script fail, script exit code:  1",
                              "run shell script fail, cmdline:  ntpdate -q t1"]),
])
def test_shell_runner_outcomes_on_the_board(board, cmdline, answers, status, lines):
    board.run(custodo="/bin/sh", args=IDLE)
    board.freeze(7)
    for answer in answers:
        board.tool("ntpdate", "push", answer)
    done = board.exec(PROBE, "system", cmdline)
    assert done.returncode == status
    logged = [line[len("7 tqwatchdog "):] for line in done.stdout.splitlines()]
    assert logged == ["tq_system: " + cmdline] + lines
