# Voice prompts on the way down.

import os
import struct
import wave

import pytest

from supervisor_log import in_order, messages, run

USER = "mnt/data/belvane/sounds/"
FACTORY = "opt/belvane/resources/sounds/"
FRAMES = 1000  # three whole periods of 256 frames and a short fourth


def samples(first, count):
    return b"".join(struct.pack("<h", i) for i in range(first, first + count))


def power_off(board, relative, missing=0):
    # Runs the board with a prompt of FRAMES frames (`missing` of them cut off) and asks for a
    # power-off with it; returns the prompt's path and the messages once the board is down.
    path = board.path(relative)
    with wave.open(path, "wb") as w:
        w.setparams((1, 2, 16000, 0, "NONE", None))
        w.writeframes(samples(0, FRAMES))
    os.truncate(path, os.path.getsize(path) - 2 * missing)
    run(board)
    board.tool("poweroff", os.path.basename(path))
    assert board.wait_exit() == 0
    return path, messages(board)


def sound(board, text):
    return [r for r in board.records("sound") if r.text.startswith(text)]


@pytest.mark.parametrize("where, name, mixer, missing", [
    # No product number, no region: the factory prompt lies right in the factory directory.
    ("user", "bye.wav", "on", 0), ("factory", "n" * 26 + ".wav", "off", 0),
    # A file that ends before its data size: the prompt ends with the file.
    ("user", "cut.wav", "on", 100),
])
def test_prompt_plays_before_the_board_goes_down(board, where, name, mixer, missing):
    board.mcu(pn_result=-1)
    board.tool("sound", "mixer=" + mixer)
    path, found = power_off(board, (USER if where == "user" else FACTORY + "/") + name, missing)
    lookup = [] if where == "user" else ["No customed sound file " + board.path(USER + name),
                                         "try sound file " + path]
    volume = ["playback: current volume 204"] if mixer == "on" else []
    short = ["playback: short read"] if missing else []
    in_order(found, ["Speaker " + name, *lookup, "playback: try open " + path,
                     "playback: find the last data chunk",
                     "playback: header length: 44, total length: %d" % (44 + 2 * FRAMES),
                     "playback: malloc tx buffer size:  512", *volume, *short, "destroy_snd_thread succ = 0",
                     "call shutdown -h now"])
    optional = ("No customed", "playback: current", "playback: short")
    assert [m for m in found if m.startswith(optional)] == lookup[:1] + volume + short
    assert [r.text for r in sound(board, "mixer")] == (["mixer set 204"] if volume else [])
    # The last period is written whole: its tail holds the end of the block before it.
    last = FRAMES - missing - 3 * 256
    assert board.read("sim/pcm.raw", "rb") == samples(0, FRAMES - missing) + samples(512 + last, 256 - last)
    # A buffer of at most 1024 frames, the smallest period.
    opened, closed = sound(board, "pcm params")[0], sound(board, "pcm close")[0]
    assert (opened.text, closed.text) == ("pcm params rate 16000 channels 1 buffer 1024 period 256",
                                          "pcm close 1024 frames")
    assert closed.stamp - opened.stamp >= 990 + 64  # the first prompt's wait, then its length
    assert closed.stamp <= next(r.stamp for r in board.records("tools") if r.text == "shutdown -h now")


def test_unplayable_prompt_is_tried_four_times_then_the_board_goes_down(board):
    board.tool("sound", "pcm=fail")
    path, found = power_off(board, USER + "bye.wav")
    attempt = ["playback: try open " + path, "playback: find the last data chunk",
               "playback: header length: 44, total length: 2044",
               "playback: unable to open pcm device: No such device", "playback: init pcm para fail"]
    in_order(found, attempt * 4 + ["destroy_snd_thread succ = 0", "call shutdown -h now"])
    refused = [r.stamp for r in sound(board, "pcm open refused")]
    # A second apart, give or take the counter's millisecond steps.
    assert len(refused) == 4 and all(990 <= b - a < 3000 for a, b in zip(refused, refused[1:]))
