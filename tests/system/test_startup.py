# The supervisor's start-up on the board: its phases, the watchdog it arms, the single-instance
# lock, the system modes and the other ends of a start-up, the MCU readiness wait, the partition
# flag rule and the integrity check; and the memory snapshot of the processes it started.

import hashlib
import os
import re

import pytest

from board import program, wait_for
from supervisor_log import (FAST, PHASE_6, boot_flags, crash_counter, in_order, messages, pids,
                            set_boot_flags, stamps, started, supervisor_exits, wait_checks)

LIST_NAMES = ["tqlogd", "chimer", "CoreCtl", "AppBridge", "netmgrd", "quom_client"]
CONF = "opt/belvane/watchdog"


@pytest.fixture(scope="module")
def fresh(make_module_board):
    # A fresh board started once, for the tests that only look at it.
    board = make_module_board()
    board.run(env=dict(FAST, HWDOG_OPTION="3"))
    board.wait_console(PHASE_6)
    return board


def test_startup_phases_and_the_armed_watchdog(fresh):
    # Two feeds of the thread after its first: the feed period is measured.
    wait_for(lambda: fresh.texts("watchdog").count("keepalive") >= 4, what="three thread feeds")
    in_order(messages(fresh), [
        "UpdateProgress flag = 0", "version: v0.00.39", "crash_time: 0 0",
        # Leftovers of a previous run are killed without a shell; none are found here.
        "tq_system: pkill -9 quom", "run shell script fail, script exit code:  1",
        "run shell script fail, cmdline:  pkill -9 quom", "tq_system: killall -9 tqlogd",
        "usage: Custodo [conf path] ", " no config file specified, use default path %s/%s" % (fresh.root, CONF),
        "WDIOC_SETFUNCCONFIG: 3", "start to update mcu firmware MCU_FW_1.0.0", "check_mcu_mode = 0",
        "merge_boot_reason ap reason = 0 mcu reason = 0 mcu err = 0 merge = 0",
        re.compile(r"sync ap with mcu time: .*"), "##################### Normal sysmode = 0 ################",
        "##################### 3. KillAllProcess done...", "++StartAllProcess g_upgrader_flag == 0",
        *[line for n in LIST_NAMES for line in ("tq_system: %s &" % n, "sleep 0 s")],
        "Successfully restore partition flag!", PHASE_6, "ipc_com_rcv_thread started!",
        re.compile(r"CHECK_PROCESS WDOG \d+")])
    # The main thread arms the watchdog and closes it with the magic character; the feeder
    # thread arms it again and feeds it every 8 s.
    records = fresh.records("watchdog")
    assert [r.text for r in records[:12]] == [
        "open", "settimeout 16", "funcconfig 3", "enable", "keepalive", "write V", "close disarmed",
        "open", "settimeout 16", "funcconfig 3", "enable", "keepalive"]
    feeds = [r.stamp for r in records[11:] if r.text == "keepalive"]
    assert all(7800 <= b - a <= 8500 for a, b in zip(feeds, feeds[1:])), feeds


def test_second_instance_reports_the_lock_and_leaves(fresh):
    daemons, exits = fresh.texts("daemons"), supervisor_exits(fresh)
    second = fresh.exec(program("custodo"))
    assert second.returncode == 0 and second.stdout.endswith(" tqwatchdog file:already locked\n")
    assert "tq_system" not in second.stdout
    wait_checks(fresh, 2)
    assert (fresh.texts("daemons"), supervisor_exits(fresh)) == (daemons, exits)
    assert fresh.read("dev/shm/custodo.pid", "rb") == b"2\0"  # the first's, as it wrote it


def test_memory_snapshot_of_every_process(fresh):
    # Twice: the file is rewritten, so it holds only the second command's own block.
    for _ in range(2):
        fresh.exec("sh", "-c", "cd %s && exec custodo-memlog" % fresh.root, check=True)
    *blocks, last = fresh.read("MemoryLog.txt").split("\n\n")
    blocks = [dict(line.split(": ", 1) for line in block.split("\n")) for block in blocks]
    by_pid = {int(b["PID"]): b for b in blocks}
    assert last == "" and len(by_pid) == len(blocks)  # one block a process: "self" gives none
    assert [b["Name"] for b in blocks].count("custodo-memlog") == 1
    for pid, name in {1: "custodo-board", 2: "custodo", **{p: n for n, p in pids(fresh).items()}}.items():
        assert by_pid[pid]["Name"] == name[:15] and int(by_pid[pid]["Memory"]) > 0


SETTINGS = ["mnt/data/quom/netlink.conf", "mnt/data/belvane/CleanParams.cfg",
            "mnt/data/belvane/schedules.cfg"]
REMOVE = ["##################### remove conf file ################"] + [
    "tq_system: rm -rf %s/" + relative for relative in SETTINGS]
MODES = {
    # The self-tests run the test tool, mark the partition good and end.
    **{name: {"mode": mode, "tool": "serialcheck -t AT#%s%% -pa -c" % bit, "lines": [
        "##################### SYS_MODE_%s ################" % bit,
        "tq_system: serialcheck -t AT#%s%% -pa -c &" % bit,
        "Successfully restore partition flag!", "destroy_hw_wdog_thread...", "done...exit"]}
       for name, mode, bit in (("self-test", 3, "BIT"), ("auto self-test", 4, "AUTO_BIT"))},
    "mobility test": {"mode": 5, "lines": [
        "##################### Mobility Test ################",
        "Name:tqlogd Cmd:tqlogd & KeyProc:0 KillTimeout:3 WaitAfterStart:0",
        "Name:CoreCtl Cmd:CoreCtl & KeyProc:1 KillTimeout:5 WaitAfterStart:0",
        "##################### 1. InitialConfig done..."]},
    "remove settings 34": {"mode": 34, "lines": REMOVE},
    "remove settings 66": {"mode": 66, "lines": REMOVE},
    "normal 6": {"mode": 6, "lines": ["##################### Normal sysmode = 6 ################"]},
    "silent MCU with marker": {"link": "down", "marker": True, "lines": [
        "init_uart failed-1", "merge_boot_reason ap reason without mcu merge = 0",
        "##################### Normal sysmode = -1 ################"]},
    # Start-ups that end before any daemon is started, with status 0.
    "no process list": {"removed": CONF + "/ProcessList.conf", "lines": [
        "##################### 0. done...",
        "InitialConfig: read config file failed %s/" + CONF + "/ProcessList.conf"]},
    "no region table": {"removed": CONF + "/region.conf", "lines": [
        "##################### 3. KillAllProcess done...", "pn[15] = ABCDE0123456789",
        "ReadRegionConfig: read config file failed %s/" + CONF + "/region.conf"]},
}


@pytest.mark.parametrize("case", MODES.values(), ids=MODES.keys())
def test_system_modes(board, case):
    for relative in SETTINGS:
        board.write(relative, "user setting\n")
    if case.get("marker"):
        board.write("mnt/reserve/mcu_ready", "")
    if case.get("removed"):
        os.remove(board.path(case["removed"]))
    board.mcu(mode=case.get("mode", 0), link=case.get("link", "up"))
    board.tool("hold")
    board.run(env=FAST, args=[board.path(CONF)])
    if case.get("tool") or case.get("removed"):
        board.wait_record("init", "restart held")
        board.wait_console(case["lines"][-1].replace("%s", board.root))
        assert supervisor_exits(board) == [0] and board.texts("daemons") == []
    else:
        board.wait_console(PHASE_6)
    found = messages(board)
    in_order(found, [line.replace("%s", board.root) for line in case["lines"]])
    assert not [m for m in found if m.startswith("usage:")]
    assert [os.path.exists(board.path(r)) for r in SETTINGS] == [case["lines"] != REMOVE] * 3
    # Every mode marks the MCU ready for the next boot.
    assert os.path.exists(board.path("mnt/reserve/mcu_ready"))
    if case.get("tool"):
        # The test tool runs on in the background ("&"): its record may come after the exit.
        board.wait_record("tools", case["tool"])
        assert (board.texts("tools"), board.texts("watchdog")[-1]) == ([case["tool"]], "close disarmed")


def test_silent_mcu_without_marker_waits_fed(board):
    board.mcu(link="down")
    # Nor a counter device (or the MCU driver's): the log lines carry 0.
    board.run(env=FAST, no_counter=True)
    board.wait_console("Successfully restore partition flag!")
    assert board.console()[0] == "init_jiffies_mmap:open uart mcu driver error: No such file or directory"
    assert all(line.startswith("0 tqwatchdog ") for line in board.console()[1:] if " tqwatchdog " in line)
    in_order(messages(board), ["##mcu no firmware###", "Boot Partition = 1"])
    fed = board.texts("watchdog").count("keepalive")
    wait_for(lambda: board.texts("watchdog").count("keepalive") >= fed + 2, what="two more feeds")
    assert "##################### 0. done..." not in messages(board)
    assert supervisor_exits(board) == []


@pytest.mark.parametrize("counter, total, restored", [("4", 4, True), ("256", 5, False),
                                                       ("512", 10, False)])
def test_partition_flag_is_left_for_the_boot_loader_after_many_crashes(board, counter, total, restored):
    crash_counter(board, counter)
    set_boot_flags(board, partition_flag_1=0)
    board.run(env={"CUSTODO_SIM_TIMESCALE": "50"})
    board.wait_console(PHASE_6)
    found = messages(board)
    assert "crash_time: %d %d" % (total, total % 5) in found
    assert boot_flags(board)["partition_flag_1"] == ("1" if restored else "0")
    assert (" !!!!!!!!!!! not resotre partition flag, will switch partition if the system keep "
            "going wrong" in found) != restored
    waited = stamps(board, "need to switch to another partition, wait hw watchdog timeout...")
    assert bool(waited) == (total > 9)
    # The hundred seconds pass before the lock is even taken (the counter moves in steps of the
    # time scale: a few board milliseconds of slack).
    assert not waited or stamps(board, "tq_system: pkill -9 quom")[0] - waited[0] >= 100000 - 200


@pytest.mark.parametrize("tampered", [None, "changed", "removed"])
def test_integrity_check_keeps_the_cloud_client_out_when_files_differ(board, tampered):
    client = board.path("opt/quom/bin/quom_client")
    os.makedirs(os.path.dirname(client))
    board.write("opt/quom/bin/quom_client", "the cloud client\n")
    board.write(CONF + "/integrity.sha256", "%s  opt/quom/bin/quom_client\n"
                % hashlib.sha256(b"the cloud client\n").hexdigest())
    if tampered == "changed":
        board.write("opt/quom/bin/quom_client", "changed\n")
    elif tampered:
        os.remove(client)
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    found = messages(board)
    dropped = ["AppBridge", "netmgrd"] if tampered else []
    assert ("integrity check passed" in found) != bool(tampered)
    assert ("integrity check failed: AppBridge and netmgrd will not be started" in found) == bool(tampered)
    assert [m.split()[0][5:] for m in found if m.startswith("Name:")] == \
        [n for n in LIST_NAMES if n not in dropped]
    assert not [n for n in dropped if started(board, n)]
