"""Custodo's footprint and speed on a simulated board, printed as one table beside the aims.

Run through `make bench` (bench/README.md). Every figure is of the supervisor's process alone:
its threads, and for CPU per restart and start-up the programs it runs and waits for. The
simulator's own cost is measured apart and printed last, never counted for the supervisor.
"""

import os
import random
import resource
import signal
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tests", "system"))

from board import BUILD, Board, program, wait_for  # noqa: E402

TAG = " tqwatchdog "
PHASE_6 = "##################### 6. Restore partition flag done..."
REQUIRED_SLEEPS_MS = 2000  # the second after the starts and the post check's second
DAEMONS = 12
KILLS = 30
IDLE_S = int(os.environ.get("BENCH_IDLE_S", "60"))
BYSTANDERS = 200
BIG_LIST = 1001
SAMPLE = ["tqlogd", "chimer", "CoreCtl", "AppBridge", "netmgrd", "quom_client"]
WAIT_S = 3  # the sample list's wait after start for each entry, in the readiness rows
READY_S = 0.2
HEARTBEATS = 10
FLOOR = os.environ.get("BENCH_FLOOR", os.path.join(BUILD, "check_floor"))
AARCH64 = os.environ.get("BENCH_AARCH64", os.path.join(os.path.dirname(BUILD), "build-aarch64", "custodo"))


def log(text):
    print(text, file=sys.stderr, flush=True)


def stub_names(count):
    return ["benchd%04d" % i for i in range(1, count + 1)]


def prepared_board(count):
    """A board whose list holds the key daemon and `count` stub daemons that only wait."""
    board = Board()
    board.init()
    lines = ["CoreCtl,CoreCtl &,1,5,0"]
    for name in stub_names(count):
        os.symlink("stubd", board.path("bin/" + name))
        lines.append("%s,%s &,0,5,0" % (name, name))
    with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "w") as f:
        f.write("\n".join(lines) + "\n")
    return board


def with_policy(board, policy, stubs):
    """Writes the policy file and what each stub daemon tells the supervisor."""
    with open(board.path("opt/belvane/watchdog/ProcessPolicy.conf"), "w") as f:
        f.write(policy)
    for name, settings in stubs.items():
        for setting, seconds in settings:
            board.tool("daemon", name, setting, seconds)


def host_pids(board):
    """name -> host pids of the board's processes."""
    marker = ("CUSTODO_BOARD_ROOT=%s\0" % board.root).encode()
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/environ" % pid, "rb") as f:
                if marker not in f.read():
                    continue
            with open("/proc/%s/comm" % pid) as f:
                found.setdefault(f.read().strip(), []).append(int(pid))
        except OSError:
            continue
    return found


def simulator_pids(board):
    """custodo-board run, its relay and the board's init."""
    out = subprocess.run(["pgrep", "-f", "custodo-board (run|__init) %s( |$)" % board.root],
                         capture_output=True, text=True).stdout
    return [int(p) for p in out.split()]


def cpu_ns(pid, threads=None):
    """On-CPU time of the process's threads (all, or the given ones), exact to the ns."""
    total = 0
    for tid in threads or os.listdir("/proc/%d/task" % pid):
        try:
            with open("/proc/%d/task/%s/schedstat" % (pid, tid)) as f:
                total += int(f.read().split()[0])
        except OSError:
            pass
    return total


def children_ns(pid):
    """CPU of the programs the process ran and waited for (in ticks: good over many)."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rpartition(")")[2].split()
    return (int(fields[13]) + int(fields[14])) * 1_000_000_000 // os.sysconf("SC_CLK_TCK")


def memory_mib(pid):
    status = dict(line.split(":", 1) for line in open("/proc/%d/status" % pid))
    pss = next(int(line.split()[1]) for line in open("/proc/%d/smaps_rollup" % pid)
               if line.startswith("Pss:"))
    return int(status["VmRSS"].split()[0]) / 1024, pss / 1024, int(status["VmLck"].split()[0]) / 1024


def logged(board):
    """The supervisor's log lines as (stamp, message)."""
    return [(int(line.split(" ", 1)[0]), line.partition(TAG)[2]) for line in board.console() if TAG in line]


def run(board, env=None):
    board.run(env=env)
    board.wait_console(PHASE_6, timeout=900)
    pid = wait_for(lambda: (host_pids(board).get("custodo") or [None])[0], 30, "the supervisor")
    time.sleep(2)
    return pid


def counter(board):
    """The board's millisecond counter as its programs read it (the bench runs at time scale
    1): a frozen count, or one computed from the board-clock moment at which it was 0."""
    word = int.from_bytes(board.read("dev/jiffies", "rb")[:8] or b"\0", "little")
    if not word >> 63:
        return word
    return time.monotonic_ns() // 1000000 + (1 << 61) - (word & ((1 << 63) - 1))


def idle(board, pid, seconds):
    """CPU-s per hour of the supervisor and of the simulator, and the main thread's CPU per
    check in µs, over a quiet window."""
    simulator = simulator_pids(board)
    begin = counter(board)
    before = cpu_ns(pid), cpu_ns(pid, [pid]), sum(cpu_ns(p) for p in simulator)
    time.sleep(seconds)
    after = cpu_ns(pid), cpu_ns(pid, [pid]), sum(cpu_ns(p) for p in simulator)
    checks = sum(1 for s, m in logged(board) if s >= begin and m.startswith("CHECK_PROCESS")) or 1
    per_hour = 3600 / seconds / 1e9
    return ((after[0] - before[0]) * per_hour, (after[2] - before[2]) * per_hour,
            (after[1] - before[1]) / checks / 1e3)


def wait_phase(board, phase_ms):
    """Waits until `phase_ms` after a tick of the one-second check."""
    tick = [s for s, m in logged(board) if m.startswith("CHECK_PROCESS")][-1]
    target = tick + 1000 + phase_ms
    while target < counter(board):
        target += 1000
    while counter(board) < target:
        time.sleep(0.001)


def restarts(board, pid, count):
    """Kills stub daemons one at a time, at moments spread evenly over the check's second. The
    replacement is exec'd when the supervisor logs the start's success (the start returns once
    the exec is done). Returns the kill-to-exec and detection-to-exec times in ms, the CPU ns
    spent with the programs run and by the supervisor's threads alone, and the seconds taken."""
    names = stub_names(DAEMONS)
    phases = random.Random(12).sample(range(count), count)
    to_exec, detection = [], []
    cpu0, kids0, t0 = cpu_ns(pid), children_ns(pid), time.monotonic()
    for i in range(count):
        time.sleep(0.2)
        wait_phase(board, phases[i] * 1000 // count)
        name = names[i % len(names)]
        seen = len(logged(board))
        killed_at = counter(board)
        os.kill(host_pids(board)[name][0], signal.SIGKILL)

        def started():
            lines = logged(board)[seen:]
            lost = next((j for j, (_, m) in enumerate(lines) if m.endswith(" %s disappeared??" % name)), None)
            if lost is None:
                return None
            start = next((j for j, (_, m) in enumerate(lines) if j > lost and m == "tq_system: %s &" % name), None)
            done = next((s for j, (s, m) in enumerate(lines) if start is not None and j > start
                         and m == "run shell script successfully. "), None)
            return done and (lines[lost][0], done)
        lost_at, exec_at = wait_for(started, 10, "%s restarted" % name)
        to_exec.append(exec_at - killed_at)
        detection.append(exec_at - lost_at)
    time.sleep(1.5)
    own = cpu_ns(pid) - cpu0
    return to_exec, detection, own + children_ns(pid) - kids0, own, time.monotonic() - t0


def per_restart_ms(spent_ns, idle_per_hour, seconds):
    """CPU per kill beyond what the idle supervisor spends meanwhile."""
    return (spent_ns - idle_per_hour * 1e9 / 3600 * seconds) / KILLS / 1e6


def pidof_cpu_ms(board, runs=20):
    """CPU of one run of the board's pidof, inside the board."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    board.exec("sh", "-c", "for i in $(seq %d); do pidof -x benchd0001 >/dev/null; done" % runs, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    spent = (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)
    return spent * 1000 / runs


def floor_us(entries):
    if not os.path.exists(FLOOR):
        return None
    return float(subprocess.run([FLOOR, str(entries)], capture_output=True, text=True, check=True).stdout)


def quantiles(values):
    values = sorted(values)
    return (values[0], statistics.median(values), values[min(len(values) - 1, round(0.9 * (len(values) - 1)))],
            values[-1])


def stripped_kib(path, strip):
    if not os.path.exists(path):
        return None
    out = "/tmp/custodo-bench-stripped"
    subprocess.run([strip, "-o", out, path], check=True)
    size = os.path.getsize(out) / 1024
    os.unlink(out)
    return size


class Table:
    def __init__(self):
        self.rows = []

    def add(self, what, value, aim, note=""):
        self.rows.append((what, value, aim, note))
        log("%s: %s (aim %s) %s" % (what, value, aim, note))

    def print(self):
        widths = [max(len(r[i]) for r in self.rows + [("Custodo", "measured", "aim", "")]) for i in range(3)]
        print()
        for row in [("Custodo", "measured", "aim", "")] + self.rows:
            print("  ".join(cell.ljust(width) for cell, width in zip(row[:3], widths)) + "  " + row[3])


def described_rhythm(table):
    board = prepared_board(DAEMONS)
    try:
        pid = run(board)
        start = board.wait_record("init", "start supervisor pid").stamp
        phase6 = next(s for s, m in logged(board) if m == PHASE_6)
        pidof = pidof_cpu_ms(board)
        table.add("start-up to phase 6, minus the 2 s of required sleeps (ms)",
                  "%d" % (phase6 - start - REQUIRED_SLEEPS_MS), "<= 250",
                  "45 programs run by the described steps (6 kills, 26 pidof, 13 shell starts); one "
                  "pidof costs %.1f ms CPU here" % pidof)
        rss, pss, locked = memory_mib(pid)
        table.add("RSS / PSS / VmLck (MiB)", "%.2f / %.2f / %.2f" % (rss, pss, locked), "PSS <= 1.8, VmLck <= 8")
        cpu, simulator, check = idle(board, pid, IDLE_S)
        floor = floor_us(DAEMONS + 1)
        table.add("idle CPU-s per hour", "%.3f" % cpu, "<= 0.15",
                  "3,600 described checks an hour at %.0f us each: %.2f" % (floor, floor * 3600 / 1e6) if floor else "")
        table.add("one check at %d entries, main thread CPU (us)" % (DAEMONS + 1), "%.0f" % check, "<= 30",
                  "the described calls alone cost %.0f here (check_floor)" % floor if floor else "")
        to_exec, detection, spent, own, span = restarts(board, pid, KILLS)
        table.add("kill -> replacement exec'd, min / median / p90 / max (ms)", "%d / %d / %d / %d" % quantiles(to_exec),
                  "median <= 500, p90 <= 900", "the one-second check")
        table.add("detection line -> exec, median / max (ms)",
                  "%d / %d" % (statistics.median(detection), max(detection)), "<= 10",
                  "the described pidof of the vanished daemon comes first")
        per_restart = per_restart_ms(spent, cpu, span)
        table.add("CPU per restart, with the programs run (ms)", "%.1f" % per_restart, "<= 40",
                  "14 described pidof runs (the vanished one, then every entry) at %.1f ms each" % pidof)
        board.exec("sh", "-c", "for i in $(seq %d); do sleep 1000000 >/dev/null 2>&1 & done" % BYSTANDERS,
                   check=True)
        cpu_busy, _, _ = idle(board, pid, IDLE_S)
        table.add("idle CPU-s per hour, %d bystander processes" % BYSTANDERS, "%.3f" % cpu_busy, "<= 0.15")
        assert board.stop() == 0
        return simulator, (cpu, per_restart, per_restart_ms(own, cpu, span))
    finally:
        board.close()


def without_snapshot(table, with_snapshot):
    """The idle window and the kills again with CUSTODO_STATUS=0, beside the figures with the
    status snapshot."""
    board = prepared_board(DAEMONS)
    try:
        pid = run(board, {"CUSTODO_STATUS": "0"})
        cpu, _, _ = idle(board, pid, IDLE_S)
        _, _, spent, own, span = restarts(board, pid, KILLS)
        table.add("idle CPU-s per hour, status snapshot on / off", "%.3f / %.3f" % (with_snapshot[0], cpu),
                  "the same", "an idle supervisor writes no snapshot")
        table.add("CPU per restart, snapshot on / off: with the programs run / threads alone (ms)",
                  "%.1f / %.1f; %.2f / %.2f" % (with_snapshot[1], per_restart_ms(spent, cpu, span),
                                               with_snapshot[2], per_restart_ms(own, cpu, span)),
                  "", "3 snapshot writes per restart (vanished, started, its id)")
        assert board.stop() == 0
    finally:
        board.close()


def fast_restart(table):
    board = prepared_board(DAEMONS)
    try:
        pid = run(board, {"CUSTODO_FAST_RESTART": "1"})
        to_exec, detection, _, _, _ = restarts(board, pid, KILLS)
        table.add("CUSTODO_FAST_RESTART=1: kill -> exec'd, min / median / p90 / max (ms)",
                  "%d / %d / %d / %d" % quantiles(to_exec), "median <= 25",
                  "of which detection -> exec median %d" % statistics.median(detection))
        assert board.stop() == 0
    finally:
        board.close()


def readiness(table):
    """Start-up of the sample list with a wait after start on every entry, without the policy
    and with notify = yes for every daemon, each sending READY=1 soon after its start."""
    figures = []
    for ready in (False, True):
        board = Board()
        board.init()
        try:
            with open(board.path("opt/belvane/watchdog/ProcessList.conf"), "w") as f:
                f.write("".join("%s,%s &,%d,05,%02d\n" % (n, n, n == "CoreCtl", WAIT_S) for n in SAMPLE))
            if ready:
                with_policy(board, "".join("[%s]\nnotify = yes\n" % n for n in SAMPLE),
                            {n: [("ready", READY_S)] for n in SAMPLE})
            run(board)
            start = board.wait_record("init", "start supervisor pid").stamp
            phase6 = next(s for s, m in logged(board) if m == PHASE_6)
            figures.append(phase6 - start - REQUIRED_SLEEPS_MS)
            assert board.stop() == 0
        finally:
            board.close()
    table.add("start-up of the sample list, waits of %d s, READY=1 after %.1f s (ms)" % (WAIT_S, READY_S),
              "%d" % figures[1], "<= %d" % (len(SAMPLE) * READY_S * 1000 + 250),
              "without the policy %d: the described waits, %d s" % (figures[0], len(SAMPLE) * WAIT_S))


def heartbeats(table, quiet):
    """Idle CPU while daemons send WATCHDOG=1 every second, against the same board without."""
    board = prepared_board(HEARTBEATS)
    try:
        names = stub_names(HEARTBEATS)
        with_policy(board, "".join("[%s]\nheartbeat = 5\n" % n for n in names),
                    {n: [("watchdog", 1)] for n in names})
        pid = run(board)
        cpu, _, check = idle(board, pid, IDLE_S)
        assert not [m for s, m in logged(board) if m.startswith("heartbeat:")]
        table.add("idle CPU-s per hour, %d daemons sending WATCHDOG=1 every second / none" % HEARTBEATS,
                  "%.3f / %.3f" % (cpu, quiet), "+ <= 0.4",
                  "36,000 messages an hour, each a wake of the receiving thread; one check %.0f us" % check)
        assert board.stop() == 0
    finally:
        board.close()


def quiet_board():
    """Idle CPU of the board that heartbeats() uses, without the policy."""
    board = prepared_board(HEARTBEATS)
    try:
        pid = run(board)
        cpu, _, _ = idle(board, pid, IDLE_S)
        assert board.stop() == 0
        return cpu
    finally:
        board.close()


def big_list(table):
    board = prepared_board(BIG_LIST - 1)
    try:
        pid = run(board)
        _, _, check = idle(board, pid, 20)
        floor = floor_us(BIG_LIST)
        table.add("one check at %d entries, main thread CPU (us)" % BIG_LIST, "%.0f" % check, "<= 1000",
                  "the described calls alone cost %.0f here" % floor if floor else "")
        board.stop(signal.SIGQUIT)
    finally:
        board.close()


def main():
    table = Table()
    simulator, with_snapshot = described_rhythm(table)
    without_snapshot(table, with_snapshot)
    fast_restart(table)
    readiness(table)
    heartbeats(table, quiet_board())
    big_list(table)
    x86 = stripped_kib(program("custodo"), "strip")
    arm = stripped_kib(AARCH64, "aarch64-linux-gnu-strip")
    table.add("stripped binary, x86-64 / aarch64 (KiB)",
              "%.0f / %s" % (x86, "%.0f" % arm if arm else "n/a"), "", "" if arm else "aarch64: make cross first")
    table.add("the simulator (run, relay, init), idle CPU-s per hour", "%.2f" % simulator, "", "not counted above")
    table.print()


if __name__ == "__main__":
    main()
