"""What a local user, bad input or a hung command cannot do to the supervisor: post its events,
hold its lock, run commands through daemon names, leak descriptors into daemons, or keep a hung
board alive (with the liveness rule on)."""

import contextlib
import os
import random
import re
import shutil
import signal
import stat
import struct
import tempfile
import time

import pytest

from board import program, sanitized_build, wait_for
from supervisor_log import (FAST, PHASE_6, RECEIVED, after, in_order, listening, messages, packet,
                            pids, run, supervisor_exits, to_supervisor)

NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
# Posts an event to the supervisor's queue as any program of the board could, making the queue
# (open to all) when there is none.
POST = ('my $q = msgget(-2147479552, 01666); defined $q or exit 2; '
        'msgsnd($q, pack("l! a*", %d, pack("l", %d) . "\\0" x %d), 04000) or exit 1')


def post(board, event, user=(), type_=1, extra=0):
    return board.exec(*user, "perl", "-e", POST % (type_, event, extra)).returncode


def stamp_of(board, text):
    """The board-time stamp of the first supervisor line that holds `text`."""
    return int(board.wait_console(text).split()[0])


def test_only_the_supervisor_posts_events_and_bad_ones_are_dropped(board):
    board.tool("ntpdate", "hold")
    board.mcu(upgrade_delay=2)
    board.run()
    # Before the supervisor made its queue, another user makes it and asks for a power-off.
    board.wait_console("start to update mcu firmware")
    assert post(board, 5, NOBODY) == 0
    board.wait_console("OS_RecvQueue: event queue of uid 65534 removed")
    board.wait_console(PHASE_6)
    assert post(board, 5, NOBODY) != 0
    assert re.search(r"\s600\s", board.exec("ipcs", "-q").stdout)
    # Root's malformed messages are taken off the queue and counted, and the checks go on.
    assert post(board, 2, extra=4) == 0 and post(board, 2, type_=7) == 0
    board.wait_console("OS_RecvQueue drop bad event: type 1 size 8, dropped 1")
    dropped = board.wait_console("OS_RecvQueue drop bad event: type 7 size 4, dropped 2")
    wait_for(lambda: any(m.startswith("CHECK_PROCESS") for m in
                         messages(board)[messages(board).index(dropped.partition(" tqwatchdog ")[2]):]),
             what="a check after the dropped messages")
    assert "OS_RecvQueue Error!" not in messages(board)
    assert not [t for t in board.texts("tools") if t.startswith("shutdown")]
    assert board.stop() == 0 and board.texts("init")[-1] == "end of run: terminated"


def test_a_lock_that_is_no_custodos_never_stops_it(board):
    run(board)
    os.chmod(board.root, 0o755)
    pid_file = board.path("dev/shm/custodo.pid")
    with tempfile.TemporaryDirectory() as scratch:
        os.chmod(scratch, 0o777)
        held = os.path.join(scratch, "held")
        holder = ("import fcntl, time; f = open(%r); fcntl.lockf(f, fcntl.LOCK_SH); "
                  "open(%r, 'w').close(); time.sleep(3600)" % (pid_file, held))
        # Another user waits for a read lock, which it gets the moment the supervisor ends.
        board.exec("sh", "-c", " ".join(NOBODY) + ' /usr/bin/python3 -c "%s" >/dev/null 2>&1 &' % holder)
        board.kill("CoreCtl", "KILL")
        wait_for(lambda: os.path.exists(held), what="another user's read lock")
        wait_for(lambda: messages(board).count(PHASE_6) == 2, what="the supervisor started again")
    assert "pid file %s is not a running custodo's: replaced" % pid_file in messages(board)
    assert "file:already locked" not in messages(board)

    # A link in the pid file's place is not followed.
    victim = board.path("victim")
    with open(victim, "w") as f:
        f.write("keep")
    board.tool("hold")
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "restart held")
    os.unlink(pid_file)
    os.symlink(victim, pid_file)
    board.tool("release")
    wait_for(lambda: messages(board).count(PHASE_6) == 3, what="the third start")
    assert board.read("victim") == "keep"
    assert stat.S_ISREG(os.lstat(pid_file).st_mode)
    assert re.fullmatch(rb"\d+\0", board.read("dev/shm/custodo.pid", "rb"))


def test_daemon_names_never_reach_a_shell(board):
    pwned = board.path("pwned")
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "w") as f:
        f.write("tqlogd,tqlogd &,0,3,0\nx;touch %s,true,0,1,0\nCoreCtl,CoreCtl &,1,5,0\n" % pwned)
    run(board)
    gone = "Process: -1 x;touch %s disappeared??" % pwned
    wait_for(lambda: messages(board).count(gone) >= 2, what="two searches for the daemon")
    assert not os.path.exists(pwned)


@pytest.mark.parametrize("command", [
    ["wallclock", "99999999999999999999"], ["wallclock", "-1"], ["wallclock", "0", "901"],
    ["recv", "7", "--timeout", "inf"], ["recv", "7", "--timeout", "nan"],
    ["counter", "set", str(2 ** 61)], ["counter", "freeze", str(2 ** 64 - 1)]])
def test_board_commands_check_their_ranges(board, command):
    done = board.tool(*command, check=False)
    assert done.returncode == 1 and "no board running" not in done.stderr, done.stderr


def supervisor_calls(trace):
    """The system calls of the supervisor's own threads, from `strace -f` lines: the first
    process and the threads it makes, not its children."""
    lines, unfinished = [], {}
    for tid, call in (line.split(None, 1) for line in trace.splitlines() if line[:1].isdigit()):
        # A call that another thread's call interrupted comes in two pieces: join them.
        if call.endswith("<unfinished ...>"):
            unfinished[tid] = call[:-len("<unfinished ...>")].rstrip()
            continue
        resumed = re.match(r"<\.\.\. \w+ resumed>\s?(.*)", call)
        if resumed and tid in unfinished:
            call = unfinished.pop(tid) + resumed.group(1)
        lines.append((tid, call))
    ours = {lines[0][0]}
    for tid, call in lines:
        thread = re.match(r"clone3?\(.*CLONE_THREAD.*= (\d+)$", call)
        if tid in ours and thread:
            ours.add(thread.group(1))
    return [(tid, call) for tid, call in lines if tid in ours]


@pytest.mark.skipif(sanitized_build(), reason="the sanitizer runtime opens pipes of its own")
def test_descriptors_are_close_on_exec_and_the_counter_survives_a_power_cut(board):
    # The supervisor under strace: every descriptor it opens must be close-on-exec from the
    # open, and the crash counter's rename must be followed by a sync of its directory.
    trace = board.path("sim/strace.log")
    wrapper = board.path("bin/traced-custodo")
    with open(wrapper, "w") as f:
        f.write("#!/bin/sh\nexec strace -f -qq -o %s -e trace=openat,socket,pipe2,clone,clone3,"
                "rename,fsync %s \"$@\"\n" % (trace, program("custodo")))
    os.chmod(wrapper, 0o755)
    # No held ntpdate: strace ends only once every process it follows has ended.
    board.tool("hold")
    board.run(env=FAST, custodo=wrapper)
    board.wait_console(PHASE_6)
    board.kill("CoreCtl", "KILL")
    board.wait_record("init", "restart held")
    calls = [call for _, call in supervisor_calls(board.read("sim/strace.log"))]
    # The boot-loader environment library opens its own files without; no child inherits them
    # either, as every child starts with descriptors 0 to 2 only.
    opened = [c for c in calls if re.match(r"(openat|socket|pipe2)\(", c)
              and not re.search(r"fw_env\.config|uboot-env\.\d|fw_printenv\.lock", c)]
    assert len(opened) > 20
    assert [c for c in opened if not re.search(r"O_CLOEXEC|SOCK_CLOEXEC", c)] == []
    counter = board.path("opt/belvane/watchdog/failure_count")
    renamed = next(i for i, c in enumerate(calls) if c.startswith("rename(") and '"%s")' % counter in c)
    assert any(c.startswith("fsync(") for c in calls[renamed + 1:renamed + 4]), calls[renamed:renamed + 4]


@pytest.mark.parametrize("limit", [5, None], ids=["rule on", "rule off"])
def test_liveness_rule_resets_a_board_whose_supervisor_hangs(board, limit):
    env = dict(FAST, CUSTODO_LIVENESS_S=str(limit)) if limit else FAST
    run(board, env)
    # A pidof that never returns, met by the next restart.
    hang = board.path("bin/pidof")
    with open(hang, "w") as f:
        f.write("#!/bin/sh\nexec sleep 100000\n")
    os.chmod(hang, 0o755)
    board.kill("chimer", "KILL")
    hung = stamp_of(board, "chimer disappeared??")
    if limit:
        reset = board.wait_record("init", "watchdog reset")
        assert reset.stamp - hung <= (limit + 16) * 1000 + 500
        board.wait_exit()
    else:
        wait_for(lambda: board.counter() > hung + 60000, what="a minute of board time")
        assert "watchdog reset" not in board.texts("init")


def host_pid_of_supervisor(board, not_these):
    """The host pid of the board's supervisor: the init's child called custodo."""
    marker = ("CUSTODO_BOARD_ROOT=%s\0" % board.root).encode()
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/stat" % pid) as f:
                state, parent = f.read().rsplit(")", 1)[1].split()[:2]
            with open("/proc/%s/comm" % parent) as f:
                parent_name = f.read().strip()
            with open("/proc/%s/comm" % pid) as f, open("/proc/%s/environ" % pid, "rb") as e:
                ours = f.read().strip() == "custodo" and marker in e.read()
        except OSError:
            continue
        if ours and parent_name == "custodo-board" and state != "Z" and int(pid) not in not_these:
            return int(pid)
    return None


def running(pid):
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


STORM_RUNS = 6
STOP_SIGNALS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR2]


def test_a_storm_of_stop_signals_always_ends_in_the_stop_sequence(board):
    names = ["d%03d" % n for n in range(200)]
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "w") as f:
        f.writelines("%s,%s &,0,1,0\n" % (name, name) for name in names)
    for name in names:
        os.symlink("stubd", board.path("bin/" + name))
    rng = random.Random(1122)
    board.run(env={"CUSTODO_SIM_TIMESCALE": "100"})
    stopped, signals = [], 0
    for run in range(STORM_RUNS):
        # The handlers are in place once the usage line is out; then a random moment of the
        # start-up or of the checks, and a stream of signals until the supervisor has ended.
        wait_for(lambda: sum(m.startswith("usage: Custodo") for m in messages(board)) > run, 60,
                 "start %d" % (run + 1))
        pid = wait_for(lambda: host_pid_of_supervisor(board, stopped), what="the supervisor's pid")
        time.sleep(rng.uniform(0, 3))
        deadline = time.monotonic() + 30
        sig = signal.SIGTERM  # the first one decides; the others come while it is handled
        while running(pid) and time.monotonic() < deadline:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, sig)
                signals += 1
            sig = rng.choice(STOP_SIGNALS)
            time.sleep(rng.uniform(0, 0.002))
        assert not running(pid), "run %d did not end within 30 s" % (run + 1)
        stopped.append(pid)
    wait_for(lambda: len(supervisor_exits(board)) >= STORM_RUNS, what="the exits")
    assert supervisor_exits(board)[:STORM_RUNS] == [2] * STORM_RUNS
    assert signals > 1000
    found = messages(board)
    assert sum(m.startswith("catch signal:") for m in found) == STORM_RUNS
    for begin in [i for i, m in enumerate(found) if m == "catch signal:15"]:
        in_order(found[begin:], ["stop tqcustodo, killall process then exit", "Post check",
                                 "done.", "disable_mcu_heartbeat done..."])


@pytest.mark.parametrize("obstacle", ["link", "directory"])
def test_published_files_replace_whatever_stands_under_their_names(board, obstacle):
    published = {"dev/shm/timeoffset": b"5\n", "mnt/reserve/belvane.conf": b"location=eu\n",
                 "dev/shm/sn": b"ABCDE".ljust(32, b"\0"), "dev/shm/mcu_version": b"FW 2.3"}
    with open(board.path("opt/belvane/watchdog/region.conf"), "w") as f:
        f.write("eu,ABCDE\n")
    board.tool("ntpdate", "push", "1 Jan 10:00:00 ntpdate[7]: adjust time server A offset 5 sec")
    # Clocks before 2016: the clock sync thread finds the offset file's name as it was left.
    board.mcu(utc=1420000000, pn="ABCDE", version="FW 2.3", version_result=-20, upgrade_delay=5)
    board.run()
    board.wait_console("start to update mcu firmware")
    board.tool("wallclock", 1430000000)
    with open(board.path("victim"), "w") as f:
        f.write("keep")
    for name in published:
        if obstacle == "link":
            os.symlink(board.path("victim"), board.path(name))
        else:
            os.makedirs(board.path(name + "/inside"))
    board.wait_console("ntp time: ")
    assert board.read("victim") == "keep"
    assert {name: board.read(name, "rb") for name in published} == published
    assert {stat.S_IMODE(os.lstat(board.path(name)).st_mode) for name in published} == {0o644}
    in_order(messages(board), ["tq_system: echo 5 > " + board.path("dev/shm/timeoffset"),
                               "run shell script successfully. "])
    assert not any(m.startswith("tq_system: rm -rf") for m in messages(board))


def test_another_users_process_named_like_a_daemon_is_none_of_ours(board):
    run(board)
    with tempfile.TemporaryDirectory() as scratch:
        os.chmod(scratch, 0o755)
        shutil.copy("/bin/sleep", scratch + "/CoreCtl")
        board.exec("sh", "-c", " ".join(NOBODY) + " %s/CoreCtl 3600 >/dev/null 2>&1 &" % scratch)
        theirs = lambda: board.exec("pgrep", "-u", "65534", "CoreCtl").stdout.split()
        before = wait_for(theirs, what="another user's CoreCtl")
        # A restart looks for every daemon again; a lost key daemon starts everything afresh.
        board.kill("chimer", "KILL")
        board.wait_console("StartProc finished")
        wait_for(lambda: any(m.startswith("CHECK_PROCESS") for m in
                             after(messages(board), "StartProc finished")), what="the next check")
        core = pids(board)["CoreCtl"]
        board.exec("kill", "-KILL", str(core))
        wait_for(lambda: messages(board).count(PHASE_6) == 2, what="the start after the crash")
        assert theirs() == before
    found = messages(board)
    assert "Process: %d CoreCtl disappeared??" % core in found
    assert found.count("key process crash, restart all") == 1
    assert "more than one process exist! kill them all" not in found


def test_prompts_are_plain_names_and_cut_after_a_minute(board):
    # Headers announcing 2 GiB of samples (18 hours at 16 kHz), the files sparse.
    for name in ["mnt/data/belvane/sounds/long.wav", "mnt/data/tmp/x.wav"]:
        os.makedirs(os.path.dirname(board.path(name)), exist_ok=True)
        with open(board.path(name), "wb") as f:
            f.write(struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 0x80000014, b"WAVE", b"fmt ", 16, 1,
                                1, 16000, 32000, 2, 16, b"data", 0x7FFFFFF0))
        os.truncate(board.path(name), 44 + 0x7FFFFFF0)
    old = run(board, {"CUSTODO_SIM_TIMESCALE": "100"})
    board.tool("reboot", "../../tmp/x.wav")
    listening(board, old)
    # The sound thread's lines come among the main thread's, before it is joined.
    refused = after(messages(board), "Speaker ../../tmp/x.wav")
    assert "Speaker: not a plain file name, nothing played" in \
        refused[:refused.index("destroy_snd_thread succ = 0")]
    board.tool("poweroff", "long.wav")
    assert board.wait_exit() == 0 and board.texts("init")[-1] == "end of run: power-off"
    assert [m for m in messages(board) if m.startswith("playback: try open")] == [
        "playback: try open " + board.path("mnt/data/belvane/sounds/long.wav")]
    played = stamp_of(board, "playback: try open")
    assert stamp_of(board, "playback: prompt cut after 60 s") - played >= 60000
    frames = [int(t.split()[2]) for t in board.texts("sound") if t.startswith("pcm close")]
    assert len(frames) == 1 and 0 < frames[0] <= 61 * 16000


def test_a_socket_that_cannot_be_bound_is_tried_once_a_second(board):
    os.makedirs(board.path("run/nodeipc/7/in-the-way"))
    board.tool("ntpdate", "hold")
    board.run(env=FAST)
    failed = stamp_of(board, "ignore ipc_com_rcv_thread RecvPacket rval = -1")
    pid = wait_for(lambda: host_pid_of_supervisor(board, []), what="the supervisor's pid")
    cpu = lambda: sum(map(int, open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()[11:13]))
    used, since = cpu(), time.monotonic()
    wait_for(lambda: board.counter() > failed + 10000, what="ten seconds of board time")
    assert (cpu() - used) / os.sysconf("SC_CLK_TCK") < 0.2 * (time.monotonic() - since)
    shutil.rmtree(board.path("run/nodeipc/7"))
    listening(board)
    to_supervisor(board, packet(0x07000001))
    board.wait_console(RECEIVED % (0x07000001, 44))
    assert sum(m.startswith("ignore ipc_com_rcv_thread") for m in messages(board)) <= 2
