"""The other examples: command lines, what they show, and the acceptor's coins across kills."""
import signal
import time

from marvane_sim import run
from places import EXAMPLES

ACCEPTOR = EXAMPLES / "cctalk_acceptor"


def test_help_is_given_and_wrong_arguments_are_refused_before_any_board_is_looked_for():
    for example, arguments, complaint in [
        ("cabinet", ["ten"], "ROUNDS: 'ten' is no whole number from 0 to 1000000000"),
        ("cabinet", ["1", "-2"], "SECONDS: '-2' is no number of seconds from 0 to 1000000000"),
        ("cabinet", ["1", "2", "16"], "DEVICE: '16' is no whole number from 0 to 15"),
        ("cabinet", ["1", "2", "3", "4"], "nothing is to follow here, but there is 4"),
        ("cctalk_acceptor", ["1s"], "SECONDS: '1s' is no number of seconds from 0 to 1000000000"),
        ("running_light", [""], "ROUNDS: '' is no whole number from 0 to 1000000000"),
        ("watch_inputs", ["nan"], "SECONDS: 'nan' is no number of seconds from 0 to 1000000000"),
    ]:
        refused = run([EXAMPLES / example, *arguments])
        assert refused.status == 64, example
        assert refused.errors.startswith(f"{example}: {complaint}; ")
        helped = run([EXAMPLES / example, *arguments, "--help"])
        assert helped.status == 0, example
        assert f"\nUsage: {example} [" in helped.output


def test_inputs_are_watched_on_every_model_until_the_board_is_gone(marvane_sim):
    for board, shown in [("k40@12", "K40 at 12 Mbit/s"), ("k44", "K44 at 480 Mbit/s"),
                         ("k50@12", "K50 at 12 Mbit/s")]:
        sim = marvane_sim(board)
        sim[0].ctl("input", 7, "on")
        watch = sim.start([EXAMPLES / "watch_inputs", "60"])
        assert watch.read_until() == f"board: {shown}"
        assert watch.read_until() == "inputs that are on: 7"
        sim[0].ctl("input", 32, "on")
        assert watch.read_until() == "input 32 is on"
        sim[0].ctl("unplug")
        gone = watch.wait()
        assert gone.status == 1
        assert gone.errors.startswith("The board does not answer any more: ")
        assert run([EXAMPLES / "watch_inputs"]).status == 1, "no board"
        sim[0].ctl("plug")
        watch = sim.start([EXAMPLES / "watch_inputs", "60"])
        watch.read_until("inputs that are on")
        watch.signal(signal.SIGINT)
        assert watch.wait().status == 0, "plugged in again, and interrupted"


def test_the_acceptors_coins_are_taken_once_though_its_program_was_killed(marvane_sim):
    sim = marvane_sim("k44@12", options=["--serial", "0=cctalk"])

    def serial(*words):
        return sim[0].ctl("serial", 0, *words)

    def insert_and_keep(*coins):
        """The board polls, and keeps the answers, which nobody reads. It does so for two seconds
        once a program has gone, which is too short for looking whether they are there."""
        for coin in coins:
            serial("insert", coin)
        serial("speak")
        time.sleep(0.3)

    def run_and_kill(*coins):
        """Result: all that it printed."""
        with sim.start([ACCEPTOR, "60"]) as program:
            program.read_until("insert coins")
            for coin in coins:
                assert serial("insert", coin) == "accepted\n"
                assert program.read_until() == f"coin {coin}"
            program.signal(signal.SIGKILL)
            return program.wait().output

    begun = "acceptor: MARVANE-SIM\ninsert coins\n"
    assert run_and_kill(7) == f"noted so far: 0 coins, 0 events missed\n{begun}coin 7\n"
    insert_and_keep(1, 2, 3, 4)
    insert_and_keep(5, 6, 8)
    assert run_and_kill() == (
        "noted so far: 1 coins, 0 events missed\ncoin 1\ncoin 2\ncoin 3\ncoin 4\ncoin 5\ncoin 6\n"
        f"coin 8\n{begun}")
    serial("mute")
    insert_and_keep(9, 10, 11, 12, 13, 14, 15)
    assert sim.run([ACCEPTOR, "0"]).output == (
        "noted so far: 8 coins, 0 events missed\n2 events are lost: they came too fast\n"
        f"coin 11\ncoin 12\ncoin 13\ncoin 14\ncoin 15\n{begun}the end: 5 coins\n")
    assert serial("insert", 1) == "returned\n", "nobody would take it"
