"""What surrounds the command: its exit status, signals, namespaces, other users, what remains."""
import ctypes
import os
import shutil
import signal
import struct
import subprocess
import sys

import pytest

import client
from marvane_sim import Finished, Program, run
from places import SIM

READY = "echo ready; exec sleep 60"
SHOW_NAMESPACE = "readlink /proc/self/ns/ipc"


def simulated(script, *words):
    """marvane-sim with a board, in front of a shell; in the script $SIM is marvane-sim."""
    return ["env", f"SIM={SIM}", SIM, *(words or ["--board", "k44"]), "--", "sh", "-c", script]


def in_folder(folder):
    """The environment of a simulation whose testbed lies where nobody else has one."""
    return os.environ | {"TMPDIR": str(folder)}


def test_the_exit_status_is_the_commands_or_says_what_failed():
    k44 = ["--board", "k44"]
    for words, status, complaint in [
        (simulated("exit 7"), 7, ""),
        (simulated("kill -9 $$"), 137, ""),
        ([SIM, *k44, "--", "no-such-command"], 127, "No such file"),
        ([SIM, *k44, "--", "/etc/passwd"], 126, "Permission denied"),
        ([SIM, *k44], 125, "what to do is missing"),
        ([SIM, "--", "true"], 125, "--board is required"),
        ([SIM, *k44, "--fast", "true"], 125, "no option --fast"),
        ([SIM, "--board", "k41", "true"], 125, "models are k40, k44 and k50"),
        ([SIM, "--board", "k44@48", "true"], 125, "the speed is 12 or 480"),
        ([SIM, "--board", "16=k44", "true"], 125, "device numbers are 0 to 15"),
        ([SIM, "--board", "1=k44", "--board", "1=k40", "true"], 125, "another board"),
        ([SIM, "--board", "k44:id=8", "true"], 125, "identities are 0 to 7"),
        ([SIM, "--board", "k44:door=1", "true"], 125, "there is no setting door"),
        ([SIM, "--board", "k44:serial1=loop:eeprom=24LC64:blank:id=3", "true"], 0, ""),
        ([SIM, *k44, "--serial", "0=modem", "true"], 125, "none, loop"),
        ([SIM, "--board", "k44:eeprom=24LC65", "true"], 125, "the parts are 24LC01"),
        ([SIM, *k44, "--seed", "0", "true"], 125, "not in range"),
        ([SIM, *k44, "test", "-d", "/tmp"], 0, ""),
        (simulated("$SIM join -- no-such-command"), 127, "No such file"),
        ([SIM, "join", "--pid", "1", "true"], 125, "no simulation runs"),
    ]:
        finished = run(words)
        assert finished.status == status, words
        assert complaint in finished.errors, words
        assert bool(finished.errors) == bool(complaint), finished.errors


def test_nothing_remains_whatever_ends_it(folder):
    for script, number, status in [
        ("echo ready", None, 0),
        ("$SIM ctl 0 unplug; echo ready", None, 0),
        (READY, signal.SIGTERM, 128 + signal.SIGTERM),
        (READY, signal.SIGHUP, 128 + signal.SIGHUP),
        ("trap 'exit 3' TERM; echo ready; while :; do sleep 0.1; done", signal.SIGTERM, 3),
        # Answers are still due, to a client that waits and to one behind it.
        (f"c() {{ {sys.executable} -IS {client.__file__} k44 0 >/dev/null 2>&1; }}\n"
         "$SIM ctl 0 fail 1 delay 60000; echo 75/1 | c &\n"
         "until $SIM ctl 0 log | grep -q 75; do :; done; echo 82/1 | c & sleep 0.2; echo ready",
         None, 0),
    ]:
        with Program(simulated(script), env=in_folder(folder)) as program:
            program.read_until("ready")
            if number is not None:
                program.signal(number)
            assert program.wait().status == status, script
        assert not os.listdir(folder), script


def test_the_next_simulation_removes_what_a_killed_one_left(folder):
    with Program(simulated("echo ready; exec sleep 60 >/dev/null 2>&1"),
                 env=in_folder(folder)) as killed:
        killed.read_until("ready")
        assert os.listdir(folder)
        killed.signal(signal.SIGKILL)  # the command goes on for a while
        assert killed.wait().status == 128 + signal.SIGKILL
        assert run(simulated("exit 0"), env=in_folder(folder)).status == 0
        assert not os.listdir(folder)


def test_the_command_has_an_ipc_namespace_that_join_enters():
    if all(run(["unshare", *how, "--ipc", "true"]).status for how in ([], ["--user"])):
        pytest.skip("the kernel grants no IPC namespace")
    here = os.readlink("/proc/self/ns/ipc")
    with Program(simulated(f"{SHOW_NAMESPACE}; $SIM ctl 0 input 1 on; {READY}")) as program:
        inside = program.read_until()
        assert inside != here
        program.read_until("ready")
        joined = run([SIM, "join", "--pid", str(program.process), "--", "sh", "-c",
                      f"{SHOW_NAMESPACE}; {SIM} ctl list; {SIM} ctl 0 show | grep '\"image\"'"])
        assert joined == Finished(
            0, f'{inside}\n0 k44 480 plugged\n    "image": "0200000000",\n', "")
    assert run(simulated(SHOW_NAMESPACE, "--board", "k44", "--share-ipc")).output == f"{here}\n"


def test_several_simulations_run_beside_and_inside_each_other(marvane_sim):
    other = marvane_sim("3=k50")
    inner = run(simulated(
        f"$SIM --board 2=k50 -- sh -c '$SIM ctl list; echo 75/1 | {sys.executable} -IS "
        f"{client.__file__} k44 2'; $SIM ctl list; $SIM ctl --pid {other.process} list",
        "--board", "1=k40"))
    assert inner == Finished(
        0, "2 k50 480 plugged\nopen\n0 0000000000\n1 k40 480 plugged\n3 k50 480 plugged\n", "")


def test_any_user_needs_no_privileges_and_finds_the_only_simulation(folder):
    # Root takes another user, that has no account, and copies where anybody may execute them.
    user, become, sim, steps = os.geteuid(), [], SIM, client.__file__
    if user == 0:
        user = 20000 + os.getpid() % 40000
        become = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups"]
        sim, steps = (shutil.copy(file, folder) for file in (SIM, client.__file__))

    def as_user(*words):
        return run([*become, *words], env=in_folder(folder))

    def simulation(script):
        return Program([*become, sim, "--board", "k44", "--", "sh", "-c", script],
                       env=in_folder(folder))

    none = as_user(sim, "ctl", "list")
    assert (none.status, none.output) == (1, "")
    assert none.errors.endswith("marvane-sim: no simulation is running\n")
    with simulation(f"{SHOW_NAMESPACE}; exec sleep 60") as one:
        inside = one.read_until()
        assert as_user(sim, "ctl", "list").output == "0 k44 480 plugged\n"
        joined = as_user(sim, "join", "--", "sh", "-c", f"id -u; {SHOW_NAMESPACE}; "
                         f"echo 75/1 | {sys.executable} -IS {steps} k44 0")
        assert joined.output == f"{user}\n{inside}\nopen\n0 0000000000\n"
        with simulation(READY) as other:
            other.read_until("ready")
            several = as_user(sim, "ctl", "list")
    assert several.status == 1 and "choose one with --pid" in several.errors


def refuse_namespaces():
    """From now on this process and those that it starts get EPERM for unshare (seccomp)."""
    call = {"x86_64": 272, "aarch64": 97}[os.uname().machine]
    allow, refuse = 0x7FFF0000, 0x00050000 | 1
    filters = b"".join(struct.pack("<HBBI", *line) for line in (
        (0x20, 0, 0, 0), (0x15, 0, 1, call), (0x06, 0, 0, refuse), (0x06, 0, 0, allow)))
    code = ctypes.create_string_buffer(filters)
    program = struct.pack("<HxxxxxxQ", 4, ctypes.addressof(code))
    prctl = ctypes.CDLL(None).prctl
    assert prctl(38, 1, 0, 0, 0) == 0 and prctl(22, 2, program) == 0


def test_it_stops_beside_live_boards_where_the_kernel_refuses():
    libc = ctypes.CDLL(None)  # whose calls are led away from the machine's key files
    path = b"/tmp/Sem_K40Mutex"

    def attempt(*options):
        words = [SIM, "--board", "k44", *options, "--", "echo", "ran"]
        return subprocess.run(words, preexec_fn=refuse_namespaces, capture_output=True, text=True,
                              check=False)

    assert attempt().stdout == "ran\n"
    os.close(libc.open(path, os.O_CREAT | os.O_RDWR, 0o666))
    live = libc.semget(libc.ftok(path, 1), 1, 0o3666)  # none that is there already
    assert live != -1
    try:
        refused, shared = attempt(), attempt("--share-ipc")
    finally:
        libc.semctl(live, 0, 0)
    assert (refused.returncode, refused.stdout) == (125, "")
    assert "programs on live boards use this machine's semaphores" in refused.stderr
    assert (shared.returncode, shared.stdout) == (0, "ran\n")
