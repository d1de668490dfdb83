"""Requests from other daemons over IPC: power-off and reboot, the cloud-client reset, packets
the supervisor does not handle, a stage payload too large for its record, and who may send."""

import os
import struct
import subprocess

import pytest

from board import wait_for
from supervisor_log import (CHIMER_REBOOT, FAST, PHASE_6, QUOM_RESET, QUOM_RESET_ACK, RECEIVED,
                            SHUTDOWN, SHUTDOWN_ACK, STAGE_DONE, STAGE_START, after, boot_flags,
                            in_order, listening, messages, packet, pids, run, supervisor_exits,
                            to_supervisor)

STOP_ORDER = ["quom_client", "netmgrd", "AppBridge", "CoreCtl", "chimer"]
CRASH_COUNTER = "opt/belvane/watchdog/failure_count"


@pytest.mark.parametrize("command, args, asked, option", [
    ("poweroff", [], [RECEIVED % (SHUTDOWN, 44), "ipc_com_rcv_thread MSG_SHUTDOWN_WATCHDOG",
                      " shutdown.option = shutodwn"], "-h"),
    # A prompt name that fills its whole field, with no terminator.
    ("reboot", ["p" * 30], [RECEIVED % (SHUTDOWN, 44), "ipc_com_rcv_thread MSG_SHUTDOWN_WATCHDOG",
                            " shutdown.option = reboot"], "-r"),
    ("chimer-reboot", [], [RECEIVED % (CHIMER_REBOOT, 44)], "-r"),
], ids=["power-off", "reboot with prompt", "chimer reboot"])
def test_requested_power_off_and_reboot(board, command, args, asked, option):
    with open(board.path(CRASH_COUNTER), "w") as f:
        f.write("2")
    run(board)
    daemons = pids(board)
    with board.receiver(1) as rx:
        board.tool(command, *args)
    assert rx.packets == [(SHUTDOWN_ACK, 0, bytes(32))]
    if option == "-h":
        assert board.wait_exit() == 0
        assert board.texts("init")[-2:] == ["power-off", "end of run: power-off"]
    else:
        board.wait_record("init", "boot 2")
        wait_for(lambda: messages(board).count(PHASE_6) == 2, what="the supervisor started again")
    assert supervisor_exits(board)[0] == 0

    found = messages(board)
    in_order(found, asked + [
        "destroy_ntp_thread...", "destroy_hw_wdog_thread...", "destroy_ipc_thread...",
        "Get Boot Partition = 1Flag = 1", "total crash time = 2",
        "tq_system: rm -rf " + board.path(CRASH_COUNTER), "watchdog send ipc msg = %d" % SHUTDOWN_ACK,
        "set cpu to performance mode then shutdown all process"])
    # Every daemon but the log daemon is killed at once, in reverse list order; a prompt's
    # lines come from its own thread, among these, and it is joined before the shutdown.
    # Without a prompt no thread is started, and none joined.
    sound = ("Speaker ", "No customed sound file ", "try sound file ", "playback: ")
    stop = [m for m in after(found, "set cpu to performance mode then shutdown all process")
            if not (args and m.startswith(sound))]
    assert stop[:stop.index("call shutdown %s now" % option) + 2] == [
        *[line for name in STOP_ORDER for line in ("Kill Process: %d %s" % (daemons[name], name),
                                                   "force kill -9")],
        "Kill Process: %d tqlogd" % daemons["tqlogd"], "Done.", "Post check", "done.",
        *(["destroy_snd_thread succ = 0"] if args else []),
        "call shutdown %s now" % option, "tq_system: shutdown %s now" % option]
    in_order(board.texts("tools"), ["cpu.sh performance", "shutdown %s now" % option])
    assert not os.path.exists(board.path(CRASH_COUNTER))
    # The watchdog is closed with the magic character before any daemon is stopped.
    closed = [r for r in board.records("watchdog") if r.text in ("write V", "close disarmed")]
    kill = next(line for line in board.console() if "Kill Process:" in line)
    assert [r.text for r in closed[-2:]] == ["write V", "close disarmed"]
    assert closed[-1].stamp <= int(kill.split()[0])
    if option == "-r":
        assert "crash_time: 0 0" in found


def test_cloud_client_reset_is_acknowledged_and_the_client_restarted(board):
    run(board)
    client = pids(board)["quom_client"]
    with board.receiver(8) as rx:
        board.tool("quom-reset")
    assert rx.packets == [(QUOM_RESET_ACK, 0, bytes(32))]
    board.wait_console("StartProc finished")
    in_order(messages(board), [
        RECEIVED % (QUOM_RESET, 44), "ipc_com_rcv_thread MSG_QUOM_RESET", "RESET_QUOM",
        "tq_system: pkill -f quom", "watchdog send ipc msg = %d" % QUOM_RESET_ACK,
        "Process: %d quom_client disappeared??" % client, "tq_system: quom_client &",
        "StartProc finished"])
    assert "quom_client %d signal 15" % client in board.texts("daemons")
    wait_for(lambda: pids(board)["quom_client"] != client, what="a new quom_client")
    assert supervisor_exits(board) == []


def test_packets_the_supervisor_does_not_handle_are_only_logged(board):
    run(board)
    ignored = [
        packet(0x07010099, b"\1\2"),              # an unknown number
        packet(0x0702002F, b"\0" * 32),           # the power-off number from another module
        packet(SHUTDOWN_ACK),                     # ids the supervisor only sends
        packet(QUOM_RESET_ACK),
        struct.pack("<IH", 0x07080001, 3),        # a short datagram
        b"",                                      # an empty one
    ]
    for datagram in ignored:
        to_supervisor(board, datagram)
    with board.receiver(8) as rx:
        board.tool("quom-reset")
    assert [p.id for p in rx.packets] == [QUOM_RESET_ACK]
    found = [m for m in after(messages(board), PHASE_6) if not m.startswith("CHECK_PROCESS")]
    first = found.index(RECEIVED % (0x07010099, 44))
    assert found[first:found.index("ipc_com_rcv_thread MSG_QUOM_RESET") + 1] == [
        RECEIVED % (0x07010099, 44), RECEIVED % (0x0702002F, 44), RECEIVED % (SHUTDOWN_ACK, 44),
        RECEIVED % (QUOM_RESET_ACK, 44), RECEIVED % (0x07080001, 6),
        "ignore ipc_com_rcv_thread RecvPacket rval = 0",
        RECEIVED % (QUOM_RESET, 44), "ipc_com_rcv_thread MSG_QUOM_RESET"]
    assert supervisor_exits(board) == []


def test_stage_payload_larger_than_its_record_aborts(board):
    bound = run(board)
    for boot, (ident, length, handler) in enumerate([
            (STAGE_START, 5, "watchdog got MSG_UPDATE_STAGE_START_WATCHDOG"),
            (STAGE_DONE, 9, "watchdog got MSG_UPDATE_STAGE_DONE_WATCHDOG")], 1):
        # A valid stage inside: it must not reach the boot loader.
        board.send(ident, b"\1\0\0\0\1\0\0\0\0"[:length])
        wait_for(lambda: len(supervisor_exits(board)) == boot, what="the supervisor to end")
        assert supervisor_exits(board)[-1] == 2
        bound = listening(board, bound)
        in_order(after(messages(board), PHASE_6, boot), [
            RECEIVED % (ident, 44), handler, "catch signal:6",
            "stop tqcustodo, killall process then exit", "Post check", "done.",
            "set crash flag to boot reason 0 flag = 0"])
        assert boot_flags(board)["update_progress_flag"] == "0"


def test_only_root_and_the_socket_group_may_send(board):
    # Unprivileged senders must reach the socket: open the (private) root, and give the socket
    # directory a group of its own.
    os.chmod(board.root, 0o755)
    os.chown(board.path("run/nodeipc"), -1, 4242)
    run(board)
    # Once root's packet is taken, the socket is bound and its permissions set.
    to_supervisor(board, packet(0x07010090))
    board.wait_console(RECEIVED % (0x07010090, 44))
    info = os.stat(board.path("run/nodeipc/7"))
    assert (oct(info.st_mode), info.st_gid) == (oct(0o140660), 4242)
    send = ("import socket, sys\n"
            "s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)\n"
            "try:\n"
            "    s.sendto(bytes.fromhex(sys.argv[2]), sys.argv[1])\n"
            "except OSError as e:\n"
            "    sys.exit(e.errno)\n")
    outcomes = {}
    for ident, groups in ((0x07010091, "--clear-groups"), (0x07010092, "--groups=4242")):
        done = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", groups,
                               "/usr/bin/python3", "-c", send, board.path("run/nodeipc/7"),
                               packet(ident).hex()])
        outcomes[groups] = done.returncode
    assert outcomes == {"--clear-groups": 13, "--groups=4242": 0}  # EACCES, sent
    board.wait_console(RECEIVED % (0x07010092, 44))
    assert RECEIVED % (0x07010091, 44) not in messages(board)
