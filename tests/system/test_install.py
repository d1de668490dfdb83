"""The installed supervisor: what an install and the Debian packages put in place, and the init
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
JOBS = ["lib/systemd/system/custodo.service", "usr/share/custodo/custodo.conf",
        "usr/share/custodo/inittab"]
PROGRAMS = [p for p in ("custodo", "custodo-memlog", "custodo-status") if os.path.exists(program(p))]
ROBOT = CONFIGURATION + JOBS + ["sbin/" + p for p in PROGRAMS] + \
    ["usr/share/man/man8/%s.8.gz" % p for p in PROGRAMS] + \
    ["usr/share/doc/custodo/copyright", "usr/share/doc/custodo/changelog.gz",
     "usr/share/lintian/overrides/custodo"]


def files_below(root):
    return sorted(os.path.relpath(os.path.join(d, f), root)
                  for d, _, files in os.walk(root) for f in files)


def job_setting(path, pattern):
    """The one group that matched of a pattern with one alternative per init job."""
    return next(g for g in re.search(pattern, open(path).read(), re.M).groups() if g)


def install(component, root):
    subprocess.run(["cmake", "--install", BUILD, "--prefix", root, "--component", component],
                   check=True, capture_output=True)
    return str(root)


def dpkg(*args):
    return subprocess.run(["dpkg", *map(str, args)], capture_output=True, text=True, check=True).stdout


@pytest.fixture(scope="module")
def prefix(tmp_path_factory):
    return install("robot", tmp_path_factory.mktemp("prefix"))


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """The robot's package and the development one, both from this build for the checks, each
    with the root it unpacks to."""
    out = tmp_path_factory.mktemp("packages")
    subprocess.run(["cpack", "-G", "DEB", "-B", out, "-D", "CPACK_COMPONENTS_ALL=robot;board",
                    "--config", os.path.join(BUILD, "CPackConfig.cmake")], check=True,
                   capture_output=True)
    debs = {deb.name.split("_")[0]: deb for deb in out.glob("*.deb")}
    for name, deb in debs.items():
        dpkg("-x", deb, out / name)
    return {name: (deb, out / name) for name, deb in debs.items()}


def test_install_and_packages_put_the_same_files_in_place(board, prefix, packages, tmp_path):
    assert files_below(prefix) == sorted(ROBOT)
    for path in CONFIGURATION:  # the sample a new board holds
        assert open(os.path.join(prefix, path)).read() == board.read(path), path
    for name, component in [("custodo", "robot"), ("custodo-board", "board")]:
        deb, unpacked = packages[name]
        assert files_below(unpacked) == files_below(install(component, tmp_path / component))
        linted = subprocess.run(["lintian", "--fail-on", "error,warning", deb],
                                capture_output=True, text=True)
        assert linted.returncode == 0, linted.stdout
        assert all(tool in dpkg("-f", deb, "Depends") for tool in ("procps", "sysvinit"))
    deb, unpacked = packages["custodo"]
    assert dpkg("-I", deb, "conffiles").split() == sorted("/" + path for path in CONFIGURATION)
    # In the package the jobs name the robot's own paths.
    assert "ExecStart=/sbin/custodo /opt/belvane/watchdog\n" in \
        (unpacked / "lib/systemd/system/custodo.service").read_text()


def test_an_upgrade_keeps_an_edited_process_list(packages, tmp_path):
    deb, _ = packages["custodo"]
    for d in ("info", "updates"):
        os.makedirs(tmp_path / "var/lib/dpkg" / d)
    (tmp_path / "var/lib/dpkg/status").touch()
    edited = tmp_path / LISTS[0]
    dpkg("--root", tmp_path, "--force-depends", "--install", deb)
    edited.write_text(edited.read_text() + "mydaemon,mydaemon &,0,3,0\n")
    # Installed again (dpkg treats a configuration file the same as on a newer version).
    dpkg("--root", tmp_path, "--force-depends", "--install", deb)
    assert "mydaemon" in edited.read_text()


def test_the_development_package_runs_a_board_from_where_it_installs(board, packages):
    board.command = str(packages["custodo-board"][1] / "usr/bin/custodo-board")
    board.init()
    board.run(env=FAST)
    board.wait_console(PHASE_6)
    assert board.read("bin/stubd", "rb") == \
        (packages["custodo-board"][1] / "usr/libexec/custodo-board/custodo-stubd").read_bytes()


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
