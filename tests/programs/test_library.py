"""The shipped library meets simulated boards, through real paths and a real ioctl. That it opens
each model, and what it does when one is unplugged, the examples' tests show."""
from places import BUILD

BOARD_USER = BUILD / "tests" / "programs" / "board_user"


def test_the_identity_switch_chooses_the_board(marvane_sim):
    sim = marvane_sim("k44:id=2", "k40", "5=k50")
    sim[5].ctl("identity", 6)
    opened = [sim.run([BOARD_USER, "identity", str(identity)]) for identity in (6, 2, 0, 7)]
    assert [(each.status, each.output) for each in opened] == [
        (0, "3\n"), (0, "2\n"), (0, "1\n"), (1, "")]


def test_two_first_openings_at_once_detect_the_eeprom_once_and_write_afterwards(marvane_sim):
    # This process loads no library: what processes share is gone between two rounds, and each
    # round's openings are the first again.
    sim = marvane_sim("k44:eeprom=24LC64")
    for round_ in range(40):
        writers = [sim.start([BOARD_USER, "write", "0", "64"], keep_input=True) for _ in range(2)]
        for writer in writers:
            writer.read_until("ready")
        for writer in writers:
            writer.close_input()
        assert [writer.wait().status for writer in writers] == [0, 0]
        for writer in writers:
            writer.end()
        log = sim[0].ctl("log", "--clear")
        chip = [line.split()[1:3] for line in log.splitlines() if line[:4] in ("2 3 ", "2 4 ")]
        commands = "".join(command for command, _ in chip)
        assert commands == "33" + "4" * len(commands[2:]), f"round {round_}\n{log}"
        assert len(commands) >= 4 and chip[1][1] == "20021fff51", f"round {round_}\n{log}"
