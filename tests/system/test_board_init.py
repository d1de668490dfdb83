"""The board's init: restarts, a held restart, the respawn limit, reboot and power-off asked
for through the stub tools, and daemons stuck in the kernel."""

from board import wait_for

# A stand-in supervisor that marks each start in dev/shm and in the boot reason, then asks
# for a reboot on the first boot (a moment later) and a power-off on the second.
REBOOT_THEN_POWER_OFF = r"""
cd $CUSTODO_BOARD_ROOT
ls dev/shm | tr '\n' ' '; echo "boot reason $(cat proc/belvane/boot_reason)"
touch dev/shm/started; echo 77 > proc/belvane/boot_reason
if grep -q 'boot 2' sim/init.log; then shutdown -h now; else sleep 0.2; reboot; fi
"""


def test_reboot_then_power_off_through_the_stub_tools(board):
    board.run(custodo="/bin/sh", args=["-c", REBOOT_THEN_POWER_OFF], wait=False)
    assert board.wait_exit() == 0
    assert board.texts("init") == [
        "boot 1", "start supervisor pid 2", "reboot requested", "supervisor pid 2 exit status 0",
        "reboot",
        "boot 2", "start supervisor pid 2", "power-off requested", "supervisor pid 2 exit status 0",
        "power-off", "end of run: power-off"]
    # Each boot starts with the counter at 0, an empty dev/shm and the kernel's boot reason.
    records = board.records("init")
    assert records[0].stamp < 100 and records[4].stamp >= 200 and records[5].stamp < 100
    assert board.console() == ["boot reason 0"] * 2
    assert board.texts("tools") == ["reboot", "shutdown -h now"]


def test_restart_hold_release_and_respawn_limit(board):
    board.tool("hold")
    board.run(custodo="/bin/false")
    board.wait_record("init", "restart held")
    assert board.texts("init").count("start supervisor pid 2") == 1
    board.tool("release")
    board.wait_record("init", "respawn limit")
    texts = board.texts("init")
    assert texts[texts.index("restart held") + 1:texts.index("restart held") + 4] == [
        "release", "restart released", "restart"]
    assert sum(t.startswith("start supervisor") for t in texts) == 11
    assert texts[-1] == "respawn limit: more than 10 exits within 5 s, not restarting"


def test_stuck_daemon_outlives_sigkill_until_released(board):
    board.tool("daemon", "CoreCtl", "stuck")
    board.run(custodo="/bin/sh", args=["-c", "CoreCtl & CoreCtl & sleep 3600"])
    wait_for(lambda: "stuck reads waiting 2" in board.tool("show").stdout,
             what="two stuck reads")
    board.kill("CoreCtl", "KILL")
    states = board.exec("sh", "-c", "grep -h State $(grep -l CoreCtl /proc/[0-9]*/comm | "
                                    "sed 's/comm/status/')").stdout.split("\n")
    assert [s.split()[1] for s in states if s] == ["D", "D"]
    assert board.tool("unstick").stdout.strip() == "2 released"
    wait_for(lambda: board.exec("pidof", "CoreCtl").returncode == 1, what="the daemons to die")
    # A stop must end stuck daemons too.
    board.exec("sh", "-c", "CoreCtl >/dev/null 2>&1 &")
    wait_for(lambda: "stuck reads waiting 1" in board.tool("show").stdout, what="a new stuck read")
    assert board.stop() == 0
