# Supervision on the board: a vanished daemon found again by name is adopted, duplicates are all
# killed, a lost key daemon restarts everything and is counted, the fifth crash reboots, the quiet
# period forgets crashes, and the stop paths. (A daemon that vanished and is started again: the
# cloud-client reset in test_messages.py, and the crash storm in test_faults.py.)

import os
import re
import signal

import pytest

from supervisor_log import (COUNTER, FAST, PHASE_6, REVERSE, after, crash_counter, in_order, messages,
                            run, stamps, started, supervisor_exits, wait_checks)


def test_daemon_found_again_by_name_is_adopted_and_duplicates_are_all_killed(board):
    run(board)

    def another_chimer(count):
        board.exec("sh", "-c", "chimer >/dev/null 2>&1 &")
        return board.wait(lambda: len(started(board, "chimer")) == count and started(board, "chimer")[-1])
    first, second = started(board, "chimer")[0], another_chimer(2)
    board.exec("kill", "-9", str(first))
    board.wait_console("pid of chimer :%d" % second)
    for count in (3, 4):
        another_chimer(count)
    board.exec("kill", "-9", str(second))
    board.wait_console("StartProc finished")
    in_order(messages(board), [
        "Process: %d chimer disappeared??" % first, "pid of chimer :%d" % second,
        "Process: %d chimer disappeared??" % second, "more than one process exist! kill them all",
        "tq_system: killall -9 chimer", "tq_system: chimer &", "StartProc finished"])
    assert messages(board).count("tq_system: chimer &") == 2  # the start-up's, and this one
    board.wait(lambda: len(board.exec("pidof", "chimer").stdout.split()) == 1, what="one chimer")


def test_key_daemon_crashes_restart_all_then_the_fifth_reboots(board):
    crash_counter(board, "3")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    core = started(board, "CoreCtl")[0]
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "restart")
    board.wait_console("all process exit, custodo exit and wait upstart to restart myself")
    assert supervisor_exits(board) == [1]
    in_order(messages(board), [
        "Process: %d CoreCtl disappeared??" % core, "key process crash, restart all",
        "add_crash_time total = 4 value = 4", "set crash flag to boot reason 16777216 flag = 1",
        *[re.compile(r"Kill Process: \d+ %s" % name) for name in REVERSE],
        "all process exit, custodo exit and wait upstart to restart myself"])
    assert (crash_counter(board), board.read("proc/belvane/boot_reason")) == ("4", "16777216")
    assert "tq_stat_int 6 6 1" in board.read("sim/tqstat.log").splitlines()

    # Started again by the init, the supervisor knows the count; the next crash is the fifth.
    board.wait_console("crash_time: 4 4")
    board.wait(lambda: messages(board).count(PHASE_6) == 2, what="the second start's phase 6")
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "boot 2")
    board.wait_console("crash_time: 5 0")
    second = after(messages(board), "crash_time: 4 4")
    in_order(second, [
        "CHECK_PROCESS found process crash too many times, reboot...", "add_crash_time total = 5 value = 256",
        "crash reboot, set cpu to performance mode then shutdown all process", "tq_system: shutdown -r now"])
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
    cleared = [i for i, m in enumerate(found)
               if m == "CHECK_PROCESS found process seems fine, clear crash time..."]
    # Each clear follows a check at feed count 7, and every such check clears.
    assert cleared and all(found[i - 1] == "CHECK_PROCESS WDOG 7" for i in cleared)
    assert len(cleared) == found.count("CHECK_PROCESS WDOG 7")
    assert crash_counter(board) == "2"


def test_signals_stop_the_daemons_and_end_the_supervisor(board):
    # The log daemon ignores the polite signal: waiting stops end in SIGKILL.
    board.tool("daemon", "tqlogd", "hup-ignore")
    board.run(env=FAST)
    # SIGUSR1 forgets the crashes, marks the partition good and kills at once; SIGINT and SIGTERM
    # stop the daemons in turn, and only SIGTERM (and SIGUSR1) turn the MCU's heartbeat off.
    heartbeat = "disable_mcu_heartbeat done..."
    stop = ["stop tqcustodo, killall process then exit", "Done.", re.compile(r"Kill Process: \d+ tqlogd"),
            "Timeout.........try kill -9", "Post check", "done.", "set crash flag to boot reason 0 flag = 0"]
    for run_, (name, number, status, lines) in enumerate((
            ("USR1", 10, 0, ["tq_system: rm -rf " + board.path(COUNTER), "catch sigusr1 exit immediately",
                             "Successfully restore partition flag!", "force kill -9", "done.", heartbeat]),
            ("INT", 2, 2, stop), ("TERM", 15, 2, stop + [heartbeat])), 1):
        board.wait(lambda: messages(board).count(PHASE_6) == run_, what="start-up number %d" % run_)
        heartbeats = board.texts("mcu").count("disable_mcu_heartbeat 0")
        board.kill("custodo", name)
        board.wait(lambda: len(supervisor_exits(board)) == run_, what="the supervisor to end")
        board.wait(lambda: lines[-1] in after(messages(board), "catch signal:%d" % number), what=lines[-1])
        end = after(messages(board), "catch signal:%d" % number)
        end = end[:end.index("UpdateProgress flag = 0")] if "UpdateProgress flag = 0" in end else end
        in_order(end, lines)
        assert supervisor_exits(board)[-1] == status
        assert ("Successfully restore partition flag!" in end) == (name == "USR1")
        assert board.texts("mcu").count("disable_mcu_heartbeat 0") - heartbeats == (heartbeat in lines)


def test_zombie_and_stuck_daemons_on_the_way_down(board):
    # netmgrd leaves a zombie, which counts as running until its parent is killed; chimer is stuck
    # in the kernel, where even SIGKILL cannot end it, and the board is rebooted instead.
    board.tool("daemon", "netmgrd", "zombie")
    board.tool("daemon", "chimer", "stuck")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    chimer = started(board, "chimer")[0]
    # The daemon is the child of the stub's parent, which renamed itself and never reaps.
    netmgrd = int(board.wait_record("daemons", "zombie-parent").text.split()[-1])
    # A check made before the parent took its new name saw two netmgrd: the next finds one.
    wait_checks(board, 2)
    before = len(messages(board))
    board.kill("netmgrd", "TERM")
    board.wait(lambda: "Z" in board.exec("ps", "-o", "stat=", "-p", str(netmgrd)).stdout,
               what="netmgrd to become a zombie")
    wait_checks(board, 2)
    assert not any("netmgrd disappeared" in m for m in messages(board)[before:])
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "boot 2")
    board.wait_console("tq_system: reboot")
    found = messages(board)
    in_order(found, [
        "key process crash, restart all", "Kill Process: %d netmgrd" % netmgrd,
        "Kill Process: %d chimer" % chimer,
        "Timeout.........try kill -9", "Post check", "Zombie Process?? %d chimer" % chimer,
        "some process did not response to SIGKILL, reboot", "tq_system: reboot"])
    # Its parent killed, the zombie is gone at once.
    assert found[found.index("Kill Process: %d netmgrd" % netmgrd) + 1] == "Done."
    assert supervisor_exits(board) == [1]
    assert [t for t in board.texts("tools") if not t.startswith("ntpdate")] == ["reboot"]


def test_fast_restart_checks_a_vanished_daemon_at_once(board):
    board.run(env={"CUSTODO_FAST_RESTART": "1"})
    board.wait_console("fast restart: a daemon that ends is checked at once")
    board.wait_console(PHASE_6)
    # Twice: the second time the watch follows the restarted daemon's new id.
    for round_ in (1, 2):
        pid = started(board, "chimer")[-1]
        wait_checks(board, 2)  # watched for a second at least
        tick = stamps(board, "CHECK_PROCESS")[-1]
        board.kill("chimer", "KILL")
        found = int(board.wait_console("Process: %d chimer disappeared??" % pid).split()[0])
        board.wait(lambda: len(started(board, "chimer")) == round_ + 1, what="chimer started again")
        # The timer's next check would come a second after the last one.
        assert max(s for s in stamps(board, "CHECK_PROCESS") if s <= found) - tick < 900
    # Ctrl-C on the board reaches the supervisor, which stops its daemons first.
    assert board.stop(signal.SIGINT) == 0
    assert supervisor_exits(board) == [2] and board.texts("init")[-1] == "end of run: interrupted"


@pytest.mark.parametrize("fast", ["1", "0"], ids=["fast restart", "checks alone"])
def test_a_daemon_that_dies_at_once_is_restarted_once_a_second(board, fast):
    board.write("opt/belvane/watchdog/ProcessList.conf",
                "tqlogd,tqlogd &,0,3,0\nblink,blink &,0,1,0\nCoreCtl,CoreCtl &,1,5,0\n")
    # It lives long enough to be found after its start, and watched.
    os.chmod(board.write("bin/blink", "#!/bin/sh\nsleep 0.1\n"), 0o755)
    board.run(env={"CUSTODO_FAST_RESTART": fast})
    begin = int(board.wait_console(PHASE_6).split()[0])
    board.wait(lambda: stamps(board, "CHECK_PROCESS")[-1:] > [begin + 5500], what="five seconds of checks")
    restarts = [line for line in board.console()
                if "blink disappeared??" in line and int(line.split()[0]) <= begin + 5000]
    assert 3 <= len(restarts) <= 6, restarts
