"""The board's watchdog device: its record and its timer, driven by a tiny client that uses
the same requests as the supervisor."""

import sys

import pytest

from board import wait_for

CLIENT = r"""
import fcntl, os, struct, sys, time
fd = os.open(os.environ["CUSTODO_BOARD_ROOT"] + "/dev/watchdog", os.O_WRONLY)
word = bytearray(struct.pack("i", 16))
assert fcntl.ioctl(fd, 0xC0045706, word, True) == 0 and struct.unpack("i", word)[0] == 16
fcntl.ioctl(fd, 0xC004570B, bytearray(struct.pack("i", 1)), True)
fcntl.ioctl(fd, 0x80045704, bytearray(struct.pack("i", 2)), True)
assert fcntl.ioctl(fd, 0x80045705, 1) == 0  # a plain value, not a pointer
try:
    fcntl.ioctl(fd, 0x80045707, 1)
except OSError as error:
    print("unknown request:", error.errno, flush=True)
if sys.argv[1] == "magic":
    os.write(fd, b"V")
    os.close(fd)
print("watchdog client ready", flush=True)
time.sleep(3600)
"""

OPENED = ["open", "settimeout 16", "funcconfig 1", "enable", "keepalive",
          "ioctl 0x80045707 unknown"]


@pytest.mark.parametrize("mode", ["armed", "magic"])
def test_watchdog_records_requests_and_resets_only_when_left_armed(board, mode):
    # 16 s of board time pass in half a second.
    board.run(custodo=sys.executable, args=["-c", CLIENT, mode], env={"CUSTODO_SIM_TIMESCALE": "32"})
    assert board.wait_console("unknown request:") == "unknown request: 25"  # ENOTTY
    if mode == "armed":
        assert board.wait_exit() == 0
        records = board.records("watchdog")
        assert [r.text for r in records[:6]] == OPENED
        resets = [r for r in records if r.text.startswith("reset")]
        assert [r.text for r in resets] == ["reset after 16 s without a feed"]
        # Counted from the keep-alive; stamps come from the counter, which moves in steps of the
        # time scale (32 board ms here).
        assert resets[0].stamp - records[4].stamp >= 16000 - 2 * 32
        assert board.texts("init")[-2:] == ["watchdog reset", "end of run: watchdog reset"]
    else:
        board.wait_console("watchdog client ready")
        start = board.counter()
        wait_for(lambda: board.counter() > start + 40000, what="40 s of board time")
        assert board.proc.poll() is None
        assert board.texts("watchdog") == OPENED + ["write V", "close disarmed"]
        assert board.stop() == 0
        assert board.texts("init")[-1] == "end of run: terminated"
