"""custodo-status and the supervisor's snapshot, on a board running the sample list."""

import json
import os

from board import wait_for
from supervisor_log import messages, pids, started

SNAPSHOT = "dev/shm/custodo-status.json"


def snapshot(board):
    text = board.read(SNAPSHOT)
    return json.loads(text) if text else {"daemons": []}


def daemon(board, name):
    return next((d for d in snapshot(board)["daemons"] if d["name"] == name), None)


def status(board, *args):
    done = board.exec("custodo-status", *args)
    return done.returncode, done.stdout


def test_status_shows_the_daemons_until_the_supervisor_is_gone(board):
    board.tool("ntpdate", "push", "ntpdate[9]: adjust time server 10.0.0.1 offset 2.5 sec")
    board.run()
    wait_for(lambda: snapshot(board).get("phase") == "supervising" and snapshot(board)["clock"],
             what="the supervising snapshot")
    code, out = status(board, "--json")
    shown = json.loads(out)
    assert code == 0 and shown["crashes"] == {"current": 0, "total": 0}
    assert {d["name"]: d["pid"] for d in shown["daemons"]} == pids(board)
    assert shown["clock"]["result"] == "answered" and shown["clock"]["offset"] == 2
    code, out = status(board)
    assert code == 0 and [line.split()[:4] for line in out.splitlines()[2:]] == [
        [d["name"], ("no", "yes")[d["key"]], "running", str(d["pid"])] for d in shown["daemons"]]

    # Idle, the supervisor rewrites nothing; an update stage reported over IPC is written.
    written = os.stat(board.path(SNAPSHOT)).st_ino
    seen = len(messages(board))
    wait_for(lambda: sum(m.startswith("CHECK_PROCESS") for m in messages(board)[seen:]) >= 3,
             what="three more checks")
    assert os.stat(board.path(SNAPSHOT)).st_ino == written
    board.tool("stage-start", 1)
    wait_for(lambda: snapshot(board)["update_progress"] == "UpdateProgress_Phase_0",
             what="the stage")

    board.kill("chimer", "KILL")
    wait_for(lambda: len(started(board, "chimer")) == 2 and
             daemon(board, "chimer")["pid"] == started(board, "chimer")[1], what="chimer's new pid")
    chimer = daemon(board, "chimer")
    assert (chimer["starts"], chimer["restarts"], chimer["state"]) == (2, 1, "running")
    assert chimer["last_vanished"] and status(board)[0] == 0

    # A lost key daemon: everything stops, and the supervisor exits for a restart that is held.
    board.tool("hold")
    board.kill("CoreCtl", "KILL")
    wait_for(lambda: daemon(board, "CoreCtl")["state"] != "running", what="CoreCtl gone")
    assert status(board)[0] == 3
    board.wait_record("init", "restart held")
    assert status(board)[0] == 4
