"""What the tests of programs share."""
import ctypes
import os
import pathlib
import tempfile

import pytest

pytest_plugins = ["marvane_sim.pytest_plugin"]

IPC_RMID = 0


@pytest.fixture
def folder():
    """For one test and for any user, removed in the end; its path is short, as sockets need it."""
    with tempfile.TemporaryDirectory(prefix="marvane-test.") as name:
        os.chmod(name, 0o1777)
        yield pathlib.Path(name)


@pytest.fixture(autouse=True)
def shared_state_ends_with_the_test():
    """Programs that were killed leave it behind: where simulations have no IPC namespace of their
    own, the next test would find it. The keys are those that its led key files have had."""
    yield
    libc = ctypes.CDLL(None)
    for note in pathlib.Path(os.environ.get("MARVANE_KEY_FILES", "/none")).glob("key-*"):
        key = int(os.readlink(note))
        libc.semctl(libc.semget(key, 0, 0), 0, IPC_RMID)
        libc.shmctl(libc.shmget(key, 0, 0), IPC_RMID, None)
