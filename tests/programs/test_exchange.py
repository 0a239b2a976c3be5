"""Exchanges of an application with simulated boards, through device nodes and ioctl records."""
import signal
import time

from client import Client
from places import until


def shell(sim, script):
    finished = sim.run(["sh", "-c", script])
    assert (finished.status, finished.errors) == (0, "")
    return finished.output


def test_boards_are_found_where_a_real_driver_has_them(marvane_sim):
    sim = marvane_sim("k44", "k40@12", "5=k50:id=3", options=["--firmware-running"])
    assert shell(sim, "cd /sys/class/Kovar; ls; for n in 0 1 5; do cat Kovar_$n/device/product "
                      "Kovar_$n/device/speed; ls /dev/Kovar_$n; done") == (
        "Kovar_0\nKovar_1\nKovar_5\nMarvane K44 Board\n480\n/dev/Kovar_0\n"
        "Marvane K40 Board\n12\n/dev/Kovar_1\nMarvane K50 Board\n480\n/dev/Kovar_5\n")
    assert Client(sim, "k44", 5)("75/1 74/6") == "0 0000000300, 0 01"

    # Numbers are given out around those asked for.
    assert marvane_sim("k44", "0=k50", "k40").ctl("list") == (
        "0 k50 480 plugged\n1 k44 480 plugged\n2 k40 480 plugged\n")


def test_records_are_answered_as_by_the_driver_or_refused(marvane_sim):
    for model, ctl, steps, answers, logged in [
        ("k44", ["input 5 on"],
         "75/1 117/6/03000c0000010203 116/6/03000c0000 9/1 116/6/03000c0000/one-buffer "
         "72/6//no-reply",
         "0 2000000000, 0 -, 0 010203, 100 -, 0 010203, 0 -", None),
        ("k40", ["input 5 on"], "75/1 71/6/033412010203 70/6/033412 9/1",
         "7 4b002000000000, 2 4700, 5 4600010203, 2 0964", None),
        ("k44", [],
         "75/0 75/8 75/4294967295 75/1//no-status 75/1//no-length 75/1//no-reply "
         "114/1/01/no-request 75/1//huge-request request/0x8401 request/0xC2108100 75/1",
         "EINVAL, EINVAL, EINVAL, EFAULT, EFAULT, EFAULT, EFAULT, EINVAL, ENOTTY, ENOTTY, "
         "0 0000000000",
         "0 75 - EINVAL -\n8 75 - EINVAL -\n4294967295 75 - EINVAL -\n1 75 - EFAULT -\n"
         "1 75 - EFAULT -\n1 75 - 0 0000000000\n1 114 - EFAULT -\n1 75 - EINVAL -\n"
         "1 75 - 0 0000000000\n"),
        ("k40", [],
         "75/0 75/8 75/1//other-channel 75/1//write-nothing 75/1//write-too-long 75/1//room-63 "
         "114/1/01/room-65 request/0x8400 75/1",
         "EINVAL, EINVAL, EINVAL, EINVAL, EINVAL, EINVAL, EINVAL, ENOTTY, 7 4b000000000000",
         "0 75 - EINVAL -\n8 75 - EINVAL -\n1 75 - EINVAL -\n1 75 - EINVAL -\n"
         "1 75 - EINVAL -\n1 75 - EINVAL -\n1 114 01 EINVAL -\n1 75 - 0 0000000000\n"),
        ("k40", [], "75/1//write-longest", "2 4b66", None),
        ("k44", ["input 0 on", "fail 1 ioctl", "fail 1 ioctl ETIMEDOUT",
                 "fail 1 status -2000000000", "fail 1 short 2"],
         "81/1 81/1 81/1 81/1 81/1",
         "EIO, ETIMEDOUT, -2000000000 -, 0 0100, 0 0000000000", None),
        ("k40", ["fail 1 status -16", "fail 1 status 156", "fail 1 echo", "fail 1 short 3"],
         "75/1 75/1 75/1 75/1 75/1",
         "2 4bf0, 2 4b9c, 7 b4000000000000, 5 4b00000000, 7 4b000000000000", None),
    ]:
        sim = marvane_sim(model)
        for words in ctl:
            sim[0].ctl(*words.split())
        assert Client(sim, model)(steps) == answers
        assert logged in (None, sim[0].ctl("log")), steps
    # The longest replies.
    for model, step, answer in [("k44", "116/6/fc00010000", 2 + 2 * 252),
                                ("k40", "70/6/3a0000", 3 + 2 * 60)]:
        assert len(Client(marvane_sim(model), model)(step)) == answer


def test_threads_and_processes_are_kept_apart(marvane_sim):
    sim = marvane_sim("k44", "k40")
    clients = [Client(sim, "k40", 1), Client(sim, "k40", 1), Client(sim, "k44", 0)]
    for client, step in zip(clients, ["threads/4/50/10", "threads/4/50/20", "threads/6/60/1"]):
        client.begin(step)
    assert [client.answer() for client in clients] == ["200", "200", "360"]


def test_an_unplugged_board_is_gone_until_it_is_plugged_in_again(marvane_sim):
    sim = marvane_sim("k44", "k40")
    board, other, late = sim[0], Client(sim, "k40", 1), Client(sim)
    client = Client(sim)
    assert client("72/6 73/6 74/6") == "0 -, 0 -, 0 01"
    board.ctl("unplug")
    assert client("75/1 reopen") == "ENODEV, ENOENT"
    assert shell(sim, "ls /sys/class/Kovar; ls /dev/Kovar_0 2>/dev/null || echo gone") == (
        "Kovar_1\ngone\n")
    assert other("75/1") == "7 4b000000000000"
    assert sim.ctl("list") == "0 k44 480 unplugged\n1 k40 480 plugged\n"
    board.ctl("plug")
    assert late("75/1 reopen 75/1 74/6") == "ENODEV, open, 0 0000000000, 0 00"
    assert shell(sim, "cd /sys/class/Kovar; ls; cat Kovar_0/device/product") == (
        "Kovar_0\nKovar_1\nMarvane K44 Board\n")


def test_a_late_answer_holds_up_only_its_own_board(marvane_sim):
    sim = marvane_sim("k44", "k50")
    board = sim[0]
    first, behind, other = Client(sim), Client(sim), Client(sim, "k44", 1)

    def begin(client, step):
        board.ctl("log", "--clear")
        client.begin(step)
        until(lambda: f" {step.split('/')[0]} " in board.ctl("log"), step)

    start = time.monotonic()
    board.ctl("fail", 1, "delay", 1500)
    begin(first, "72/6")
    behind.begin("75/1")
    assert other("75/1") == "0 0000000000"
    assert board.ctl("log") == "6 72 - 0 -\n", "the other board or the log has waited"
    assert (first.answer(), behind.answer()) == ("0 -", "0 0000000000")
    assert time.monotonic() - start >= 1.5
    assert board.ctl("log") == "6 72 - 0 -\n1 75 - 0 0000000000\n"

    # Unplugged meanwhile.
    board.ctl("fail", 1, "delay", 500)
    begin(first, "72/6")
    board.ctl("unplug")
    assert first.answer() == "ENODEV"
    board.ctl("plug")

    # Clients that die meanwhile are forgotten.
    dying, queued, client = Client(sim), Client(sim), Client(sim)
    board.ctl("fail", 1, "delay", 700)
    begin(dying, "72/6")
    queued.begin("82/1")
    time.sleep(0.2)  # nothing tells that it waits
    for late in dying, queued:
        late.program.signal(signal.SIGKILL)
    assert client("75/1") == "0 0000000000"
    assert board.ctl("log") == "6 72 - 0 -\n1 75 - 0 0000000000\n"
