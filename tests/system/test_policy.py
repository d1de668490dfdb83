"""The opt-in policy of ProcessPolicy.conf: nothing without the file; readiness, heartbeat,
restart back-off and memory cap with it; other processes' and malformed notifications dropped."""

import json
import os
import re
import socket

import pytest

from board import wait_for
from supervisor_log import PHASE_6, TAG, crash_counter, in_order, messages, run, started, supervisor_exits

CONF = "opt/belvane/watchdog/"
OWN_LINES = re.compile(r"(ProcessPolicy\.conf|notify|heartbeat|restart-backoff|memory-max): ")
SEND = "import socket, sys; socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto(sys.argv[1].encode(), sys.argv[2])"


def policy(board, text, replace=("", ""), add=""):
    with open(board.path(CONF + "ProcessPolicy.conf"), "w") as f:
        f.write(text)
    listed = board.read(CONF + "ProcessList.conf").replace(*replace) + add
    with open(board.path(CONF + "ProcessList.conf"), "w") as f:
        f.write(listed)


def stamps(board, text, record="console"):
    lines = board.console() if record == "console" else ["%d %s" % r for r in board.records(record)]
    return [int(line.split()[0]) for line in lines if TAG in line or record != "console" if text in line]


def environment(board, name):
    return board.exec("sh", "-c", "cat /proc/$(pidof %s)/environ" % name).stdout.split("\0")


def checks_after(board, stamp, count):
    wait_for(lambda: len([s for s in stamps(board, "CHECK_PROCESS") if s > stamp]) >= count, what="checks")


def test_without_the_file_nothing_changes(board):
    run(board)
    board.wait_console(PHASE_6)
    assert not [v for v in environment(board, "AppBridge") if v.startswith("NOTIFY_SOCKET")]
    assert not os.path.exists(board.path("run/custodo/notify")) and not any(OWN_LINES.match(m) for m in messages(board))


def test_readiness_ends_the_wait_and_others_change_nothing(board):
    policy(board, "[AppBridge]\nnotify = yes\nheartbeat = 30 # s\n", ("AppBridge &,0,3,0", "AppBridge &,0,03,10"))
    for setting, seconds in (("ready", 1), ("watchdog", 1)):
        board.tool("daemon", "AppBridge", setting, seconds)
    run(board, env={})
    board.wait_console(PHASE_6)
    gap = stamps(board, "netmgrd", "daemons")[0] - stamps(board, "AppBridge", "daemons")[0]
    ready = re.search(r"ready after (\d+) ms", board.wait_console("notify: AppBridge ready after"))
    # The stub counts its second from its own start, a little before the supervisor's wait begins.
    assert int(ready.group(1)) < 3000 and 1000 <= gap < 3000, (ready.group(1), gap)
    in_order(messages(board), ["sleep 10 s", re.compile(r"notify: AppBridge ready after \d+ ms: its wait after start ends"),
                               "tq_system: netmgrd &"])
    path = board.path("run/custodo/notify")
    assert "NOTIFY_SOCKET=" + path in environment(board, "AppBridge")
    assert not [v for v in environment(board, "chimer") if v.startswith("NOTIFY_SOCKET")]

    # Another process of the board says AppBridge's words; then 10,000 datagrams of nonsense.
    board.exec("python3", "-c", SEND, "WATCHDOG=trigger\nREADY=1\nSTATUS=taken over", path, check=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
        for i in range(10000):
            s.sendto(b"garbage %d" % i, path)
    board.wait_console("notify: a datagram that holds no notification dropped")
    checks_after(board, int(board.wait_console("notify: a message from pid").split()[0]), 3)
    own = [m for m in messages(board) if OWN_LINES.match(m)]
    assert len(own) == 5 and sum(m.startswith("notify: a message from pid") for m in own) == 1, own
    assert len(started(board, "AppBridge")) == 1
    daemons = {d["name"]: d for d in json.loads(board.read("dev/shm/custodo-status.json"))["daemons"]}
    assert "policy" not in daemons["chimer"] and daemons["AppBridge"]["policy"]["ready"]
    assert daemons["AppBridge"]["policy"]["status"] is None and daemons["AppBridge"]["policy"]["heartbeat_age_s"] < 3


@pytest.mark.parametrize("name, ask", [("AppBridge", ["hang"]), ("CoreCtl", ["say", "WATCHDOG=trigger"])])
def test_a_hung_daemon_is_aborted_and_restarted(board, name, ask):
    policy(board, "[%s]\nheartbeat = 3\n" % name)
    board.tool("daemon", name, "watchdog", 1)
    run(board, env={})
    first = started(board, name)[0]
    board.tool("daemon", name, *ask)
    hung = board.wait_console("heartbeat: %s hung" % name)
    board.wait_record("daemons", "%s %d signal 6" % (name, first))
    if name == "AppBridge":
        last = [s for s in stamps(board, "%s %d notify WATCHDOG=1" % (name, first), "daemons")][-1]
        assert 3000 < int(hung.split()[0]) - last <= 4500, hung
        board.wait_console("StartProc finished")
        in_order(messages(board), [re.compile(r"heartbeat: AppBridge hung, last heartbeat 3\d\d\d ms ago: SIGABRT"),
                                   "Process: %d AppBridge disappeared??" % first, "StartProc finished"])
    else:
        board.wait_record("init", "restart")
        assert "hung by its own word (WATCHDOG=trigger)" in hung
        assert supervisor_exits(board) == [1] and crash_counter(board) == "1"
        in_order(messages(board), ["Process: %d CoreCtl disappeared??" % first, "key process crash, restart all"])


def test_backoff_spaces_the_restarts_of_a_daemon_that_dies_at_once(board):
    policy(board, "[crashd]\nrestart-backoff = 8\n", add="crashd,true &,0,3,0\n")
    run(board, env={"CUSTODO_SIM_TIMESCALE": "4"})
    wait_for(lambda: len(stamps(board, "tq_system: true &")) >= 6, what="six starts")
    starts = stamps(board, "tq_system: true &")
    # The first start's end is found after the start-up's last second. A restart is due at the
    # check nearest its time; on a busy machine the checks may come late, never early.
    gaps = [(b - a) / 1000 for a, b in zip(starts[1:], starts[2:6])]
    assert all(wait - 0.5 <= gap < wait + 2 for gap, wait in zip(gaps, [2, 4, 8, 8])), starts
    waits = [m for m in messages(board) if m.startswith("restart-backoff: crashd")]
    assert [w.split()[-2] for w in waits] == ["1", "2", "4", "8"]
    lines = [s for s in stamps(board, "") if starts[3] <= s < starts[5]]
    lines = len(lines) - len([s for s in stamps(board, "CHECK_PROCESS") if starts[3] <= s < starts[5]])
    assert lines * 60000 / (starts[5] - starts[3]) < 60, lines


def test_a_daemon_above_its_cap_on_three_checks_is_stopped_and_restarted(board):
    policy(board, "[AppBridge]\nmemory-max = 16M\n")
    run(board)
    first = started(board, "AppBridge")[0]
    board.tool("daemon", "AppBridge", "grow", 32)
    asked = board.wait_record("daemons", "AppBridge %d signal 12" % first).stamp
    capped = int(board.wait_console("memory-max: AppBridge resident").split()[0])
    # The third check that found it grown; a check may come while it grows.
    assert len([s for s in stamps(board, "CHECK_PROCESS") if asked < s <= capped]) in (3, 4)
    board.wait_console("StartProc finished")
    in_order(messages(board), [re.compile(r"memory-max: AppBridge resident \d+ KiB, above its cap of 16384 KiB on 3 "
                                          "checks in a row: stopped and restarted"),
                               "Kill Process: %d AppBridge" % first, "Done.", "Process: %d AppBridge disappeared??" % first,
                               "tq_system: AppBridge &", "StartProc finished"])
