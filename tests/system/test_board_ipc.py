"""IPC with a running board: the request packets custodo-board sends, and packets both ways
between the host and the board's processes."""

import os
import subprocess

import pytest

from board import parse_packet, program, wait_for
from supervisor_log import FAST, PHASE_6, listening, messages, started

IDLE = ["-c", "sleep 3600"]
ZERO = bytes(32)


def padded(data):
    return data + bytes(32 - len(data))


@pytest.mark.parametrize("command, args, ident, length, payload", [
    ("poweroff", ["bye.wav"], 0x0701002F, 32, padded(b"\0\0bye.wav")),
    ("reboot", [], 0x0701002F, 32, padded(b"\1")),
    ("reboot", ["p" * 30], 0x0701002F, 32, b"\1\0" + b"p" * 30),
    ("send", ["0x07010099", "a1b2", "--len", 40], 0x07010099, 40, padded(b"\xa1\xb2")),
    ("send", ["117506049"], 0x07010001, 0, ZERO),
])
def test_request_packets_reach_the_supervisor_module(board, command, args, ident, length, payload):
    board.run(custodo="/bin/sh", args=IDLE)
    with board.receiver(7) as rx:
        board.tool(command, *args)
    assert rx.packets == [(ident, length, payload)]


def test_packets_flow_both_ways_between_host_and_board(board):
    board.run(custodo="/bin/sh", args=IDLE)
    # Board to host: a process inside the board sends, the host receives.
    with board.receiver(9) as rx:
        board.exec(program("custodo-board"), "send", board.root, "0x09070001", "0102", check=True)
    assert rx.packets == [(0x09070001, 2, padded(b"\1\2"))]
    # Host to board: a receiver inside the board gets two packets in order.
    inside = subprocess.Popen([program("custodo-board"), "exec", board.root, "--", program("custodo-board"),
                               "recv", board.root, "12", "--count", "2"],
                              stdout=subprocess.PIPE, text=True)
    wait_for(lambda: os.path.exists(board.path("run/nodeipc/12")), what="the board's receiver")
    board.send(0x0C070002, b"\5")
    board.send(0x0C070003)
    out, _ = inside.communicate(timeout=20)
    assert inside.returncode == 0
    assert [parse_packet(line).id for line in out.splitlines()] == [0x0C070002, 0x0C070003]


def test_ipc_failures_are_reported(board):
    assert "no board running at" in board.tool("quom-reset", check=False).stderr
    board.run(custodo="/bin/sh", args=IDLE)
    refused = board.tool("send", "0x0A070001", check=False)
    assert refused.returncode == 1 and "cannot send 0x0A070001 to module 10" in refused.stderr
    with board.receiver(11, timeout=0.2) as rx:
        pass
    assert rx.status == 1 and "no packet for module 11 within 0.2 s" in rx.error
    assert rx.packets == []
    for bad in (["0x1", "abc"], ["0x100000000"], ["1", "00" * 33]):
        assert board.tool("send", *bad, check=False).returncode == 1


def test_listening_stub_daemon_records_what_the_supervisor_sends_it(board):
    board.tool("daemon", "CoreCtl", "listen", "1")
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    wait_for(lambda: os.path.exists(board.path("run/nodeipc/1")), what="CoreCtl's socket")
    listening(board)
    board.tool("poweroff")
    assert board.wait_exit() == 0
    core = started(board, "CoreCtl")[-1]
    assert [t for t in board.texts("daemons") if " receive" in t] == [
        "CoreCtl %d receive 0x01070030 0 %s" % (core, ZERO.hex())]
    assert not [m for m in messages(board) if "Failed to send" in m]
