"""The supervisor's start-up on the board: its phases, the watchdog it arms, the single-instance
lock, the system modes, the MCU readiness wait, and the partition flag rule."""

import hashlib
import os
import re

import pytest

from board import program, wait_for
from supervisor_log import (FAST, PHASE_6, boot_flags, crash_counter, in_order, messages,
                            set_boot_flags, started, supervisor_exits)

LIST_NAMES = ["tqlogd", "chimer", "CoreCtl", "AppBridge", "netmgrd", "quom_client"]


def test_startup_phases_and_the_armed_watchdog(board):
    board.run(env=dict(FAST, HWDOG_OPTION="3"))
    board.wait_console(PHASE_6)
    # Two feeds of the thread after its first: the feed period is measured.
    wait_for(lambda: board.texts("watchdog").count("keepalive") >= 4, what="three thread feeds")
    root = board.root
    in_order(messages(board), [
        "UpdateProgress flag = 0",
        "Update Global flag read = UpdateProgress_Phase_NS",
        "UPDPKG_INFO_PATH default to: %s/mnt/data/.temp" % root,
        "UPDPKG_INFO_NAME default to: Update.pkg.inf",
        "pkginf path: %s/mnt/data/.temp/Update.pkg.inf" % root,
        "version: v0.00.39",
        "crash_time: 0 0",
        "tq_system: pkill -9 quom", "tq_system: killall -9 netmgrd", "tq_system: killall -9 AppBridge",
        "tq_system: killall -9 chimer", "tq_system: pkill -9 CoreCtl", "tq_system: killall -9 tqlogd",
        "usage: Custodo [conf path] ",
        " no config file specified, use default path %s/opt/belvane/watchdog" % root,
        "Set Feed HW Watchdog interval to 16",
        "WDIOC_SETFUNCCONFIG: 3",
        re.compile(r"HW WDOG shutdown \d+ 1"),
        re.compile(r"HW WDOG shutdown close fd \d+ 0"),
        "start to update mcu firmware MCU_FW_1.0.0", "", "update mcu firmware done 0",
        "check_mcu_mode = 0",
        "read boot reason = 0",
        "merge_boot_reason ap reason = 0 mcu reason = 0 mcu err = 0 merge = 0",
        re.compile(r"mcu time: .*"), re.compile(r"ap  time: .*"),
        re.compile(r"sync ap with mcu time: .*"),
        "##################### Normal sysmode = 0 ################",
        "##################### 0. done...",
        *["Name:%s Cmd:%s & KeyProc:%d KillTimeout:%d WaitAfterStart:0"
          % (n, n, n == "CoreCtl", 5 if n == "CoreCtl" else 3) for n in LIST_NAMES],
        "##################### 1. InitialConfig done...",
        "##################### 2. CheckAllProcess done...",
        "Post check", "done.",
        "##################### 3. KillAllProcess done...",
        "pn[15] = ABCDE0123456789",
        "tq_system: echo \"location=prc\" > %s/mnt/reserve/belvane.conf" % root,
        "mcu FirwareVer:MCU_FW_1.0.0",
        "add ntp server: time1.example.org", "", "add ntp server: time2.example.org", "",
        "++StartAllProcess g_upgrader_flag == 0",
        *[line for n in LIST_NAMES for line in ("tq_system: %s &" % n, "sleep 0 s")],
        "##################### 4. StartAllProcess done...",
        "##################### 5. InitialMonitor done...",
        "Boot Partition = 1",
        "Successfully restore partition flag!",
        PHASE_6,
        "ipc_com_rcv_thread started!",
        re.compile(r"CHECK_PROCESS WDOG \d+"),
    ])
    # The feeder thread starts after the main thread's magic close, and arms the device again.
    in_order(messages(board), [re.compile(r"HW WDOG shutdown close fd \d+ 0"),
                               "watchdog hw_wdog_thread started!", "",
                               "Set Feed HW Watchdog interval to 16", "WDIOC_SETFUNCCONFIG: 3"])
    records = board.records("watchdog")
    assert [r.text for r in records[:12]] == [
        "open", "settimeout 16", "funcconfig 3", "enable", "keepalive", "write V", "close disarmed",
        "open", "settimeout 16", "funcconfig 3", "enable", "keepalive"]
    feeds = [r.stamp for r in records[11:] if r.text == "keepalive"]
    assert all(7800 <= b - a <= 8500 for a, b in zip(feeds, feeds[1:])), feeds
    assert board.read("dev/shm/custodo.pid", "rb") == b"2\0"
    assert [line for line in board.read("sim/tqstat.log").splitlines()
            if line.startswith("tq_overwrite_int")] == ["tq_overwrite_int 6 3 0",
                                                        "tq_overwrite_int 6 4 0"]


def test_second_instance_reports_the_lock_and_leaves(board):
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    daemons = board.texts("daemons")
    second = board.exec(program("custodo"))
    assert second.returncode == 0
    lines = [line.partition(" tqwatchdog ")[2] for line in second.stdout.splitlines()]
    assert lines[-1] == "file:already locked"
    assert not [line for line in lines if line.startswith("tq_system")]
    board.wait_console("CHECK_PROCESS WDOG 2")
    assert board.texts("daemons") == daemons and supervisor_exits(board) == []
    assert board.read("dev/shm/custodo.pid", "rb") == b"2\0"


def self_test(title, command):
    return {"mode": title[0], "ends": True,
            "lines": ["##################### %s ################" % title[1],
                      "tq_system: " + command, "Boot Partition = 1",
                      "Successfully restore partition flag!", "destroy_hw_wdog_thread...",
                      "cancel hw_wdog_thread ", re.compile(r"HW WDOG shutdown \d+ 1"),
                      "destroy_hw_wdog_thread succ = 0", "done...exit"],
            "tools": [command.rstrip(" &")]}


SETTINGS = ["mnt/data/quom/netlink.conf", "mnt/data/belvane/CleanParams.cfg",
            "mnt/data/belvane/schedules.cfg"]

MODES = {
    "self-test": self_test((3, "SYS_MODE_BIT"), "serialcheck -t AT#BIT% -pa -c &"),
    "auto self-test": self_test((4, "SYS_MODE_AUTO_BIT"), "serialcheck -t AT#AUTO_BIT% -pa -c &"),
    "mobility test": {"mode": 5, "lines": ["##################### Mobility Test ################",
                                           "Name:tqlogd Cmd:tqlogd & KeyProc:0 KillTimeout:3 WaitAfterStart:0",
                                           "Name:CoreCtl Cmd:CoreCtl & KeyProc:1 KillTimeout:5 WaitAfterStart:0",
                                           "##################### 1. InitialConfig done..."]},
    "remove settings 34": {"mode": 34, "removes": True,
                           "lines": ["##################### remove conf file ################"]},
    "remove settings 66": {"mode": 66, "removes": True,
                           "lines": ["##################### remove conf file ################"]},
    "normal 6": {"mode": 6, "lines": ["##################### Normal sysmode = 6 ################"]},
    "silent MCU with marker": {"link": "down", "marker": True,
                               "lines": ["init_uart failed-1",
                                         "merge_boot_reason ap reason without mcu merge = 0",
                                         "##################### Normal sysmode = -1 ################"]},
}


@pytest.mark.parametrize("case", MODES.values(), ids=MODES.keys())
def test_system_modes(board, case):
    for relative in SETTINGS:
        with open(board.path(relative), "w") as f:
            f.write("user setting\n")
    if case.get("marker"):
        open(board.path("mnt/reserve/mcu_ready"), "w").close()
    board.mcu(mode=case.get("mode", 0), link=case.get("link", "up"))
    board.tool("hold")
    board.run(env=FAST)
    if case.get("ends"):
        board.wait_record("init", "restart held")
        assert supervisor_exits(board) == [0]
        assert not any("StartAllProcess" in m for m in messages(board))
        assert board.texts("daemons") == []
        # The test tool runs on in the background ("&"): its record may come after the exit.
        board.wait_record("tools", case["tools"][0])
        assert board.texts("tools") == case["tools"]
        assert board.texts("watchdog")[-1] == "close disarmed"
    else:
        board.wait_console(PHASE_6)
    expected = case["lines"]
    if case.get("removes"):
        expected = expected + ["tq_system: rm -rf %s" % board.path(r) for r in SETTINGS]
    in_order(messages(board), expected)
    assert [os.path.exists(board.path(r)) for r in SETTINGS] == [not case.get("removes")] * 3
    # Every mode that reaches the list marks the MCU ready for the next boot.
    assert os.path.exists(board.path("mnt/reserve/mcu_ready"))


def test_silent_mcu_without_marker_waits_fed(board):
    board.mcu(link="down")
    board.run(env=FAST)
    board.wait_console("Successfully restore partition flag!")
    in_order(messages(board), ["##mcu no firmware###", "Boot Partition = 1",
                               "Successfully restore partition flag!"])
    fed = board.texts("watchdog").count("keepalive")
    wait_for(lambda: board.texts("watchdog").count("keepalive") >= fed + 2, what="two more feeds")
    assert "##################### 0. done..." not in messages(board)
    assert supervisor_exits(board) == []


def test_unreadable_list_ends_startup_before_any_start(board):
    os.remove(board.path("opt/belvane/watchdog/ProcessList.conf"))
    board.tool("hold")
    board.run(env=FAST, args=[board.path("opt/belvane/watchdog/")])
    board.wait_record("init", "restart held")
    assert supervisor_exits(board) == [0]
    found = messages(board)
    in_order(found, ["##################### 0. done...",
                     "InitialConfig: read config file failed %s/opt/belvane/watchdog//ProcessList.conf"
                     % board.root])
    assert "##################### 1. InitialConfig done..." not in found
    assert not [m for m in found if m.startswith("usage:")]
    assert board.texts("daemons") == []


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
    unrestored = " !!!!!!!!!!! not resotre partition flag, will switch partition if the system keep going wrong"
    assert (unrestored in found) != restored
    waited = "need to switch to another partition, wait hw watchdog timeout..."
    assert (waited in found) == (total > 9)
    if total > 9:
        # The hundred seconds pass before the lock is even taken.
        stamp = lambda text: next(int(line.split()[0]) for line in board.console()
                                  if line.endswith(text))
        # The counter moves in steps of the time scale: a few board milliseconds of slack.
        assert stamp("tq_system: pkill -9 quom") - stamp(waited) >= 100000 - 200


@pytest.mark.parametrize("tampered", [None, "changed", "removed"])
def test_integrity_check_keeps_the_cloud_client_out_when_files_differ(board, tampered):
    client = board.path("opt/quom/bin/quom_client")
    os.makedirs(os.path.dirname(client))
    with open(client, "w") as f:
        f.write("the cloud client\n")
    digest = hashlib.sha256(b"the cloud client\n").hexdigest()
    with open(board.path("opt/belvane/watchdog/integrity.sha256"), "w") as f:
        f.write("%s  opt/quom/bin/quom_client\n" % digest)
    if tampered == "changed":
        with open(client, "a") as f:
            f.write("and more\n")
    elif tampered == "removed":
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
