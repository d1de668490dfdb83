"""Voice prompts on the way down, and the memory snapshot debug command."""

import os
import re
import struct
import wave

import pytest

from supervisor_log import in_order, messages, pids, run

USER = "mnt/data/belvane/sounds/"
FACTORY = "opt/belvane/resources/sounds/"
FRAMES = 1000  # three whole periods of 256 frames and a short fourth
DEVICE = ["playback: max buffer size: 65536", "playback: reliable buffer size: 1024",
          "playback: min period size: 256", "playback: reliable period size: 256",
          "playback: malloc tx buffer size:  512"]


def samples(first, count):
    return b"".join(struct.pack("<h", i) for i in range(first, first + count))


def prompt(board, relative):
    with wave.open(board.path(relative), "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(16000)
        w.writeframes(samples(0, FRAMES))
    return board.path(relative)


def sound_records(board, text):
    return [r for r in board.records("sound") if r.text.startswith(text)]


def power_off(board, name):
    """Runs the board and asks for a power-off with the prompt; the messages once it is down."""
    run(board)
    board.tool("poweroff", name)
    assert board.wait_exit() == 0
    return messages(board)


@pytest.mark.parametrize("where, name, mixer, missing", [
    ("user", "bye.wav", "on", 0),
    # No product number, no region: the factory prompt lies right in the factory directory.
    ("factory", "n" * 26 + ".wav", "off", 0),
    # A file that ends before its data size: the prompt ends with the file.
    ("user", "cut.wav", "on", 100),
])
def test_prompt_plays_before_the_board_goes_down(board, where, name, mixer, missing):
    board.mcu(pn_result=-1)
    board.tool("sound", "mixer=" + mixer)
    path = prompt(board, (USER if where == "user" else FACTORY + "/") + name)
    os.truncate(path, os.path.getsize(path) - 2 * missing)
    found = power_off(board, name)
    lookup = [] if where == "user" else ["No customed sound file " + board.path(USER + name),
                                         "try sound file " + path]
    volume = ["playback: current volume 204"] if mixer == "on" else []
    short = ["playback: short read"] if missing else []
    in_order(found, ["Speaker " + name, *lookup, "playback: try open " + path,
                     "playback: find the last data chunk",
                     "playback: header length: 44, total length: %d" % (44 + 2 * FRAMES),
                     *DEVICE, *volume, *short, "destroy_snd_thread succ = 0",
                     "call shutdown -h now"])
    optional = ("No customed", "playback: current", "playback: short")
    assert [m for m in found if m.startswith(optional)] == lookup[:1] + volume + short
    assert [r.text for r in sound_records(board, "mixer")] == (["mixer set 204"] if volume else [])
    # The last period is written whole: its tail holds the end of the block before it.
    played = FRAMES - missing
    last = played - 3 * 256
    assert board.read("sim/pcm.raw", "rb") == samples(0, played) + samples(512 + last, 256 - last)
    opened, closed = sound_records(board, "pcm params")[0], sound_records(board, "pcm close")[0]
    assert closed.text == "pcm close 1024 frames"
    assert closed.stamp - opened.stamp >= 990 + 64  # the first prompt's wait, then its length
    shutdown = next(r for r in board.records("tools") if r.text == "shutdown -h now")
    assert closed.stamp <= shutdown.stamp


def test_unplayable_prompt_is_tried_four_times_then_the_board_goes_down(board):
    board.tool("sound", "pcm=fail")
    path = prompt(board, USER + "bye.wav")
    found = power_off(board, "bye.wav")
    attempt = ["playback: try open " + path, "playback: find the last data chunk",
               "playback: header length: 44, total length: 2044",
               "playback: unable to open pcm device: No such device",
               "playback: init pcm para fail"]
    in_order(found, attempt * 4 + ["destroy_snd_thread succ = 0", "call shutdown -h now"])
    assert found.count(attempt[0]) == 4
    refused = [r.stamp for r in sound_records(board, "pcm open refused")]
    # A second apart, give or take the counter's millisecond steps.
    assert len(refused) == 4 and all(990 <= b - a < 3000 for a, b in zip(refused, refused[1:]))


def snapshot(board):
    """Runs the debug command in the board root; its blocks by pid, and its own pid."""
    board.exec("sh", "-c", "cd %s && exec custodo-memlog" % board.root, check=True)
    blocks = board.read("MemoryLog.txt").split("\n\n")
    assert blocks[-1] == ""
    blocks = [dict(line.split(": ", 1) for line in block.split("\n")) for block in blocks[:-1]]
    by_pid = {int(b["PID"]): b for b in blocks}
    assert len(by_pid) == len(blocks)  # one block a process: "self" gives none
    return by_pid, [pid for pid, b in by_pid.items() if b["Name"] == "custodo-memlog"]


def test_memory_snapshot_of_every_process(board):
    run(board)
    supervisor = int(re.search(r"start supervisor pid (\d+)", board.texts("init")[-1]).group(1))
    _, first = snapshot(board)
    by_pid, second = snapshot(board)
    live = {1: "custodo-board", supervisor: "custodo", **{p: n for n, p in pids(board).items()}}
    for pid, name in live.items():
        assert by_pid[pid]["Name"] == name[:15] and int(by_pid[pid]["Memory"]) > 0
    # Only the second snapshot is left: it holds the second command, not the first.
    assert len(second) == 1 and second != first
