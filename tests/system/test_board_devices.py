"""The board's other devices as the system's programs see them: the MCU state and the sound
output."""

import struct
import wave

IDLE = ["-c", "sleep 3600"]


def mcu_state(board):
    """The state that `show mcu` prints after the calls."""
    return board.tool("show", "mcu").stdout.splitlines()[-1].split(": ", 1)[1].split()


def test_mcu_state_is_set_whole_or_not_at_all(board):
    board.mcu(link="down", mode=5, pn="XY12345")
    assert {"link=down", "mode=5", "pn=XY12345"} <= set(mcu_state(board))
    refused = board.tool("mcu", "mode=7", "colour=blue", check=False)
    assert refused.returncode == 1 and "colour" in refused.stderr
    assert "mode=5" in mcu_state(board)


def test_played_sound_lands_in_the_pcm_file(board, tmp_path):
    # Whole periods of 256 frames: a player fills its last period up with silence.
    frames = b"".join(struct.pack("<h", (i * 37) % 20000 - 10000) for i in range(4096))
    prompt = tmp_path / "prompt.wav"
    with wave.open(str(prompt), "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(16000)
        w.writeframes(frames)
    board.run(custodo="/bin/sh", args=IDLE)
    played = board.exec("aplay", "-q", str(prompt))
    assert played.returncode == 0, played.stderr
    assert board.read("sim/pcm.raw", "rb") == frames
