# A firmware update driven over IPC: the stage messages move the boot loader's update-progress
# flag, and the start-up after an installing reboot verifies the installed phase and tells the
# controller.

import os
import re
import struct

from board import Record, wait_for
from supervisor_log import (FAST, PHASE_6, RECEIVED, SHUTDOWN_ACK, STAGE_START, TAG, after,
                            boot_flags, in_order, listening, messages, packet, run, set_boot_flags,
                            to_supervisor, wait_checks)

INSTALL_VERIFY, UPDATE_INTERNAL_ERROR = 0x01070778, 0x0107077B
PROBE = 0x07010099  # an id nobody handles
GIVE_UP = "Notify Controller that Upgrader encounter internal error"


def progress(board):
    return int(boot_flags(board)["update_progress_flag"])


def request(board, *command):
    # Runs the board command, then sends an id nobody handles: once that is logged, the receive
    # thread is done with the request. Returns the records (stamp, message) from the request's
    # receipt to the probe's.
    probe = RECEIVED % (PROBE, 44)
    seen = messages(board).count(probe)
    board.tool(*command)
    to_supervisor(board, packet(PROBE))
    board.wait(lambda: messages(board).count(probe) > seen, what="the probe")
    lines = [Record(int(line.partition(TAG)[0]), line.partition(TAG)[2])
             for line in board.console() if TAG in line]
    end = [i for i, r in enumerate(lines) if r.text == probe][seen]
    return lines[max(i for i in range(end) if lines[i].text.startswith("ipc_com_rcv_thread Recv")):end + 1]


def reboot_for_verification(board, boot):
    # Asks for a reboot, which the controller sees acknowledged; returns the stage and result
    # of the verification that the next start-up sends it, and the rest of its payload.
    with board.receiver(1, timeout=60, count=2) as rx:
        board.tool("reboot")
    # The console may lag behind the packet: its lines are written before the send.
    board.wait(lambda: sum(m.startswith("Send MSG_UPDATE_INSTALL_VERIFY") for m in messages(board))
               == boot - 1, what="the verification's lines")
    assert [p.id for p in rx.packets] == [SHUTDOWN_ACK, INSTALL_VERIFY] and rx.packets[1].length == 8
    return struct.unpack("<ii", rx.packets[1].payload[:8]), rx.packets[1].payload[8:]


def steps(board, *steps):
    # Requests that each leave the update-progress flag at a value; their records.
    done = []
    for command, flag in steps:
        done.append(request(board, *command))
        assert progress(board) == flag, command
    return done


def test_update_runs_through_its_phases_across_reboots(board):
    package = board.write("mnt/data/.temp/fw.inf", "package\n")
    # The package information file named in the environment.
    bound = run(board, dict(FAST, UPDPKG_INFO_PATH=os.path.dirname(package), UPDPKG_INFO_NAME="fw.inf"))
    # Only the bytes the length names are taken: stage 1 is phase 0.
    failed, _, succeeded, _, _ = steps(
        board, (("send", "0x%08X" % STAGE_START, "0100ffff", "--len", 2), 1),
        (("stage-done", 1, 2), 0), (("stage-start", 1), 1), (("stage-done", 1, 1), 0),
        (("stage-start", 2), 2), (("stage-done", 2, 1), 4))[1:]
    # A failed phase 0 clears the flag at once; the pause after a successful one holds up the
    # receive thread, not the main loop.
    assert failed[-1].stamp - failed[0].stamp < 2500
    paused, probe = next(r.stamp for r in succeeded if r.text.startswith("Set global")), succeeded[-1].stamp
    assert probe - paused >= 3000 - 20
    assert sum(paused < r.stamp < probe for r in succeeded if r.text.startswith("CHECK_PROCESS")) >= 2

    # Phase 1 installed, the offline partition marked good: verified after the reboot.
    assert reboot_for_verification(board, 2) == ((2, 1), bytes(24))
    in_order(after(messages(board), "UpdateProgress flag = 4"), [
        "System is updating, phase-2 not start quom_client", PHASE_6, "Offline partition flag = 1",
        "Update Phase 1 install succeeded.", "Send MSG_UPDATE_INSTALL_VERIFY (P1 succeeded)"])
    assert progress(board) == 3
    bound = listening(board, bound)
    # Phase 2 starts from the flag the verification left.
    steps(board, (("stage-start", 3), 3), (("stage-done", 3, 1), 5))
    # Held back through the second boot, and not taken for a crash, until phase 2 is done; then
    # the next check finds it missing and starts it.
    second = after(messages(board), "UpdateProgress flag = 4")
    held = second[:second.index("UpdatePhase (Phase 2) is Succeeded")]
    assert not [m for m in held if m == "tq_system: quom_client &" or "quom_client disappeared" in m]
    phase_2_done = lambda: after(messages(board), "UpdatePhase (Phase 2) is Succeeded")
    board.wait(lambda: "StartProc finished" in phase_2_done(), what="the cloud client started again")
    in_order(phase_2_done(), [re.compile(r"Process: -?\d+ quom_client disappeared\?\?"),
                              "tq_system: quom_client &"])

    assert reboot_for_verification(board, 3) == ((3, 1), bytes(24))
    in_order(after(messages(board), "UpdateProgress flag = 5"), [
        "tq_system: quom_client &", PHASE_6, "Update Phase 2 install succeeded.",
        "Send MSG_UPDATE_INSTALL_VERIFY (P2 succeeded)"])
    assert progress(board) == 0 and os.path.exists(package)

    # Phase 2 installed, but the offline partition not marked good: reported, the package
    # information removed.
    listening(board, bound)
    set_boot_flags(board, update_progress_flag=5, partition_flag_2=0)
    assert reboot_for_verification(board, 4) == ((3, 2), bytes(24))
    in_order(after(messages(board), "UpdateProgress flag = 5", 2), [
        PHASE_6, "Offline partition flag = 0", "Update Phase 2 install failed.",
        "deleting pkginf file " + package, "Send MSG_UPDATE_INSTALL_VERIFY (P2 failed)"])
    assert progress(board) == 0 and not os.path.exists(package)


def test_updater_runs_for_a_started_stage_and_is_given_up_when_it_keeps_dying(board):
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "a") as f:
        f.write("Upgrader,Upgrader &,0,3,0\n")
    run(board)
    launches = lambda: [t for t in board.texts("daemons") if re.fullmatch(r"Upgrader \d+ start.*", t)]
    assert launches() == []  # no stage has begun
    request(board, "stage-start", 1)
    board.wait(lambda: len(launches()) == 1, what="the updater")
    board.kill("Upgrader", "KILL")
    board.wait(lambda: len(launches()) == 2, what="the updater launched again")
    # A third launch more than 4 s of uptime (in whole seconds) after the second is refused.
    uptime = lambda: float(open("/proc/uptime").read().split()[0])
    second = uptime()
    wait_for(lambda: uptime() >= second + 5, what="5 s of uptime")
    with board.receiver(1) as rx:
        board.kill("Upgrader", "KILL")
    assert rx.packets == [(UPDATE_INTERNAL_ERROR, 0, bytes(32))]
    board.wait_console(GIVE_UP)
    wait_checks(board, 2)
    assert [t.split(" ", 2)[2] for t in launches()] == ["start -p 0"] * 2
    found = messages(board)
    in_order(found, ["'Upgrader -p 0' process started in background",
                     "'Upgrader -p 0' process started in background",
                     "StartProc: UpdateProgress flag = UpdateProgress_Phase_0", GIVE_UP,
                     "watchdog send ipc msg = %d" % UPDATE_INTERNAL_ERROR])
    assert progress(board) == 0 and not [m for m in found if "Upgrader disappeared" in m]
