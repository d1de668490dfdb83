# A simulated board for system tests: create it, run Custodo on it, drive it, read its records
# (tests/system/README.md). Every wait synchronises on an event (a console line, a record, a
# file); none sleeps blindly.

import collections
import contextlib
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import types

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("CUSTODO_BUILD", os.path.join(REPO, "build"))
SANITIZER_MARKS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:", "ThreadSanitizer:")
# Record files below the board root, by short name; run.err is custodo-board's own standard error.
RECORDS = dict({name: "sim/%s.log" % name for name in ("console", "init", "watchdog", "tools", "daemons",
                                                       "clock", "sound")}, mcu="sim/mcu/calls.log",
               stat="sim/tqstat.log", **{"run.err": "sim/run.err"})

Record = collections.namedtuple("Record", "stamp text")
Packet = collections.namedtuple("Packet", "id length payload")


def sanitized_build():
    with contextlib.suppress(OSError), open(os.path.join(BUILD, "CMakeCache.txt")) as f:
        return re.search(r"^CUSTODO_SANITIZE:\w+=(ON|thread)$", f.read(), re.M) is not None
    return False


def program(name):
    return os.path.join(BUILD, name)


def wait_for(condition, timeout=30, what="condition"):
    deadline = time.monotonic() + timeout
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError("timed out after %s s waiting for %s" % (timeout, what))
        time.sleep(0.01)
    return result


def sanitizer_lines(text):
    return [line for line in text.splitlines() if any(mark in line for mark in SANITIZER_MARKS)]


class Board:
    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="cb", dir="/tmp")
        self.command = program("custodo-board")  # or an installed one
        self.proc = None
        self._start = {}  # record name -> byte offset at the start of the current run
        self.marks = 0
        self.exits_seen = 0  # supervisor exits of the current run whose console caught up
        self.sanitizer_reports = []

    # --- files -------------------------------------------------------------------------
    def path(self, relative):
        return os.path.join(self.root, relative)

    def read(self, relative, mode="r"):
        with contextlib.suppress(FileNotFoundError), open(self.path(relative), mode) as f:
            return f.read()
        return b"" if "b" in mode else ""

    def write(self, relative, text):
        # In place of a link, not through it: links lead to the board's shared stub programs.
        if os.path.islink(self.path(relative)):
            os.unlink(self.path(relative))
        with open(self.path(relative), "w") as f:
            f.write(text)
        return self.path(relative)

    def _text_since_run(self, name):
        text = ""
        with contextlib.suppress(FileNotFoundError), open(self.path(RECORDS[name]), "rb") as f:
            f.seek(self._start.get(name, 0))
            text = f.read().decode(errors="replace")
        # While the run goes on, only whole lines.
        return text[:text.rfind("\n") + 1] if self.proc is not None else text

    def console(self):
        return self._text_since_run("console").splitlines()

    def records(self, name):
        return [Record(int(stamp), text) for stamp, _, text in
                (line.partition(" ") for line in self._text_since_run(name).splitlines())]

    def texts(self, name):
        return [r.text for r in self.records(name)]

    def processes(self):
        # The host's processes of this board, as (pid, name, state, parent pid): those started
        # on it, and custodo-board's own on its root.
        marker, root = ("CUSTODO_BOARD_ROOT=%s\0" % self.root).encode(), self.root.encode()
        found = []
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open("/proc/%s/stat" % pid) as f:
                    name, rest = f.read().split(" (", 1)[1].rsplit(") ", 1)
                with open("/proc/%s/environ" % pid, "rb") as f, open("/proc/%s/cmdline" % pid, "rb") as c:
                    environ, cmdline = f.read(), c.read()
            except (OSError, IndexError):
                continue
            if marker in environ or (b"custodo-board" in cmdline and root in cmdline):
                found.append((int(pid), name, rest[0], int(rest.split()[1])))
        return found

    # --- commands ----------------------------------------------------------------------
    def tool(self, command, *args, check=True):
        done = subprocess.run([self.command, command, self.root, *map(str, args)],
                              capture_output=True, text=True, timeout=30)
        assert not sanitizer_lines(done.stderr), "custodo-board %s: %s" % (command, done.stderr)
        assert done.returncode == 0 or not check, "custodo-board %s %s failed (%d): %s" % (
            command, " ".join(map(str, args)), done.returncode, done.stderr)
        return done

    def init(self):
        return self.tool("init")

    def run(self, args=(), env=None, no_counter=False, custodo=None):
        assert self.proc is None, "the board is already running"
        self._start = {name: os.path.getsize(self.path(rel)) if os.path.exists(self.path(rel)) else 0
                       for name, rel in RECORDS.items()}
        # Ahead of the machine's other work: at a time scale of k every deadline of the board
        # (the watchdog's 16 s among them) has 1/k of its host time.
        command = ["nice", "-n", "-10", self.command, "run", self.root]
        command += ["--no-counter"] if no_counter else []
        command += ["--custodo", custodo] if custodo else []
        command += ["--", *args] if args else []
        with open(self.path(RECORDS["run.err"]), "ab") as err:
            self.proc = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=err,
                                         env=dict(os.environ, **(env or {})))
        self.exits_seen = 0
        self.wait_record("init", "start supervisor pid")
        # Commands that enter the board find its init through this file, which `run` writes once
        # the init has reported, maybe after the init's first record.
        self.wait(lambda: os.path.exists(self.path("sim/init.pid")), what="sim/init.pid")

    def wait(self, match, timeout=30, what="condition"):
        def found():
            result = match()
            if not result and self.proc is not None and self.proc.poll() is not None:
                result = match()  # it may have come just before the end
                assert result, "the run ended (status %d, %s) before %s" % (
                    self.proc.returncode, self.texts("init")[-2:], what)
            return result
        return wait_for(found, timeout, what)

    def console_caught_up(self):
        # Waits until the console log holds what the board's processes wrote so far: a mark sent
        # through the console's pipe (the init's descriptor 3) comes out after it.
        self.marks += 1
        mark = "console mark %d" % self.marks
        try:
            with open("/proc/%d/fd/3" % int(self.read("sim/init.pid")), "w") as console:
                console.write(mark + "\n")
        except (OSError, ValueError):
            return  # the run is over: its console is whole
        self.wait_console(mark)

    def wait_console(self, pattern, timeout=30):
        return self.wait(lambda: next((line for line in self.console() if pattern in line), None),
                         timeout, "console line %r" % pattern)

    def wait_record(self, name, pattern, timeout=30):
        return self.wait(lambda: next((r for r in self.records(name) if pattern in r.text), None),
                         timeout, "%s record %r" % (name, pattern))

    @contextlib.contextmanager
    def receiver(self, module, timeout=10, count=1):
        # Binds the module's socket before the block runs; rx.packets holds what came after it.
        socket, rx = self.path("run/nodeipc/%d" % module), types.SimpleNamespace(packets=[])
        if os.path.exists(socket):
            os.unlink(socket)
        proc = subprocess.Popen([program("custodo-board"), "recv", self.root, str(module), "--timeout",
                                 str(timeout), "--count", str(count)], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)
        wait_for(lambda: os.path.exists(socket) or proc.poll() is not None, 10, "module %d bound" % module)
        try:
            yield rx
        finally:
            out, err = proc.communicate(timeout=timeout + 10)
        assert not sanitizer_lines(err), err
        rx.packets = [Packet(int(ident, 16), int(length), bytes.fromhex(payload))
                      for ident, length, payload in map(str.split, out.splitlines())]

    def mcu(self, **state):
        return self.tool("mcu", *("%s=%s" % kv for kv in state.items()))

    def kill(self, name, sig="TERM"):
        return self.tool("kill", name, sig)

    def exec(self, *command, check=False):
        return self.tool("exec", "--", *command, check=check)

    # --- ending ------------------------------------------------------------------------
    def wait_exit(self, timeout=30):
        status = self.proc.wait(timeout)
        self.proc = None
        for name in ("console", "run.err"):
            self.sanitizer_reports += sanitizer_lines(self._text_since_run(name))
        mounted = lambda: self.root + "/" in open("/proc/self/mountinfo").read()
        wait_for(lambda: not self.processes() and not mounted(), 5, "the board's processes and mounts to go")
        assert not os.path.exists(self.path("sim/control.sock"))
        assert not os.path.exists(self.path("sim/init.pid"))
        return status

    def stop(self, sig=signal.SIGTERM):
        self.proc.send_signal(sig)
        return self.wait_exit()

    def close(self):
        try:
            if self.proc is not None:
                self.stop(signal.SIGQUIT)
        finally:
            if self.proc is not None:
                self.proc.kill()
                self.proc.wait()
            shutil.rmtree(self.root, ignore_errors=True)
