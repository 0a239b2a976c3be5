"""What a state folder keeps between two simulations, whatever ends the first of them."""
import os
import signal

import pytest

from client import Client
from marvane_sim import Simulation, SimulationError
from places import until


@pytest.fixture
def begin(folder):
    """Makes simulations that keep their boards in the folder."""
    return lambda board="k44", inside="state": Simulation(
        board, options=["--state", str(folder / inside)])


def change(sim):
    """Tells the EEPROM's part; writes EEPROM, memory, serial number and clock; opens a switch."""
    assert Client(sim)("3/2/40027fff51 4/2/021000aabb 117/6/0300010000c0ffee "
                       "65/5/1122334455667788 20/5/00000000") == "0 -, 0 -, 0 -, 0 -, 0 -"
    sim[0].ctl("switch", 3, "open")
    sim[0].ctl("battery", "fail")


def refusal(simulation):
    with pytest.raises(SimulationError) as refused, simulation:
        pass
    assert refused.value.status == 125
    return refused.value.message


def test_boards_survive_the_end_and_a_kill_of_their_simulation(begin, folder):
    with begin():
        pass
    assert not os.listdir(folder / "state"), "nothing has changed"
    with begin() as sim:
        change(sim)
    with begin() as sim:
        assert sim[0].ctl("eeprom", "read", 16, 2) == "aabb\n"
        assert Client(sim)("116/6/0300010000") == "0 c0ffee"
        shows = sim[0].show()
        assert shows["eeprom"]["told"] == {"pageSize": 64, "addressBytes": 2,
                                           "highestAddress": 32767, "busAddress": 81}
        assert (shows["clock"]["batteryFailed"], shows["clock"]["openSwitches"]) == (True, [3])
        assert shows["clock"]["value"] < 1000
        assert shows["identity"]["picSerial"] == "1122334455667788"

    file = folder / "state" / "board-0"
    with begin() as killed:
        before = file.stat().st_ino
        Client(killed)("4/2/0220001234")
        until(lambda: file.stat().st_ino != before, "the saving that comes every second")
        os.kill(killed.process, signal.SIGKILL)
    with begin() as sim:
        assert sim[0].ctl("eeprom", "read", 32, 2) == "1234\n"
        assert sim[0].ctl("eeprom", "read", 16, 2) == "aabb\n"


def test_what_is_no_boards_state_is_refused_and_left_alone(begin, folder):
    with begin() as sim:
        change(sim)
    file = folder / "state" / "board-0"
    good = file.read_bytes()
    flipped = bytearray(good)
    flipped[len(good) // 2] ^= 1
    for content, board, complaint in [
        (good[:-1], "k44", "is damaged"),
        (b"", "k44", "is damaged"),
        (flipped, "k44", "is damaged"),
        (b"x" * (5 << 20), "k44", "is damaged"),
        (good, "k50", "is of another board model or EEPROM part"),
        (good, "k44:eeprom=24LC64", "is of another board model or EEPROM part"),
    ]:
        file.write_bytes(content)
        assert f"{file} {complaint}" in refusal(begin(board))
        assert file.read_bytes() == content
    file.unlink()
    os.mkfifo(file)
    refusal(begin())


def test_a_folder_serves_one_simulation_at_a_time(begin):
    with begin() as sim:
        assert "is in use by another simulation" in refusal(begin())
        sim.ctl("list")
    with begin():
        pass
    assert "No such file or directory" in refusal(begin(inside="no/state"))
