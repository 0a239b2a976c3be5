"""Programs that run beside a test: what they say, how they end, and that nothing remains."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
import threading
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from os import PathLike
from typing import IO

Word = str | PathLike[str]

DEFAULT_TIMEOUT = 30.0
_SHOWN = 2000  # characters of an output in a message


class SimulationError(Exception):
    """Something did not work; ``status`` is the exit status of the program that said so."""

    def __init__(self, message: str, status: int | None = None) -> None:
        super().__init__(message)
        self.message = message
        self.status = status


class TimedOut(SimulationError):
    """What was waited for did not come in time."""


@dataclass(frozen=True)
class Finished:
    """How a program ended: its exit status, or 128 + n for signal n, and all that it wrote."""

    status: int
    output: str
    errors: str


class Program:
    """A program that runs until it ends by itself, or ``end`` or the with-statement ends it.

    Its group of processes is its own: what it started ends with it, and Ctrl-C reaches the test
    alone. All that it writes is kept.

    words: the program and its arguments.
    env: its whole environment (this process's).
    keep_input: its standard input stays open for ``say`` and ``close_input``; else it is empty.
    timeout: seconds for each wait that names no other.
    """

    ENDS_WITHIN = 2.0  # seconds, once it was asked to

    def __init__(self, words: Sequence[Word], *, env: Mapping[str, str] | None = None,
                 keep_input: bool = False, timeout: float = DEFAULT_TIMEOUT) -> None:
        self._words = [os.fspath(word) for word in words]
        self._timeout = timeout
        try:
            self._process = subprocess.Popen(
                self._words, env=env, start_new_session=True,
                stdin=subprocess.PIPE if keep_input else subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        except OSError as error:
            raise SimulationError(f"{self._words[0]}: {error.strerror}") from error
        self._changed = threading.Condition()  # guards the fields below
        self._output, self._errors = bytearray(), bytearray()
        self._open = {"output", "errors"}
        self._taken = 0  # bytes of the output that read_until has gone past
        self._status: int | None = None
        self._reaped = False
        assert self._process.stdout is not None and self._process.stderr is not None
        for act, *arguments in ((self._collect, "output", self._process.stdout, self._output),
                                (self._collect, "errors", self._process.stderr, self._errors),
                                (self._await_end,)):
            threading.Thread(target=act, args=arguments, daemon=True).start()

    @property
    def process(self) -> int:
        """The process id, which is nobody else's before ``end``."""
        return self._process.pid

    def read_until(self, text: str = "", timeout: float | None = None) -> str:
        """Returns the next line of the output that holds the text; those before it are skipped.

        Raises SimulationError when the output has ended without one, TimedOut when none comes.
        """
        seconds = self._timeout if timeout is None else timeout
        deadline = time.monotonic() + seconds
        with self._changed:
            while (line := self._take_line(text)) is None:
                if "output" not in self._open:
                    raise SimulationError(self._tell(f"ended without saying {text!r}"))
                if not self._changed.wait(max(0.0, deadline - time.monotonic())):
                    raise TimedOut(self._tell(f"has not said {text!r} within {seconds:g} seconds"))
        return line

    def say(self, line: str) -> None:
        """Writes a line to its standard input."""
        if self._process.stdin is None or self._process.stdin.closed:
            raise SimulationError(f"the input of {self._words[0]} is not open")
        try:
            self._process.stdin.write(f"{line}\n".encode())
            self._process.stdin.flush()
        except BrokenPipeError as error:
            raise SimulationError(self._tell("reads no more")) from error

    def close_input(self) -> None:
        """Its standard input ends."""
        if self._process.stdin is not None:
            with contextlib.suppress(BrokenPipeError):
                self._process.stdin.close()

    def signal(self, number: int) -> None:
        """Sends it a signal, unless it has ended."""
        if not self._reaped:  # until then the process id is its own
            os.kill(self.process, number)

    def wait(self, timeout: float | None = None) -> Finished:
        """Waits until it has ended, and whoever else writes to its output or errors, too."""
        seconds = self._timeout if timeout is None else timeout
        with self._changed:
            if not self._changed.wait_for(lambda: self._status is not None and not self._open,
                                          seconds):
                what = ("has not ended" if self._status is None
                        else "has ended, but not what it started and what holds its output,")
                raise TimedOut(self._tell(f"{what} within {seconds:g} seconds"))
            assert self._status is not None
            return Finished(self._status, self._output.decode(errors="replace"),
                            self._errors.decode(errors="replace"))

    def end(self) -> None:
        """Asks it to end (SIGTERM), kills it when it does not, and what is left of its group."""
        if self._reaped:
            return
        self.close_input()
        self.signal(signal.SIGTERM)
        with self._changed:
            self._changed.wait_for(lambda: self._status is not None, self.ENDS_WITHIN)
        # Before it is reaped: as yet nobody else can have the group's number.
        with contextlib.suppress(ProcessLookupError, PermissionError):
            os.killpg(self.process, signal.SIGKILL)
        with self._changed:  # whoever reaped it first would take the status from _await_end
            self._changed.wait_for(lambda: self._status is not None)
        self._process.wait()
        self._reaped = True

    def __enter__(self) -> Program:
        return self

    def __exit__(self, *_: object) -> None:
        self.end()

    def _take_line(self, text: str) -> str | None:
        while (end := self._output.find(b"\n", self._taken)) >= 0:
            line = self._output[self._taken:end].decode(errors="replace")
            self._taken = end + 1
            if text in line:
                return line
        return None

    def _tell(self, what: str) -> str:
        said = [f"\n{name}:\n{bytes(text[-_SHOWN:]).decode(errors='replace')}"
                for name, text in (("output", self._output), ("errors", self._errors)) if text]
        return f"{' '.join(self._words)} {what}{''.join(said)}"

    def _collect(self, name: str, stream: IO[bytes], text: bytearray) -> None:
        with stream:
            while chunk := os.read(stream.fileno(), 65536):
                with self._changed:
                    text += chunk
                    self._changed.notify_all()
        with self._changed:
            self._open.remove(name)
            self._changed.notify_all()

    def _await_end(self) -> None:
        result = os.waitid(os.P_PID, self.process, os.WEXITED | os.WNOWAIT)
        assert result is not None
        signalled = result.si_code != os.CLD_EXITED
        with self._changed:
            self._status = result.si_status + (128 if signalled else 0)
            self._changed.notify_all()


def run(words: Sequence[Word], *, env: Mapping[str, str] | None = None,
        timeout: float = DEFAULT_TIMEOUT) -> Finished:
    """Runs a program to its end."""
    with Program(words, env=env, timeout=timeout) as program:
        return program.wait()
