"""A firmware update driven over IPC: the stage messages move the boot loader's update-progress
flag, and the start-up after an installing reboot verifies the installed phase and tells the
controller."""

import os
import re
import struct
import time

import pytest

from board import Record, wait_for
from supervisor_log import (FAST, PHASE_6, RECEIVED, SHUTDOWN_ACK, STAGE_START, TAG, after,
                            boot_flags, in_order, listening, messages, packet, run, set_boot_flags,
                            to_supervisor)

INSTALL_VERIFY, UPDATE_INTERNAL_ERROR = 0x01070778, 0x0107077B
PROBE = 0x07010099  # an id nobody handles
PACKAGE = "mnt/data/.temp/Update.pkg.inf"
GIVE_UP = "Notify Controller that Upgrader encounter internal error"
START = "watchdog got MSG_UPDATE_STAGE_START_WATCHDOG"
DONE = "watchdog got MSG_UPDATE_STAGE_DONE_WATCHDOG"


def progress(board):
    return int(boot_flags(board)["update_progress_flag"])


def request(board, send):
    """Calls `send`, then sends an id nobody handles: once that is logged, the receive thread
    is done with the request. Returns the console records from the request's receipt to the
    probe's."""
    probe = RECEIVED % (PROBE, 44)
    seen = messages(board).count(probe)
    send()
    to_supervisor(board, packet(PROBE))
    wait_for(lambda: messages(board).count(probe) > seen, what="the probe")
    lines = [Record(int(line.partition(TAG)[0]), line.partition(TAG)[2])
             for line in board.console() if TAG in line]
    end = [i for i, r in enumerate(lines) if r.text == probe][seen]
    begin = max(i for i in range(end) if lines[i].text.startswith("ipc_com_rcv_thread RecvPacket"))
    return lines[begin:end + 1]


def handled(board, *command):
    """The receive thread's lines for a request, without its receipt and the probe."""
    return receive_thread(request(board, lambda: board.tool(*command)))


def receive_thread(records):
    return [r.text for r in records[1:-1] if not r.text.startswith("CHECK_PROCESS")]


def reboot_for_verification(board, boot):
    """Asks for a reboot, which the controller sees acknowledged; returns the stage and result
    of the verification that the next start-up sends it, and the rest of its payload."""
    with board.receiver(1, timeout=60, count=2) as rx:
        board.tool("reboot")
    wait_for(lambda: messages(board).count(PHASE_6) == boot, what="boot %d" % boot)
    # The console may lag behind the packet: its line is written before the send.
    wait_for(lambda: sum(m.startswith("watchdog send ipc msg = %d" % INSTALL_VERIFY)
                         for m in messages(board)) == boot - 1, what="the verification's lines")
    assert [p.id for p in rx.packets] == [SHUTDOWN_ACK, INSTALL_VERIFY]
    assert rx.packets[1].length == 8
    return struct.unpack("<ii", rx.packets[1].payload[:8]), rx.packets[1].payload[8:]


def set_lines(flag):
    return ["Set UpdateProgress flag = " + flag, "Set return = 0"]


def test_update_runs_through_its_phases_across_reboots(board):
    with open(board.path(PACKAGE), "w") as f:
        f.write("package\n")
    bound = run(board)

    # Only the bytes the length names are taken.
    assert handled(board, "send", "0x%08X" % STAGE_START, "0100ffff", "--len", 2) == [
        START, "UpdatePhase (Phase 0) start", *set_lines("UpdateProgress_Phase_0")]
    assert progress(board) == 1
    # A failed phase 0 clears the flag without the pause that follows a successful one.
    lines = request(board, lambda: board.tool("stage-done", 1, 2))
    assert receive_thread(lines) == [DONE, "UpdatePhase (Phase 0) is Failed",
                                     "Clear update progress flag", "Set return = 0",
                                     "Set global update flag =UpdateProgress_Phase_NS"]
    assert lines[-1].stamp - lines[0].stamp < 2500 and progress(board) == 0
    handled(board, "stage-start", 1)

    # The pause after phase 0 holds up the receive thread, not the main loop.
    lines = request(board, lambda: board.tool("stage-done", 1, 1))
    assert receive_thread(lines) == [
        DONE, "UpdatePhase (Phase 0) is Succeeded", *set_lines("UpdateProgress_Phase_NS"),
        "Set global update flag =UpdateProgress_Phase_NS"]
    paused, probe = next(r.stamp for r in lines if r.text.startswith("Set global")), lines[-1].stamp
    assert probe - paused >= 3000 - 20
    assert sum(paused < r.stamp < probe for r in lines if r.text.startswith("CHECK_PROCESS")) >= 2
    assert progress(board) == 0

    assert handled(board, "stage-start", 2) == [
        START, "UpdatePhase (Phase 1) start", *set_lines("UpdateProgress_Phase_1")]
    assert progress(board) == 2
    assert handled(board, "stage-done", 2, 1) == [
        DONE, "UpdatePhase (Phase 1) is Succeeded", *set_lines("UpdateProgress_Phase_1_Post"),
        "Set global update flag =UpdateProgress_Phase_1_Post"]
    assert progress(board) == 4

    # Phase 1 installed, the offline partition marked good: verified after the reboot.
    assert reboot_for_verification(board, 2) == ((2, 1), bytes(24))
    second = after(messages(board), "UpdateProgress flag = 4")
    in_order(second, [
        "Update Global flag read = UpdateProgress_Phase_1_Post",
        "System is updating, phase-2 not start quom_client", PHASE_6, "Offline partition = (2)",
        "Offline partition flag = 1", "Update Phase 1 install succeeded.", "Set return = 0",
        "Send MSG_UPDATE_INSTALL_VERIFY (P1 succeeded)",
        "watchdog send ipc msg = %d" % INSTALL_VERIFY])
    assert progress(board) == 3
    bound = listening(board, bound)

    # Phase 2 starts from the flag the verification left.
    assert handled(board, "stage-start", 3) == [START, "UpdatePhase (Phase 2) start"]
    assert progress(board) == 3
    # The main loop may already be restarting the cloud client among these lines.
    in_order(handled(board, "stage-done", 3, 1), [
        DONE, "UpdatePhase (Phase 2) is Succeeded", *set_lines("UpdateProgress_Phase_2_Post"),
        "Set global update flag =UpdateProgress_Phase_2_Post"])
    assert progress(board) == 5
    # Held back through the second boot, and not taken for a crash, until phase 2 is done; then
    # the next check finds it missing and starts it.
    second = after(messages(board), "UpdateProgress flag = 4")
    held = second[:second.index("UpdatePhase (Phase 2) is Succeeded")]
    assert "tq_system: quom_client &" not in held
    assert not [m for m in held if "quom_client disappeared" in m]
    phase_2_done = lambda: after(messages(board), "UpdatePhase (Phase 2) is Succeeded")
    wait_for(lambda: "StartProc finished" in phase_2_done(), what="the cloud client started again")
    in_order(phase_2_done(), [
        re.compile(r"Process: -?\d+ quom_client disappeared\?\?"), "tq_system: quom_client &",
        "StartProc finished"])

    assert reboot_for_verification(board, 3) == ((3, 1), bytes(24))
    third = after(messages(board), "UpdateProgress flag = 5")
    in_order(third, ["tq_system: quom_client &", PHASE_6, "Offline partition flag = 1",
                     "Update Phase 2 install succeeded.", "Set return = 0",
                     "Send MSG_UPDATE_INSTALL_VERIFY (P2 succeeded)"])
    assert progress(board) == 0
    assert os.path.exists(board.path(PACKAGE))


@pytest.mark.parametrize("flag, phase, package_dir", [(4, 1, "mnt/data/pkg"), (5, 2, None)],
                         ids=["phase 1, package named in the environment", "phase 2, no package"])
def test_failed_install_is_reported_and_the_update_cleared(board, flag, phase, package_dir):
    env = dict(FAST)
    if package_dir:
        env.update(UPDPKG_INFO_PATH=board.path(package_dir), UPDPKG_INFO_NAME="fw.inf")
        os.makedirs(board.path(package_dir))
        with open(board.path(package_dir + "/fw.inf"), "w") as f:
            f.write("package\n")
    run(board, env)
    set_boot_flags(board, update_progress_flag=flag, partition_flag_2=0)
    assert reboot_for_verification(board, 2) == ((phase + 1, 2), bytes(24))
    removal = ["deleting pkginf file " + board.path(package_dir + "/fw.inf")] if package_dir \
        else ["pkginf not found."]
    in_order(after(messages(board), "UpdateProgress flag = %d" % flag), [
        PHASE_6, "Offline partition = (2)", "Offline partition flag = 0",
        "Update Phase %d install failed." % phase, *removal, "Set return = 0",
        "Send MSG_UPDATE_INSTALL_VERIFY (P%d failed)" % phase])
    assert progress(board) == 0
    if package_dir:
        assert not os.path.exists(board.path(package_dir + "/fw.inf"))


def test_updater_runs_for_a_started_stage_and_is_given_up_when_it_keeps_dying(board):
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "a") as f:
        f.write("Upgrader,Upgrader &,0,3,0\n")
    run(board)
    launches = lambda: [t for t in board.texts("daemons")
                        if re.fullmatch(r"Upgrader \d+ start.*", t)]
    assert launches() == []  # no stage has begun
    handled(board, "stage-start", 1)
    wait_for(lambda: len(launches()) == 1, what="the updater")
    board.kill("Upgrader", "KILL")
    wait_for(lambda: len(launches()) == 2, what="the updater launched again")
    # A third launch more than 4 s (of uptime, in whole seconds) after the second is refused.
    time.sleep(5)
    with board.receiver(1) as rx:
        board.kill("Upgrader", "KILL")
    assert rx.packets == [(UPDATE_INTERNAL_ERROR, 0, bytes(32))]
    checks = lambda: sum(m.startswith("CHECK_PROCESS") for m in after(messages(board), GIVE_UP))
    wait_for(lambda: checks() >= 2, what="two checks after giving up")
    assert [t.split(" ", 2)[2] for t in launches()] == ["start -p 0"] * 2
    found = messages(board)
    in_order(found, ["'Upgrader -p 0' process started in background",
                     "'Upgrader -p 0' process started in background",
                     "StartProc: UpdateProgress flag = UpdateProgress_Phase_0",
                     GIVE_UP,
                     "watchdog send ipc msg = %d" % UPDATE_INTERNAL_ERROR])
    assert progress(board) == 0
    assert not [m for m in found if "Upgrader disappeared" in m]
