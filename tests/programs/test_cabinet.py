"""The example machine against the simulated cabinet: every coin is where it belongs, whatever
happens. What the machine says is held against what the board shows."""
import re
import time

import pytest

from places import EXAMPLES, until

COINS, START, HOPPER = 3, 5, 8  # inputs
START_LAMP, REEL_LAMPS = 12, {20: "reel 1", 21: "reel 2", 22: "reel 3"}


class Cabinet:
    def __init__(self, marvane_sim, board, seed):
        self.sim = marvane_sim(board, options=["--seed", str(seed)])
        self.board = self.sim[0]

    def begin(self, *words):
        self.game = self.sim.start([EXAMPLES / "cabinet", *words])
        until(lambda: self.board.show()["pulsedInputs"].get(str(COINS), {}).get("checking"),
              "the counting of coins")
        return self.game.read_until("from last time")

    def press(self):
        self.board.ctl("input", START, "on")
        time.sleep(0.03)
        self.board.ctl("input", START, "off")

    def end(self, status):
        finished = self.game.wait()
        assert finished.status == status, finished
        return finished


def test_of_200_coins_none_is_missed_or_counted_twice(marvane_sim):
    cabinet = Cabinet(marvane_sim, "k40@12", seed=2)
    cabinet.board.ctl("hopper", HOPPER, "rate", 25)
    cabinet.begin("2", "5")
    cabinet.board.ctl("coin", COINS, 200, 50)
    cabinet.game.read_until("10 coins in")
    cabinet.press()
    cabinet.game.read_until("round 1 shows")
    cabinet.game.read_until("200 coins in")
    cabinet.press()
    assert "200 coins in, 2 rounds, credit 198, 0 coins" in cabinet.game.read_until("the end")
    cabinet.end(0)


def test_what_an_empty_hopper_does_not_pay_is_owed_and_paid_next_time(marvane_sim):
    cabinet = Cabinet(marvane_sim, "k44", seed=1)
    cabinet.board.ctl("hopper", HOPPER, "coins", 3)
    cabinet.begin("20", "3")
    cabinet.board.ctl("coin", COINS, 2, 100)
    cabinet.game.read_until("2 coins in")
    cabinet.press()
    win = int(cabinet.game.read_until("round 1 shows").partition("win ")[2])
    assert win > 3
    assert cabinet.game.read_until("hopper paid") == f"hopper paid 3, {win - 3} coins owed"
    cabinet.game.read_until(f"owes the player {win - 3} coins")
    until(lambda: cabinet.board.show()["outputs"]["onPeriod"] == [START_LAMP, 16, 37],
          "the lamps of start, win and attendant")
    assert cabinet.board.show()["hoppers"][str(HOPPER)]["coins"] == 0
    cabinet.end(2)
    cabinet.board.ctl("hopper", HOPPER, "coins", 500)
    assert cabinet.begin("0", "1") == f"from last time: credit 1, {win - 3} coins owed"
    assert cabinet.game.read_until("hopper paid") == f"hopper paid {win - 3}, 0 coins owed"
    cabinet.end(0)


def test_unplugged_in_mid_spin_it_says_how_everything_stands(marvane_sim):
    cabinet = Cabinet(marvane_sim, "k44", seed=2)
    cabinet.begin("5", "5")
    cabinet.board.ctl("coin", COINS, 2, 100)
    cabinet.game.read_until("2 coins in")
    cabinet.press()
    cabinet.game.read_until("round 1 spins")
    time.sleep(0.3)
    cabinet.board.ctl("unplug")
    errors = cabinet.end(1).errors
    unplugged = cabinet.board.show()["outputs"]
    assert errors.startswith("The machine stops: ")
    assert "close it, and open it once it is back.\nlamps: start on, " in errors
    assert "all others off\ncredit 1, stake 1, 0 coins owed\n" in errors
    assert len(re.findall("reel [123] (?:on|blinking)", errors)) == len(REEL_LAMPS)
    assert unplugged["on"] == [START_LAMP] + [
        lamp for lamp, name in REEL_LAMPS.items() if f"{name} on" in errors]
    assert unplugged["onPeriod"] == [
        lamp for lamp, name in REEL_LAMPS.items() if f"{name} blinking" in errors]
    assert unplugged["offPeriod"] == []

    cabinet.board.ctl("plug")
    assert cabinet.begin("0", "0") == "from last time: credit 1, 0 coins owed"
    assert cabinet.game.read_until("given back") == (
        "the last round was cut off: its stake of 1 is given back")
    cabinet.end(0)
    after = cabinet.board.show()["outputs"]
    assert (after["on"], after["onPeriod"], after["offPeriod"]) == ([], [], []), (
        "a new start knows every lamp")
