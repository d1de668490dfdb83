# Requests from other daemons over IPC: power-off and reboot, the cloud-client reset, a stage
# payload too large for its record, and who may send; packets the supervisor does not handle are
# only logged, and a minute of garbage from a peer stalls neither its receive thread nor its main
# loop.

import os
import random
import socket
import struct
import subprocess
import time

import pytest

from board import sanitized_build
from supervisor_log import (CHIMER_REBOOT, COUNTER, PHASE_6, QUOM_RESET, QUOM_RESET_ACK, RECEIVED,
                            REVERSE, SHUTDOWN, SHUTDOWN_ACK, STAGE_DONE, STAGE_START, after, boot_flags,
                            crash_counter, in_order, listening, messages, packet, pids, run, stamps,
                            supervisor_exits, wait_checks)

HANDLED = [RECEIVED % (SHUTDOWN, 44), "ipc_com_rcv_thread MSG_SHUTDOWN_WATCHDOG"]


@pytest.mark.parametrize("command, args, asked, option", [
    ("poweroff", [], HANDLED + [" shutdown.option = shutodwn"], "-h"),
    # A prompt name that fills its whole field, with no terminator.
    ("reboot", ["p" * 30], HANDLED + [" shutdown.option = reboot"], "-r"),
    ("chimer-reboot", [], [RECEIVED % (CHIMER_REBOOT, 44)], "-r"),
], ids=["power-off", "reboot with prompt", "chimer reboot"])
def test_requested_power_off_and_reboot(board, command, args, asked, option):
    crash_counter(board, "2")
    # The controller listens on its module as a daemon of the list, and records what it gets.
    board.tool("daemon", "CoreCtl", "listen", "1")
    # A command ended by a signal has no exit code: taken as a success, the way down goes on.
    cpu = board.write("opt/belvane/scripts/cpu.sh", "#!/bin/sh\nkill -9 $PPID\n")
    os.chmod(cpu, 0o755)
    run(board)
    board.wait(lambda: os.path.exists(board.path("run/nodeipc/1")), what="CoreCtl's socket")
    daemons = pids(board)
    board.tool(command, *args)
    if option == "-h":
        assert board.wait_exit() == 0
        assert board.texts("init")[-2:] == ["power-off", "end of run: power-off"]
    else:
        board.wait_record("init", "boot 2")
        board.wait(lambda: messages(board).count(PHASE_6) == 2, what="the supervisor started again")
        assert "crash_time: 0 0" in messages(board)
    assert supervisor_exits(board)[0] == 0
    assert [t for t in board.texts("daemons") if " receive " in t] == [
        "CoreCtl %d receive 0x%08x 0 %s" % (daemons["CoreCtl"], SHUTDOWN_ACK, bytes(32).hex())]

    found = messages(board)
    in_order(found, asked + [
        "destroy_ntp_thread...", "destroy_hw_wdog_thread...", "destroy_ipc_thread...",
        "total crash time = 2", "tq_system: rm -rf " + board.path(COUNTER),
        "watchdog send ipc msg = %d" % SHUTDOWN_ACK, "tq_system: %s performance" % cpu,
        "exit status = 0", "set cpu to performance mode then shutdown all process"])
    # Every daemon but the log daemon is killed at once, in reverse list order; a prompt's
    # lines come from its own thread, among these, and it is joined before the shutdown.
    # Without a prompt no thread is started, and none joined.
    sound = ("Speaker ", "No customed sound file ", "try sound file ", "playback: ")
    stop = [m for m in after(found, "set cpu to performance mode then shutdown all process")
            if not (args and m.startswith(sound))]
    assert stop[:stop.index("call shutdown %s now" % option) + 2] == [
        *[line for name in REVERSE[:5] for line in ("Kill Process: %d %s" % (daemons[name], name),
                                                   "force kill -9")],
        "Kill Process: %d tqlogd" % daemons["tqlogd"], "Done.", "Post check", "done.",
        *(["destroy_snd_thread succ = 0"] if args else []), "call shutdown %s now" % option,
        "tq_system: shutdown %s now" % option]
    assert "shutdown %s now" % option in board.texts("tools") and crash_counter(board) is None
    # The watchdog is closed with the magic character before any daemon is stopped.
    closed = [r for r in board.records("watchdog") if r.text in ("write V", "close disarmed")][-2:]
    assert [r.text for r in closed] == ["write V", "close disarmed"]
    # The write is answered before the supervisor goes on; the close's release comes later.
    assert closed[0].stamp <= stamps(board, "Kill Process:")[0]


@pytest.fixture(scope="module")
def running(make_module_board):
    # A board whose supervisor takes requests; its socket directory has a group of its own, and
    # its root is open, so that unprivileged senders can reach the socket.
    board = make_module_board()
    os.chmod(board.root, 0o755)
    os.chown(board.path("run/nodeipc"), -1, 4242)
    run(board)
    return board


def test_cloud_client_reset_is_acknowledged_and_the_client_restarted(running):
    client = pids(running)["quom_client"]
    with running.receiver(8) as rx:
        running.tool("quom-reset")
    assert rx.packets == [(QUOM_RESET_ACK, 0, bytes(32))]
    # Gone, it is found missing and started again within the second, as any daemon that vanished.
    back, gone = running.wait_console("StartProc finished"), "Process: %d quom_client disappeared??" % client
    in_order(messages(running), [
        RECEIVED % (QUOM_RESET, 44), "ipc_com_rcv_thread MSG_QUOM_RESET", "RESET_QUOM",
        "tq_system: pkill -f quom", "watchdog send ipc msg = %d" % QUOM_RESET_ACK, gone,
        "quom_client crashed", "40 0", "tq_system: quom_client &", "run shell script successfully. ",
        "StartProc finished"])
    assert int(back.split()[0]) - stamps(running, gone)[0] < 1000
    assert "quom_client %d signal 15" % client in running.texts("daemons")
    running.wait(lambda: pids(running)["quom_client"] != client, what="a new quom_client")
    # The next checks know the new process: nothing vanishes twice.
    wait_checks(running, 2)
    assert sum("disappeared??" in m for m in messages(running)) == 1
    assert "tq_stat_int 6 10 1" in running.read("sim/tqstat.log").splitlines()
    assert supervisor_exits(running) == []


def test_only_root_and_the_socket_group_may_send(running):
    info = os.stat(running.path("run/nodeipc/7"))
    assert (oct(info.st_mode), info.st_gid) == (oct(0o140660), 4242)
    send = ("import socket, sys\ntry:\n    socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto("
            "bytes.fromhex(sys.argv[2]), sys.argv[1])\nexcept OSError as e:\n    sys.exit(e.errno)\n")
    outcomes = [subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", groups, "/usr/bin/python3",
                                "-c", send, running.path("run/nodeipc/7"), packet(ident).hex()]).returncode
                for ident, groups in ((0x07010091, "--clear-groups"), (0x07010092, "--groups=4242"))]
    assert outcomes == [13, 0]  # EACCES, sent
    running.wait_console(RECEIVED % (0x07010092, 44))
    assert RECEIVED % (0x07010091, 44) not in messages(running)


def test_stage_payload_larger_than_its_record_aborts(board):
    bound = run(board)
    for boot, (ident, length, handler) in enumerate([
            (STAGE_START, 5, "watchdog got MSG_UPDATE_STAGE_START_WATCHDOG"),
            (STAGE_DONE, 9, "watchdog got MSG_UPDATE_STAGE_DONE_WATCHDOG")], 1):
        # A valid stage inside: it must not reach the boot loader.
        board.tool("send", "0x%08X" % ident, "010000000100000000"[:2 * length])
        board.wait(lambda: len(supervisor_exits(board)) == boot, what="the supervisor to end")
        board.wait(lambda: messages(board).count("set crash flag to boot reason 0 flag = 0") == boot)
        assert supervisor_exits(board)[-1] == 2
        bound = listening(board, bound)
        in_order(after(messages(board), PHASE_6, boot), [
            RECEIVED % (ident, 44), handler, "catch signal:6", "stop tqcustodo, killall process then exit",
            "Post check", "done.", "set crash flag to boot reason 0 flag = 0"])
        assert boot_flags(board)["update_progress_flag"] == "0"


# The whole minute on the sanitizer build, where a fault in the receive path shows best; a
# shorter stream on the plain one keeps the suite's time in bounds.
SECONDS = 60 if sanitized_build() else 15
RATE = 400  # packets per second
# Requests that end the run, or stall it on purpose, are left out; so are the stage messages,
# whose payload limits a short datagram could break through the bytes earlier ones left.
LEFT_OUT = {SHUTDOWN, CHIMER_REBOOT, STAGE_START, STAGE_DONE, QUOM_RESET}
IGNORED = [SHUTDOWN_ACK, QUOM_RESET_ACK, 0x07010099]  # ids the supervisor sends or never uses
FIRST = [packet(0x07010099, b"\1\2"), packet(0x0702002F, bytes(32)),  # power-off, other module
         packet(SHUTDOWN_ACK), packet(QUOM_RESET_ACK), struct.pack("<IH", 0x07080001, 3), b""]


def garbage(rng):
    # One datagram: random ids, length fields and payloads, ids of the supervisor's module,
    # ids it only sends, short and over-long datagrams.
    kind = rng.random()
    if kind < 0.1:
        return rng.randbytes(rng.choice([0, 1, 3, 4, 6, 11]))
    if kind < 0.15:
        return rng.randbytes(rng.randrange(45, 200))
    ident = rng.choice([rng.getrandbits(32), 0x07000000 | rng.getrandbits(24), *IGNORED])
    if ident in LEFT_OUT:
        ident = IGNORED[0]
    return struct.pack("<III", ident, rng.getrandbits(32), rng.getrandbits(32)) + rng.randbytes(32)


def test_unhandled_packets_and_a_garbage_stream_never_stall_the_supervisor(board):
    run(board, env={})  # the minute is a real one
    rng = random.Random(20240607)
    sent = empty = 0
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as peer:
        peer.connect(board.path("run/nodeipc/7"))
        # A receive thread that stops taking packets blocks the sender: fail instead of hanging.
        peer.settimeout(10)
        for datagram in FIRST:
            peer.send(datagram)
        stream_begin = int(board.wait_console("ignore ipc_com_rcv_thread RecvPacket rval = 0").split()[0])
        begin = time.monotonic()
        while time.monotonic() < begin + SECONDS:
            datagram = garbage(rng)
            peer.send(datagram)
            sent += 1
            empty += not datagram
            time.sleep(max(0.0, begin + sent / RATE - time.monotonic()))
    with board.receiver(8) as rx:
        board.tool("quom-reset")
    assert [p.id for p in rx.packets] == [QUOM_RESET_ACK]
    stream_end = int(board.wait_console(RECEIVED % (QUOM_RESET, 44)).split()[0])
    found = [m for m in messages(board) if m.startswith(("ipc_com_rcv_thread Recv", "ignore ipc_com"))]
    # Each packet is logged as taken, and nothing is done for any but the cloud-client reset.
    assert found[:6] == [RECEIVED % (0x07010099, 44), RECEIVED % (0x0702002F, 44),
                         RECEIVED % (SHUTDOWN_ACK, 44), RECEIVED % (QUOM_RESET_ACK, 44),
                         RECEIVED % (0x07080001, 6), "ignore ipc_com_rcv_thread RecvPacket rval = 0"]
    assert len(found) == sent + 6 + 1 and found[-1] == RECEIVED % (QUOM_RESET, 44)
    assert found.count("ignore ipc_com_rcv_thread RecvPacket rval = 0") == empty + 1
    assert not [m for m in messages(board) if m.startswith("ipc_com_rcv_thread MSG_")][:-1]
    # The main loop went on checking the daemons once a second throughout.
    during = [s for s in stamps(board, "CHECK_PROCESS") if stream_begin <= s <= stream_end]
    assert len(during) >= SECONDS - 2 and max(b - a for a, b in zip(during, during[1:])) < 2000
    assert supervisor_exits(board) == []
    board.wait(lambda: board.exec("pidof", "quom_client").returncode == 0, what="quom_client back")
