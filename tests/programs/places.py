"""Where the tests find things, and how they wait."""
import os
import pathlib
import time

SOURCE = pathlib.Path(__file__).parents[2]
BUILD = pathlib.Path(os.environ["MARVANE_BUILD_DIR"])
EXAMPLES = BUILD / "examples"
SIM = os.environ["MARVANE_SIM"]


def until(holds, what, seconds=10):
    """Waits until a condition that other processes bring about is true."""
    end = time.monotonic() + seconds
    while not holds():
        assert time.monotonic() < end, f"{what} did not come within {seconds} seconds"
        time.sleep(0.02)
