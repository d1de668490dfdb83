"""Supervision on the board: vanished daemons come back, a lost key daemon restarts everything and
is counted, the fifth crash reboots, the quiet period forgets crashes, and the stop paths."""

import re

from board import wait_for
from supervisor_log import (FAST, PHASE_6, after, crash_counter, in_order, messages, started,
                            supervisor_exits)

REVERSE = ["quom_client", "netmgrd", "AppBridge", "CoreCtl", "chimer", "tqlogd"]


def wait_checks(board, count):
    """Waits until `count` more process checks have been logged."""
    seen = sum(m.startswith("CHECK_PROCESS") for m in messages(board))
    wait_for(lambda: sum(m.startswith("CHECK_PROCESS") for m in messages(board)) >= seen + count,
             what="%d process checks" % count)


def test_vanished_daemon_is_restarted(board):
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    first = started(board, "chimer")[0]
    board.kill("chimer", "KILL")
    board.wait_console("StartProc finished")
    in_order(messages(board), ["Process: %d chimer disappeared??" % first, "chimer crashed", "2 0",
                               "tq_system: chimer &", "run shell script successfully. ",
                               "StartProc finished"])
    wait_for(lambda: len(started(board, "chimer")) == 2, what="chimer started again")
    disappeared = board.wait_console("disappeared??")
    back = next(line for line in board.console() if line.endswith("StartProc finished"))
    assert int(back.split()[0]) - int(disappeared.split()[0]) < 1000
    # The next checks know the new process: nothing vanishes twice.
    wait_checks(board, 2)
    assert sum("disappeared??" in m for m in messages(board)) == 1
    assert "tq_stat_int 6 12 1" in board.read("sim/tqstat.log").splitlines()
    assert supervisor_exits(board) == []


def test_key_daemon_crashes_restart_all_then_the_fifth_reboots(board):
    crash_counter(board, "3")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    core = started(board, "CoreCtl")[0]
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "restart")
    assert supervisor_exits(board) == [1]
    in_order(messages(board), [
        "Process: %d CoreCtl disappeared??" % core, "key process crash, restart all",
        "CoreCtl crashed", "4 0", "add_crash_time total = 4 value = 4",
        "destroy_ntp_thread...", "destroy_hw_wdog_thread...", "cancel hw_wdog_thread ",
        re.compile(r"HW WDOG shutdown \d+ 1"), "destroy_hw_wdog_thread succ = 0",
        "destroy_ipc_thread...", "Get Boot Partition = 1Flag = 1", "total crash time = 4",
        "set crash flag to boot reason 16777216 flag = 1",
        *[re.compile(r"Kill Process: \d+ %s" % name) for name in REVERSE],
        "Post check", "done.",
        "all process exit, custodo exit and wait upstart to restart myself"])
    assert crash_counter(board) == "4"
    assert board.read("proc/belvane/boot_reason") == "16777216"
    assert "tq_stat_int 6 6 1" in board.read("sim/tqstat.log").splitlines()

    # Started again by the init, the supervisor knows the count; the next crash is the fifth.
    board.wait_console("crash_time: 4 4")
    wait_for(lambda: messages(board).count(PHASE_6) == 2, what="the second start's phase 6")
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "boot 2")
    board.wait_console("crash_time: 5 0")
    second = after(messages(board), "crash_time: 4 4")
    in_order(second, [
        "key process crash, restart all", "CHECK_PROCESS found process crash too many times, reboot...",
        "add_crash_time total = 5 value = 256", "destroy_hw_wdog_thread succ = 0",
        "total crash time = 5",
        "tq_system: %s performance" % board.path("opt/belvane/scripts/cpu.sh"),
        "crash reboot, set cpu to performance mode then shutdown all process",
        "call shutdown -r now", "tq_system: shutdown -r now"])
    # Before a crash reboot every daemon but the log daemon is killed at once, the key daemon's
    # id of the last check included.
    stop = after(second, "crash reboot, set cpu to performance mode then shutdown all process")
    assert sum(m == "force kill -9" for m in stop) == 5
    assert not any(m.startswith("set crash flag") for m in second)
    assert crash_counter(board) == "256"
    assert board.texts("tools")[-2:] == ["cpu.sh performance", "shutdown -r now"]


def test_quiet_period_clears_the_counter_only_at_its_feed_count(board):
    crash_counter(board, "2")
    # One minute is 7 feeds of 8 seconds.
    board.run(env={"CUSTODO_SIM_TIMESCALE": "16", "CRASH_IGNORE_MIN": "1"})
    board.wait_console("CHECK_PROCESS WDOG 8")
    assert crash_counter(board) is None
    crash_counter(board, "2")
    board.wait_console("CHECK_PROCESS WDOG 9")
    found = messages(board)
    cleared = [i for i, m in enumerate(found) if m == "CHECK_PROCESS found process seems fine, clear crash time..."]
    assert cleared
    # Each clear follows a check at feed count 7, and every such check clears.
    assert all(found[i - 1] == "CHECK_PROCESS WDOG 7" for i in cleared)
    assert len(cleared) == found.count("CHECK_PROCESS WDOG 7")
    assert crash_counter(board) == "2"


def test_signals_stop_the_daemons_and_end_the_supervisor(board):
    # The log daemon ignores the polite signal: waiting stops end in SIGKILL.
    board.tool("daemon", "tqlogd", "hup-ignore")
    board.run(env=FAST)
    ends = {}
    for run, (signal, status) in enumerate((("USR1", 0), ("INT", 2), ("TERM", 2)), 1):
        wait_for(lambda: messages(board).count(PHASE_6) == run, what="start-up number %d" % run)
        exits = len(supervisor_exits(board))
        heartbeats = board.texts("mcu").count("disable_mcu_heartbeat 0")
        board.kill("custodo", signal)
        wait_for(lambda: len(supervisor_exits(board)) > exits, what="the supervisor to end")
        assert supervisor_exits(board)[-1] == status
        number = {"USR1": 10, "INT": 2, "TERM": 15}[signal]
        ends[signal] = after(messages(board), "catch signal:%d" % number)
        restarted = "UpdateProgress flag = 0"
        ends[signal] = ends[signal][:ends[signal].index(restarted)] if restarted in ends[signal] \
            else ends[signal]
        ends[signal + " heartbeat"] = board.texts("mcu").count("disable_mcu_heartbeat 0") - heartbeats

    in_order(ends["USR1"], [
        re.compile(r"HW WDOG shutdown \d+ 1"), re.compile(r"HW WDOG shutdown close fd \d+ 0"),
        "tq_system: rm -rf %s" % board.path("opt/belvane/watchdog/failure_count"),
        "catch sigusr1 exit immediately", "set crash flag to boot reason 0 flag = 0",
        "set_crash_flag(0)", "Boot Partition = 1", "Successfully restore partition flag!",
        "restore_partition_flag", re.compile(r"Kill Process: \d+ quom_client"), "force kill -9",
        "Post check", "done.", "disable_mcu_heartbeat done..."])
    for signal in ("INT", "TERM"):
        in_order(ends[signal], [
            "stop tqcustodo, killall process then exit",
            re.compile(r"Kill Process: \d+ quom_client"), "Done.",
            re.compile(r"Kill Process: \d+ tqlogd"), "Timeout.........try kill -9",
            "Post check", "done.", "set crash flag to boot reason 0 flag = 0"])
        assert "Successfully restore partition flag!" not in ends[signal]
    assert ("disable_mcu_heartbeat done..." in ends["TERM"]) and \
        ("disable_mcu_heartbeat done..." not in ends["INT"])
    assert [ends[s + " heartbeat"] for s in ("USR1", "INT", "TERM")] == [1, 0, 1]


def test_daemon_that_survives_sigkill_reboots_the_board(board):
    board.tool("daemon", "chimer", "stuck")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    chimer = started(board, "chimer")[0]
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "boot 2")
    in_order(messages(board), [
        "key process crash, restart all", re.compile(r"Kill Process: %d chimer" % chimer),
        "Timeout.........try kill -9", "Post check", "Zombie Process?? %d chimer" % chimer,
        "some process did not response to SIGKILL, reboot", "tq_system: reboot"])
    assert supervisor_exits(board) == [1]
    assert [t for t in board.texts("tools") if not t.startswith("ntpdate")] == ["reboot"]


def test_zombie_daemon_counts_as_running_until_its_parent_is_killed(board):
    board.tool("daemon", "netmgrd", "zombie")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    # The daemon is the child of the stub's parent, which renamed itself and never reaps.
    netmgrd = int(board.wait_record("daemons", "zombie-parent").text.split()[-1])
    # A check made before the parent took its new name saw two netmgrd: the next finds one.
    wait_checks(board, 2)
    before = len(messages(board))
    board.kill("netmgrd", "TERM")
    wait_for(lambda: "Z" in board.exec("ps", "-o", "stat=", "-p", str(netmgrd)).stdout,
             what="netmgrd to become a zombie")
    wait_checks(board, 2)
    assert not any("netmgrd disappeared" in m for m in messages(board)[before:])
    # Stopping all after a key crash finds the zombie and kills its parent, so that it goes.
    board.kill("CoreCtl", "KILL")
    wait_for(lambda: supervisor_exits(board), what="the supervisor to end")
    in_order(messages(board), [re.compile(r"Kill Process: %d netmgrd" % netmgrd), "Done.",
                               "all process exit, custodo exit and wait upstart to restart myself"])
    assert supervisor_exits(board) == [1]
    assert board.exec("pidof", "netmgrd-parent").returncode == 1


def test_fast_restart_checks_a_vanished_daemon_at_once(board):
    board.run(env={"CUSTODO_FAST_RESTART": "1"})
    board.wait_console(PHASE_6)
    board.wait_console("fast restart: a daemon that ends is checked at once")
    # Twice: the second time the watch follows the restarted daemon's new id.
    for round in (1, 2):
        pid = started(board, "chimer")[-1]
        wait_checks(board, 1)
        tick = [int(line.split()[0]) for line in board.console() if "CHECK_PROCESS" in line][-1]
        board.kill("chimer", "KILL")
        board.wait_console("Process: %d chimer disappeared??" % pid)
        wait_for(lambda: len(started(board, "chimer")) == round + 1, what="chimer started again")
        lines = board.console()
        found = next(i for i, line in enumerate(lines) if "%d chimer disappeared??" % pid in line)
        check = next(line for line in reversed(lines[:found]) if "CHECK_PROCESS" in line)
        # The timer's next check would come a second after the last one.
        assert int(check.split()[0]) - tick < 900, lines[found - 3:found + 1]
    assert board.stop() == 0
    assert supervisor_exits(board) == [2]
