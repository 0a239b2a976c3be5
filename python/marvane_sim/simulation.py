"""A simulation, marvane-sim in front of a command that waits, and its boards."""

from __future__ import annotations

import contextlib
import json
import os
import re
import shutil
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from os import PathLike
from typing import Any

from marvane_sim.program import (DEFAULT_TIMEOUT, Finished, Program, SimulationError, TimedOut,
                                 Word, run)

_READY = "ready"

# The simulation's command. It is told of the groups of processes that begin and end, and once
# nobody has the other end of its input, however this process ended, it kills those that are left.
_KEEPER = f"""
    echo {_READY}
    groups=' '
    while read -r what group; do
        case $what in
            begins) groups="$groups$group " ;;
            ended) groups="${{groups%% $group *}} ${{groups#* $group }}" ;;
        esac
    done
    for group in $groups; do kill -s KILL -- "-$group"; done
"""


class Simulation:
    """Simulated boards from the begin of a with-statement to its end.

        with Simulation("k44", "k40@12") as sim:
            sim.ctl(0, "input", 5, "on")
            assert sim.run(["./my-program"]).status == 0
            assert sim[0].show()["outputs"]["on"] == [12]

    boards: as for ``marvane-sim --board``.
    options: further options of marvane-sim, such as ``["--seed", "2"]``.
    program: marvane-sim, where neither the environment's MARVANE_SIM nor PATH leads to it.
    env: the whole environment of all that is started (this process's).
    timeout: seconds for each wait that names no other.

    Whatever ends this process, neither a process nor a folder remains.
    """

    def __init__(self, *boards: str, options: Sequence[str] = (), program: Word | None = None,
                 env: Mapping[str, str] | None = None, timeout: float = DEFAULT_TIMEOUT) -> None:
        self._boards = boards
        self._options = options
        self._program = _find(program)
        self._env = env
        self._timeout = timeout
        self._ends = contextlib.ExitStack()
        self._keeper: Program | None = None
        #: The terminals of the serial lines that are a pty, by numbers of board and port.
        self.terminals: dict[tuple[int, int], str] = {}

    def __enter__(self) -> Simulation:
        if self._keeper is not None:
            raise SimulationError("a simulation begins once; make another one")
        boards = [word for board in self._boards for word in ("--board", board)]
        self._keeper = self._ends.enter_context(
            _Keeper([self._program, *boards, *self._options, "--", "sh", "-c", _KEEPER],
                    env=self._env, keep_input=True, timeout=self._timeout))
        try:
            self._await_ready(self._keeper)
        except BaseException:
            self._ends.close()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self._ends.close()

    def __getitem__(self, number: int) -> Board:
        return Board(self, number)

    @property
    def process(self) -> int:
        """The process id of marvane-sim, for its --pid."""
        return self._running().process

    def ctl(self, *words: object) -> str:
        """Says the words to ``marvane-sim ctl`` and returns what it prints.

        Raises SimulationError, with status 1 when they are refused and 2 when they are wrong.
        """
        finished = run([self._program, "ctl", "--pid", str(self.process), *map(str, words)],
                       env=self._env, timeout=self._timeout)
        if finished.status != 0:
            complaint = re.sub(r"^marvane-sim( ctl)?: ", "", finished.errors.strip())
            raise SimulationError(complaint, finished.status)
        return finished.output

    def start(self, words: Sequence[Word], *, keep_input: bool = False) -> Program:
        """Starts a program in front of the boards; it ends with the simulation, at the latest."""
        keeper = self._running()
        join = [self._program, "join", "--pid", str(keeper.process), "--", *words]
        return self._ends.enter_context(
            _Joined(keeper, join, env=self._env, keep_input=keep_input, timeout=self._timeout))

    def run(self, words: Sequence[Word], *, timeout: float | None = None) -> Finished:
        """Runs a program in front of the boards, to its end."""
        with self.start(words) as program:
            return program.wait(timeout)

    def _running(self) -> Program:
        if self._keeper is None:
            raise SimulationError("the simulation has not begun: use it in a with-statement")
        return self._keeper

    def _await_ready(self, keeper: Program) -> None:
        try:
            while (line := keeper.read_until()) != _READY:
                if terminal := re.fullmatch(r"board (\d+) serial (\d): (.+)", line):
                    board, port, path = terminal.groups()
                    self.terminals[int(board), int(port)] = path
        except TimedOut:
            raise
        except SimulationError:
            finished = keeper.wait()
            raise SimulationError(finished.errors.strip(), finished.status) from None


class _Keeper(Program):
    """marvane-sim, which writes the boards' state and removes its folder in the end."""

    ENDS_WITHIN = 30.0


class _Joined(Program):
    """One that the keeper knows of while it may run."""

    def __init__(self, keeper: Program, words: Sequence[Word], *, env: Mapping[str, str] | None,
                 keep_input: bool, timeout: float) -> None:
        super().__init__(words, env=env, keep_input=keep_input, timeout=timeout)
        self._keeper = keeper
        self._tell_keeper("begins")

    def end(self) -> None:
        runs = not self._reaped
        super().end()
        if runs:
            self._tell_keeper("ended")

    def _tell_keeper(self, what: str) -> None:
        with contextlib.suppress(SimulationError):  # marvane-sim may have been killed
            self._keeper.say(f"{what} {self.process}")


@dataclass(frozen=True)
class Board:
    """One board of a simulation, by its device number."""

    simulation: Simulation
    number: int

    def ctl(self, *words: object) -> str:
        """Says the words about this board: ``sim[0].ctl("input", 5, "on")``."""
        return self.simulation.ctl(self.number, *words)

    def show(self) -> dict[str, Any]:
        """The board's state, as ``marvane-sim ctl BOARD show`` prints it."""
        state: dict[str, Any] = json.loads(self.ctl("show"))
        return state


def _find(program: str | PathLike[str] | None) -> str:
    found = program or os.environ.get("MARVANE_SIM") or shutil.which("marvane-sim")
    if not found:
        raise SimulationError("marvane-sim is not found: name it with program= or the "
                              "environment's MARVANE_SIM, or have its folder in PATH")
    return os.fspath(found)
