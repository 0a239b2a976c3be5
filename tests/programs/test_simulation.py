"""The package marvane_sim: what its page shows, what it refuses, and that nothing of it remains."""
import os
import re
import signal
import sys

import pytest

from marvane_sim import Program, Simulation, SimulationError, TimedOut, run
from places import EXAMPLES, SIM, SOURCE, until


def test_the_page_shows_a_test_that_passes(folder):
    page = (SOURCE / "python" / "README.md").read_text()
    (shown,) = re.findall(r"```python\n(.*?)```", page, re.S)
    (folder / "test_lamp.py").write_text(shown)
    path = f"{EXAMPLES}:{os.path.dirname(SIM)}:{os.environ['PATH']}"
    env = {name: value for name, value in os.environ.items() if name != "MARVANE_SIM"}
    finished = run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-p",
                    "marvane_sim.pytest_plugin", folder], env=env | {"PATH": path})
    assert finished.status == 0 and "1 passed" in finished.output, finished.output


def test_what_cannot_be_done_is_said(marvane_sim):
    with pytest.raises(SimulationError, match="the models are k40") as refused:
        marvane_sim("k41")
    assert refused.value.status == 125
    with pytest.raises(SimulationError, match="use it in a with-statement"):
        Simulation("k44").ctl("list")
    with pytest.raises(SimulationError, match="/no/program: No such file"):
        marvane_sim("k44", program="/no/program")
    with Simulation("k44", timeout=0.5) as sim:
        with pytest.raises(TimedOut, match="has not ended within 0.5 seconds\noutput:\nhere"):
            sim.run(["sh", "-c", "echo here; sleep 60"])
        with pytest.raises(TimedOut, match="has not said 'there' within 0.1 seconds"):
            sim.start(["sleep", "60"]).read_until("there", timeout=0.1)
        with pytest.raises(TimedOut, match="what it started and what holds its output"):
            sim.run(["sh", "-c", "sleep 60 &"], timeout=0.2)
        with pytest.raises(SimulationError, match="ended without saying 'there'\noutput:\nhere"):
            sim.start(["echo", "here"]).read_until("there")
        assert sim.run(["no-such-program"]).status == 127
        with pytest.raises(SimulationError, match="begins once"):
            sim.__enter__()
    with pytest.raises(SimulationError, match="no simulation runs") as gone:
        sim.ctl("list")
    assert gone.value.status == 1


STUBBORN = "trap '' TERM; sleep 61 & echo $$ $!; while :; do sleep 1; done"
SCRIPT = f"""
import os, signal, sys
from marvane_sim import Simulation
with Simulation("k44") as sim:
    stubborn, other = sim.start(["sh", "-c", {STUBBORN!r}]), sim.start(["sleep", "61"])
    sim.run(["true"])
    print(sim.process, *stubborn.read_until().split(), other.process, flush=True)
    {{}}
"""


@pytest.mark.parametrize("end, status", [
    ("os.kill(os.getpid(), signal.SIGKILL)", 128 + signal.SIGKILL),
    ("os.kill(os.getpid(), signal.SIGTERM)", 128 + signal.SIGTERM),
    ("sys.exit('an error')", 1),
    ("os.kill(sim.process, signal.SIGKILL)", 0)])
def test_nothing_remains_whatever_ends_the_test(folder, end, status):
    def runs(process):
        try:
            with open(f"/proc/{process}/stat", encoding="ascii") as file:
                return file.read().rpartition(")")[2].split()[0] != "Z"
        except FileNotFoundError:
            return False

    with Program([sys.executable, "-c", SCRIPT.format(end)],
                 env=os.environ | {"TMPDIR": str(folder)}) as test:
        processes = test.read_until().split()
        assert len(processes) == 4
        assert test.wait(60).status == status
        until(lambda: not any(map(runs, processes)), "the end of all processes")
    if "sim.process" not in end:
        until(lambda: not os.listdir(folder), "the removal of the folder")
