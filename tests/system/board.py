"""A simulated board for system tests: create it, run Custodo on it, drive it, read its records.

Every wait synchronises on an event (a console line, a record, a file); none sleeps blindly.
"""

import collections
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("CUSTODO_BUILD", os.path.join(REPO, "build"))


def sanitized_build():
    """Whether the programs under test were built with the sanitizers."""
    try:
        with open(os.path.join(BUILD, "CMakeCache.txt")) as f:
            return re.search(r"^CUSTODO_SANITIZE:\w+=(ON|thread)$", f.read(), re.M) is not None
    except OSError:
        return False
SANITIZER_MARKS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:",
                   "ThreadSanitizer:")

# Record files below the board root, by short name.
RECORDS = {
    "console": "sim/console.log",
    "init": "sim/init.log",
    "watchdog": "sim/watchdog.log",
    "mcu": "sim/mcu/calls.log",
    "tools": "sim/tools.log",
    "daemons": "sim/daemons.log",
    "stat": "sim/tqstat.log",
    "clock": "sim/clock.log",
    "sound": "sim/sound.log",
    "run.err": "sim/run.err",  # custodo-board's own standard error
}

Record = collections.namedtuple("Record", "stamp text")
Packet = collections.namedtuple("Packet", "id length payload")


def program(name):
    return os.path.join(BUILD, name)


def wait_for(condition, timeout=30, what="condition"):
    """Polls `condition` until it returns something true, which is returned."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError("timed out after %s s waiting for %s" % (timeout, what))
        time.sleep(0.01)


def sanitizer_lines(text):
    return [line for line in text.splitlines() if any(mark in line for mark in SANITIZER_MARKS)]


def parse_packet(line):
    ident, length, payload = line.split()
    return Packet(int(ident, 16), int(length), bytes.fromhex(payload))


class Board:
    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="cb", dir="/tmp")
        self.command = program("custodo-board")  # or an installed one
        self.proc = None
        self.timescale = 1
        self._start = {}  # record name -> byte offset at the start of the current run
        self.sanitizer_reports = []

    # --- files -------------------------------------------------------------------------
    def path(self, relative):
        return os.path.join(self.root, relative)

    def read(self, relative, mode="r"):
        try:
            with open(self.path(relative), mode) as f:
                return f.read()
        except FileNotFoundError:
            return b"" if "b" in mode else ""

    def _text_since_run(self, name):
        """The file's text written during this run, in whole lines while the run goes on."""
        try:
            with open(self.path(RECORDS[name]), "rb") as f:
                f.seek(self._start.get(name, 0))
                text = f.read().decode(errors="replace")
        except FileNotFoundError:
            return ""
        return text[:text.rfind("\n") + 1] if self.proc is not None else text

    def console(self):
        """The console lines of the current (or last) run."""
        return self._text_since_run("console").splitlines()

    def records(self, name):
        """A record file of the current run as (stamp, text) pairs."""
        out = []
        for line in self._text_since_run(name).splitlines():
            stamp, _, text = line.partition(" ")
            out.append(Record(int(stamp), text))
        return out

    def texts(self, name):
        return [r.text for r in self.records(name)]

    def counter(self):
        """The board's millisecond counter as its programs read it: a frozen count, or one
        computed from the board-clock moment at which it was 0 (sim/common/sim_files.h)."""
        word = int.from_bytes(self.read("dev/jiffies", "rb")[:8] or b"\0", "little")
        if not word >> 63:
            return word
        clock = time.monotonic_ns() // 1000 * self.timescale // 1000
        return clock + (1 << 61) - (word & ((1 << 63) - 1))

    # --- commands ----------------------------------------------------------------------
    def tool(self, command, *args, check=True):
        """Runs `custodo-board COMMAND ROOT ARGS...`; fails the test on an error or a
        sanitizer report."""
        done = subprocess.run([self.command, command, self.root, *map(str, args)],
                              capture_output=True, text=True, timeout=30)
        reports = sanitizer_lines(done.stderr)
        assert not reports, "custodo-board %s: %s" % (command, reports)
        if check and done.returncode != 0:
            raise AssertionError("custodo-board %s %s failed (%d): %s"
                                 % (command, " ".join(map(str, args)), done.returncode, done.stderr))
        return done

    def init(self):
        return self.tool("init")

    def run(self, args=(), env=None, no_counter=False, custodo=None, wait=True):
        """Powers the board on in the background; by default returns once the supervisor
        has been started."""
        assert self.proc is None, "the board is already running"
        self._start = {name: os.path.getsize(self.path(rel)) if os.path.exists(self.path(rel)) else 0
                       for name, rel in RECORDS.items()}
        command = [self.command, "run", self.root]
        command += ["--no-counter"] if no_counter else []
        command += ["--custodo", custodo] if custodo else []
        command += ["--", *args] if args else []
        environment = dict(os.environ, **(env or {}))
        self.timescale = int(environment.get("CUSTODO_SIM_TIMESCALE", "1"))
        with open(self.path(RECORDS["run.err"]), "ab") as err:
            self.proc = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=err,
                                         env=environment)
        if wait:
            self.wait_record("init", "start supervisor pid")
        return self.proc

    def wait_console(self, pattern, timeout=30):
        """The first console line of this run that holds `pattern`."""
        def match():
            return next((line for line in self.console() if pattern in line), None)
        return self._wait(match, timeout, "console line %r" % pattern)

    def wait_record(self, name, pattern, timeout=30):
        """The first record of this run whose text holds `pattern`."""
        def match():
            return next((r for r in self.records(name) if pattern in r.text), None)
        return self._wait(match, timeout, "%s record %r" % (name, pattern))

    def _wait(self, match, timeout, what):
        def found():
            result = match()
            if result is None and self.proc is not None and self.proc.poll() is not None:
                result = match()  # it may have come just before the end
                assert result is not None, "the run ended (status %d) before %s" % (
                    self.proc.returncode, what)
            return result
        return wait_for(found, timeout, what)

    def send(self, ident, payload=b""):
        return self.tool("send", "0x%08X" % ident, *([payload.hex()] if payload else []))

    def receiver(self, module, timeout=10, count=1):
        return Receiver(self, module, timeout, count)

    def mcu(self, **state):
        return self.tool("mcu", *("%s=%s" % kv for kv in state.items()))

    def freeze(self, ms):
        return self.tool("counter", "freeze", ms)

    def kill(self, name, sig="TERM"):
        return self.tool("kill", name, sig)

    def exec(self, *command, check=False):
        return self.tool("exec", "--", *command, check=check)

    # --- ending ------------------------------------------------------------------------
    def wait_exit(self, timeout=30):
        """The run's exit status once it ends by itself (power-off, watchdog reset)."""
        status = self.proc.wait(timeout)
        self._finish()
        return status

    def stop(self, sig=signal.SIGTERM):
        """Stops the run; returns its exit status. SIGTERM (a service manager) and SIGINT
        (Ctrl-C) reach the supervisor, which stops its daemons first; SIGQUIT pulls the plug."""
        self.proc.send_signal(sig)
        return self.wait_exit()

    def _finish(self):
        self.proc = None
        for name in ("console", "run.err"):
            self.sanitizer_reports += sanitizer_lines(self._text_since_run(name))
        self.assert_nothing_left()

    def leftovers(self):
        """Host processes that still belong to this board, and mounts below its root."""
        found = []
        marker = ("CUSTODO_BOARD_ROOT=%s\0" % self.root).encode()
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open("/proc/%s/environ" % pid, "rb") as f:
                    environ = f.read()
                with open("/proc/%s/cmdline" % pid, "rb") as f:
                    cmdline = f.read()
                with open("/proc/%s/mountinfo" % pid) as f:
                    mounted = self.root + "/" in f.read()
            except OSError:
                continue
            if marker in environ or (b"custodo-board" in cmdline and self.root.encode() in cmdline) \
                    or mounted:
                found.append((int(pid), cmdline.replace(b"\0", b" ").decode(errors="replace")))
        return found

    def assert_nothing_left(self):
        wait_for(lambda: not self.leftovers(), 5, "the board's processes and mounts to vanish")
        assert not os.path.exists(self.path("sim/control.sock"))
        assert not os.path.exists(self.path("sim/init.pid"))

    def close(self):
        """Teardown: stops a run still going and removes the root."""
        try:
            if self.proc is not None:
                self.stop(signal.SIGQUIT)
        finally:
            if self.proc is not None:
                self.proc.kill()
                self.proc.wait()
            shutil.rmtree(self.root, ignore_errors=True)


class Receiver:
    """`with board.receiver(module) as rx: ...` binds the module's socket before the block
    runs and holds the packets received in rx.packets after it."""

    def __init__(self, board, module, timeout, count):
        self.board, self.module, self.timeout, self.count = board, module, timeout, count
        self.packets = []
        self.status = None

    def __enter__(self):
        socket = self.board.path("run/nodeipc/%d" % self.module)
        if os.path.exists(socket):
            os.unlink(socket)
        self.proc = subprocess.Popen(
            [program("custodo-board"), "recv", self.board.root, str(self.module),
             "--timeout", str(self.timeout), "--count", str(self.count)],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        wait_for(lambda: os.path.exists(socket) or self.proc.poll() is not None, 10,
                 "module %d to be bound" % self.module)
        return self

    def __exit__(self, *exc):
        out, err = self.proc.communicate(timeout=self.timeout + 10)
        assert not sanitizer_lines(err), err
        self.status = self.proc.returncode
        self.error = err
        self.packets = [parse_packet(line) for line in out.splitlines()]
        return False
