# The board clock set from the MCU, the MCU's firmware and version, the product number and the
# region chosen from it, and the clock sync thread's queries, offsets and notices.

import calendar
import contextlib
import os
import re
import time

import pytest

from supervisor_log import PHASE_6, in_order, messages, stamps

UPDATING = "start to update mcu firmware MCU_FW_1.0.0"
OFFSET_FILE = "dev/shm/timeoffset"
CHIMER, APPBRIDGE = 4, 3
SYNC_TIME, TIME_OFFSET = 0x04070330, 0x03070330


def run_during_update(board, env, during):
    # Runs the board and calls `during` while the MCU firmware update holds start-up, before
    # the board clock is read.
    board.run(env=dict(env, TZ="UTC"))
    board.wait_console(UPDATING)
    during()
    board.wait_console("update mcu firmware done")


@pytest.mark.parametrize("mcu_clock, zone, table, pn, region, version, sn", [
    (1500000000, -480, "# region,pattern\neu,ABCDE\nus,ABCDE\n", r"ABCDE\x01XYZ", "eu", -20, b"ABCDE\0XYZ"),
    # An MCU clock in 2015 never moves the board's; ABC is no match for the prefix ABCDE.
    (1430000000, 0, "us,ABC\n", "ABCDE1234", "prc", -1, b"ABCDE1234"),
    # No printable byte: the prefix is empty and the first line wins, without a comma whole.
    (1500000000, 0, "# c\nnocomma\neu,EU\n", r"\x01ABCDE", "nocomma", -20, b"\0ABCDE"),
], ids=["mcu clock valid", "mcu clock in 2015", "unprintable pn"])
def test_clock_from_mcu_and_identity_files(board, mcu_clock, zone, table, pn, region, version, sn):
    board.write("opt/belvane/watchdog/region.conf", table)
    board.mcu(utc=mcu_clock, pn=pn, version="FW 2.3", version_result=version, upgrade_result=7,
              upgrade_delay=2)
    run_during_update(board, {}, lambda: board.tool("wallclock", int(time.time()), zone))
    board.wait_console(PHASE_6)
    found, visible = messages(board), sn.split(b"\0")[0].decode()
    mcu = int(next(t for t in board.texts("mcu") if t.startswith("get_utc 0 ")).split()[2])
    set_clock = [t for t in board.texts("clock") if t.startswith("settimeofday")]
    synced = ["mcu time: " + time.asctime(time.gmtime(mcu)), " seconds:%d" % mcu,
              re.compile("ap  time: .*"), re.compile(r" seconds:\d+ tz:%d" % zone)]
    if mcu_clock > 1451606400:  # after 2015
        # The MCU keeps local time: the board's seconds are the MCU's plus the minutes west.
        board_clock = mcu + 60 * zone
        assert re.fullmatch(r"settimeofday %d\.\d{6} minuteswest %d" % (board_clock, zone), set_clock[0])
        # Read back just after the set: a second may have begun meanwhile.
        synced.append(re.compile("sync ap with mcu time: (%s|%s)" % (
            time.asctime(time.gmtime(board_clock)), time.asctime(time.gmtime(board_clock + 1)))))
    else:
        assert set_clock == [] and not any(t.startswith("sync ap with mcu") for t in found)
    in_order(found, [UPDATING, "update mcu firmware done 7", "check_mcu_mode = 0", *synced,
                     "##################### Normal sysmode = 0 ################",
                     "##################### 3. KillAllProcess done...",
                     "pn[%d] = %s" % (len(visible), visible),
                     "tq_system: echo \"location=%s\" > %s" % (region, board.path("mnt/reserve/belvane.conf")),
                     "mcu FirwareVer:FW 2.3" if version == -20 else "get mcuver file failed -1",
                     "++StartAllProcess g_upgrader_flag == 0"])
    assert board.read("mnt/reserve/belvane.conf") == "location=%s\n" % region
    assert board.read("dev/shm/sn", "rb") == sn.ljust(32, b"\0")
    assert board.read("dev/shm/mcu_version") == ("FW 2.3" if version == -20 else "")


def answer(server, offset):
    return "server %s, stratum 2, offset 9.5, delay 0.02\n" \
           "22 Nov 10:00:00 ntpdate[77]: adjust time server %s offset %s sec" % (server, server, offset)


def test_servers_asked_in_turn_offsets_published_and_daemons_told(board):
    board.write("opt/belvane/watchdog/ntpserver.conf", "# three servers\nA\nB\nC\n")
    for text in [answer("A", "-0.734521"), answer("B", "2.9"), answer("C", "-2.9"), "garbage",
                 answer("B", "5")]:
        board.tool("ntpdate", "push", text)
    # Both clocks before 2016: every pause is a minute, and the stale offset file stays.
    board.mcu(utc=1420000000, upgrade_delay=30)
    files, modules = [], []
    with contextlib.ExitStack() as receivers:
        def prepare():
            board.tool("wallclock", 1430000000)
            board.write(OFFSET_FILE, "77\n")
            modules.extend(receivers.enter_context(board.receiver(m, timeout=60, count=3))
                           for m in (CHIMER, APPBRIDGE))
        run_during_update(board, {"CUSTODO_SIM_TIMESCALE": "30"}, prepare)
        for n in range(1, 6):
            # Each query ends with its pause.
            board.wait(lambda: len(stamps(board, "ntpserver no valid") + stamps(board, "115 current")) >= n,
                       60, "query %d" % n)
            files.append(board.read(OFFSET_FILE))
    chimer, appbridge = modules
    found = messages(board)
    assert [t for t in board.texts("tools") if t.startswith("ntpdate")] == [
        "ntpdate -q %s" % s for s in "ABCAB"]
    assert [m for m in found if m.startswith("time offset ")] == [
        "time offset 1s (-0.734521s)", "time offset 1s (2.9s)", "time offset 1s (-2.9s)",
        "time offset 0s (0s)", "time offset 1s (5s)"]
    assert files == ["77\n", "2\n", "-2\n", "-2\n", "5\n"]
    assert "rm -rf" not in " ".join(found)
    in_order(found, [re.compile(r"115 current ap time:.* 2015"), " next try after 60s",
                     "ntpdate return:garbage", "ntpserver no valid response, retry next 60s"])
    # A minute of board time from the end of a query to the next, whatever its outcome (the
    # counter ticks 30 ms of board time at a time).
    ends = sorted(stamps(board, "ntpserver no valid") + stamps(board, "115 current ap time:"))
    assert all(59900 <= b - a <= 70000 for a, b in zip(ends, stamps(board, "sync with server:")[1:]))
    # The network time and the offset, as the modules receive them.
    network = [calendar.timegm(time.strptime(m[10:], "%a %b %d %H:%M:%S %Y"))
               for m in found if m.startswith("ntp time: ")]
    assert [(p.id, p.length, p.payload) for p in chimer.packets] == [
        (SYNC_TIME, 4, network[i].to_bytes(4, "little", signed=True).ljust(32, b"\0")) for i in (1, 2, 3)]
    assert [(p.id, p.length, p.payload) for p in appbridge.packets] == [
        (TIME_OFFSET, 4, o.to_bytes(4, "little", signed=True).ljust(32, b"\0")) for o in (2, -2, 5)]
    assert [line for line in board.read("sim/tqstat.log").splitlines() if line.startswith("tq_stat_int 6 ")] \
        == ["tq_stat_int 6 1 1"] * 3 + ["tq_stat_int 6 2 1", "tq_stat_int 6 1 1"]


def test_valid_clock_waits_an_hour_and_a_missing_appbridge_is_not_told(board):
    os.unlink(board.path("bin/AppBridge"))  # it cannot start
    board.tool("ntpdate", "hold")
    board.tool("ntpdate", "push", answer("time1.example.org", "5"))
    # The hour's wait takes a minute; the watchdog's 16 s are 267 ms, which a busy machine's
    # sanitized build keeps (at 120 it once missed 133 ms).
    board.run(env={"CUSTODO_SIM_TIMESCALE": "60"})
    board.wait_console("Process: -1 AppBridge disappeared??")
    with board.receiver(CHIMER, timeout=60) as chimer:
        board.tool("ntpdate", "release")
        board.wait_console("notify chimer sync time to mcu")
    assert [p.id for p in chimer.packets] == [SYNC_TIME]
    # Back in place: the checks stop starting it a hundred times a second during the hour.
    os.symlink("stubd", board.path("bin/AppBridge"))
    # The clock was valid: a stale offset is removed at the start, the next query an hour on.
    board.wait(lambda: len(stamps(board, "sync with server:")) >= 2, 120, "the second query")
    found = messages(board)
    in_order(found, ["ntp_thread start", "tq_system: rm -rf " + board.path(OFFSET_FILE),
                     re.compile(r"1\d\d current ap time:.*"), " next try after 60min",
                     "notify chimer sync time to mcu"])
    assert "notify AppBridge time offset" not in found
    assert 3600000 <= stamps(board, "sync with server:")[1] - stamps(board, "time offset ")[0] <= 3650000
