"""The installed supervisor: what an install and the Debian package put in place, and the init
jobs, which start it with its configuration and give its ordered stop the time it needs."""

import os
import re
import subprocess

import pytest

from board import BUILD, program, sanitized_build
from supervisor_log import FAST, PHASE_6, messages, supervisor_exits

pytestmark = pytest.mark.skipif(sanitized_build(), reason="a sanitizer build is not shipped")

LISTS = ["opt/belvane/watchdog/ProcessList.conf", "opt/belvane/watchdog/ProcessListMT.conf"]
CONFIGURATION = LISTS + ["opt/belvane/watchdog/region.conf", "opt/belvane/watchdog/ntpserver.conf",
                         "opt/belvane/firmware/bin/MCU_FIRMWARE_MATCH"]
JOBS = ["lib/systemd/system/custodo.service", "etc/init/custodo.conf", "usr/share/custodo/inittab"]
PROGRAMS = ["sbin/" + p for p in ("custodo", "custodo-memlog", "custodo-status")
            if os.path.exists(program(p))]


def files_below(root):
    return sorted(os.path.relpath(os.path.join(d, f), root)
                  for d, _, files in os.walk(root) for f in files)


def job_setting(path, pattern):
    """The one group that matched of a pattern with one alternative per init job."""
    return next(g for g in re.search(pattern, open(path).read(), re.M).groups() if g)


@pytest.fixture(scope="module")
def prefix(tmp_path_factory):
    root = tmp_path_factory.mktemp("prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", root], check=True, capture_output=True)
    return str(root)


def test_install_and_package_put_the_same_files_in_place(board, prefix, tmp_path):
    assert files_below(prefix) == sorted(CONFIGURATION + JOBS + PROGRAMS)
    for path in CONFIGURATION:  # the sample a new board holds
        assert open(os.path.join(prefix, path)).read() == board.read(path), path

    subprocess.run(["cpack", "-G", "DEB", "-B", tmp_path, "--config",
                    os.path.join(BUILD, "CPackConfig.cmake")], check=True, capture_output=True)
    [package] = [str(p) for p in tmp_path.glob("custodo_*.deb")]
    unpacked = tmp_path / "root"
    subprocess.run(["dpkg", "-x", package, unpacked], check=True)
    assert files_below(unpacked) == files_below(prefix)
    depends = subprocess.run(["dpkg-deb", "-f", package, "Depends"], capture_output=True, text=True,
                             check=True).stdout
    assert all(tool in depends for tool in ("procps", "psmisc", "sysvinit-utils"))
    # In the package the jobs name the robot's own paths.
    assert "ExecStart=/sbin/custodo /opt/belvane/watchdog\n" in \
        (unpacked / "lib/systemd/system/custodo.service").read_text()


def test_init_jobs_start_the_installed_supervisor_and_wait_out_its_stop(board, prefix):
    verified = subprocess.run(["systemd-analyze", "verify", "--man=no",
                               os.path.join(prefix, JOBS[0])], capture_output=True, text=True)
    assert (verified.returncode, verified.stdout + verified.stderr) == (0, "")
    jobs = [os.path.join(prefix, job) for job in JOBS]
    command = "%s/sbin/custodo %s/opt/belvane/watchdog" % (prefix, prefix)
    started = r"ExecStart=(.*)|^exec (.*)|^::respawn:(.*)"
    assert [job_setting(job, started) for job in jobs] == [command] * 3
    # The ordered stop: every daemon's kill time-out in turn, then a second's check.
    longest = max(sum(int(line.split(",")[3]) for line in open(os.path.join(prefix, path))
                      if not line.startswith("#")) + 1 for path in LISTS)
    stop = r"TimeoutStopSec=(\d+)|^kill timeout (\d+)|-lt (\d+) \]"
    assert all(int(job_setting(job, stop)) > longest for job in jobs)

    program_path, conf = command.split()
    board.run(custodo=program_path, args=[conf], env=FAST)
    board.wait_console(PHASE_6)
    assert not [m for m in messages(board) if m.startswith("usage:")]
    # Busybox's shutdown line returns once the supervisor has stopped its daemons and ended.
    board.tool("hold")
    shutdown = job_setting(jobs[2], r"^::shutdown:/bin/sh -c '(.*)'$")
    assert board.exec("sh", "-c", shutdown).returncode == 0
    board.wait_record("init", "exit status")
    assert supervisor_exits(board) == [2]
    stopped = [line.split()[-1] for line in board.console() if " Kill Process: " in line]
    assert stopped == ["quom_client", "netmgrd", "AppBridge", "CoreCtl", "chimer", "tqlogd"]
