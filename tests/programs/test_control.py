"""The words of "marvane-sim ctl": what they make a board show, what they print, what is refused."""
import json
import os
import socket
import time

import pytest

from client import Client
from marvane_sim import Finished, SimulationError, run
from places import SIM, until

# Steps, and fields of what the board shows then. A step is an exchange, or words of ctl ("line 0"
# for "serial 0"); a field with a ~ comes to its value in a while.
HOPPER = {"coins": 500, "rate": 10, "jammed": True, "dropped": 0, "status": 0, "output": None,
          "wanted": 0, "paid": 0}
REEL = {"configured": False, "steps": 200, "stepMs": 5, "position": 0, "turning": False,
        "stepsLeft": 0, "ramp": "none", "waiting": None}
SAS_HOST = {"polling": False, "address": 17, "generalPolls": 0, "generalAnswers": 0, "longPolls": 1,
            "longAnswers": 1, "busyAnswers": 0, "lastAnswer": "1107"}
SHOWN = [
    ("", {"number": 0, "model": "k44", "speedMbit": 12, "firmwareRunning": True}),
    ("input 0 on 32 on 5 on 5 off; contact 1 on; multiplexed 7 on 95 on; 114/1/01",
     {"inputs": {"on": [0, 32], "image": "0100000001", "rawImage": "0300000001",
                 "unreportedChanges": "2100000001", "multiplexing": True, "multiplexedOn": [7, 95],
                 "pulsesToCome": {}}}),
    ("identity 6", {"inputs.on": [0, 25, 26, 32]}),
    ("coin 8 1000 1", {"inputs.pulsesToCome": {"8": 1000}}),
    ("83/1/0802000000; 84/1/1000000020; 77/1/00100000000000000000; 85/1/03; 78/1/ff05; 79/1/0001; "
     "79/1/0001",
     {"outputs": {"on": [5, 12], "onPeriod": [3, 9], "offPeriod": [4, 37], "pulsing": [5],
                  "driven": [], "brightness": 3, "onPeriodPattern": "0812000000",
                  "offPeriodPattern": "1010000020", "onPulses": {"5": 1}, "offPulses": {"1": 2}}}),
    ("107/1/030a0103; 108/1/0301; coin 3 2",
     {"~pulsedInputs": {"3": {"pulseParameter": 10, "activeState": 1, "extendedPulseParameter": 3,
                              "checking": True, "counter": 2}}}),
    ("hopper 4 coins 3; hopper 4 rate 25; 112/1/0414010600030000; hopper 5 jam",
     {"~hoppers.4": HOPPER | {"coins": 0, "rate": 25, "jammed": False, "dropped": 3, "status": 2,
                              "output": 6, "wanted": 3, "paid": 3}, "hoppers.5": HOPPER}),
    ("hopper 5 free; hopper 9 rate 1; 112/1/0914010700ff0000",
     {"hoppers.5.jammed": False, "outputs.driven": [7]}),
    ("86/1/02003007; reel 0 position 47; 91/1/01; 90/1/010203; 87/1/0001012c",
     {"reels.0": REEL | {"configured": True, "steps": 48, "stepMs": 7, "position": 47,
                         "waiting": 300},
      "reels.2": REEL, "reels.dutyCycle": [1, 2, 3], "reels.synchronised": True}),
    ("125/1/0503ffff0c3fff0064; 126/1/3a98",
     {"recording": {"inputs": [5, 3, None, None], "address": 196607, "length": 100,
                    "periodMs": 15000, "status": 1, "samples": 0}}),
    ("3/2/20021fff51", {"eeprom": {"part": "24LC64", "told": {
        "pageSize": 32, "addressBytes": 2, "highestAddress": 8191, "busAddress": 81}}}),
    ("switch 0 open 7 open 0 closed",
     {"clock.openSwitches": [7], "clock.opened": [0, 7], "clock.closed": [0],
      "clock.log.1.switchByte": 136}),
    ("64/5; battery fail",
     {"clock.opened": [], "clock.closed": [], "clock.cachedOpened": [0, 7],
      "clock.cachedClosed": [0], "clock.batteryFailed": True, "clock.clockFailed": False}),
    ("rtc fail; 69/5/01020304; 94/7; 96/7/080805ff; spi reply aa bb",
     {"clock.clockFailed": True, "random": {"enabled": True, "argument": 67305985},
      "identity": {"dallasNumber": "010100000000000a", "picSerial": "3030303030303031"},
      "spi": {"enabled": True, "control": 5, "queuedReplies": 2, "rightFrames": 0,
              "wrongFrames": 0}}),
    ("spi clear", {"spi.queuedReplies": 0}),
    ("97/3/010203016401; line 0 feed 010203; line 0 parity 4; 98/3/00010002; line 0 line none; "
     "98/3/0003; 101/3/00010a; 122/3/11; 123/3/0207; "
     "103/3/0200010101050500000000050502000001fd0000000000",
     {"serial.0": {
         "line": "none", "received": 5, "sent": 1, "dropped": 0, "parityErrors": 4, "device": None,
         "configuration": {"type": 1, "parityCode": 2, "flagBits2And3": 3, "flagBit1": 1,
                           "rate": "6401"},
         "timeoutMessage": {"message": "0a", "afterMs": 0, "sent": False},
         "sas": {"address": 17, "mode": 2, "value": 7},
         "polls": {"2": {"mode": 0, "option": 1, "periodMs": 50, "hostTimeoutMs": 0,
                         "stopped": False, "messages": 0, "sentPolls": 0, "rightReplies": 0,
                         "wrongReplies": 0, "missingReplies": 0}}}}),
    ("line 0 line sas; line 0 host 17; line 0 long 1f02", {"~serial.0.device": SAS_HOST}),
    ("line 0 host on", {"~serial.0.device.generalAnswers": lambda n: n > 0,
                        "serial.0.device.polling": True}),
    ("line 0 host off", {"serial.0.device.polling": False}),
    ("line 0 line cctalk; line 0 mute; line 0 insert 3; line 1 line polled; line 1 event aabb",
     {"serial.0.device": {"muted": True, "master": 1, "mask": 0, "eventCounter": 0,
                          "lastCoins": [0, 0, 0, 0, 0], "acceptedCoins": 0, "returnedCoins": 1,
                          "wrongFrames": 0},
      "serial.1.device": {"muted": False, "queuedEvents": 1, "rightFrames": 0, "wrongFrames": 0}}),
    ("line 0 speak; fail 3 ioctl EPIPE; unplug",
     {"serial.0.device.muted": False, "exchangesToSpoil": 3, "plugged": False}),
    ("fail off; plug", {"exchangesToSpoil": 0, "plugged": True}),
]


def take(board, client, steps):
    """Takes the steps, separated by semicolons, and returns what they print."""
    text = ""
    for step in filter(None, steps.split("; ")):
        if "/" in step:
            client(step)
        else:
            text += board.ctl(*step.replace("line", "serial", step.startswith("line")).split())
    return text


def test_show_tells_what_words_and_commands_have_done(marvane_sim):
    sim = marvane_sim("0=k44@12:eeprom=24LC64:serial0=loop", options=["--firmware-running"])
    client = Client(sim)

    def shows(field, value):
        shown = sim[0].show()
        for key in field.lstrip("~").split("."):
            shown = shown[int(key) if isinstance(shown, list) else key]
        if callable(value):
            return value(shown)
        return json.dumps(shown, sort_keys=True) == json.dumps(value, sort_keys=True)

    for steps, fields in SHOWN:
        take(sim[0], client, steps)
        for field, value in fields.items():
            if field.startswith("~"):
                until(lambda: shows(field, value), f"{field}: {value}")
            assert shows(field, value), (steps, field, sim[0].show())


def test_words_print_what_they_take_off_the_board(marvane_sim):
    ports = "97/3/00000000d901; 97/4/0100000064ff; "
    for steps, printed, asked, answers in [
        (ports + "98/3/41ff; 98/4/01800042; line 0 drain; line 0 drain; line 1 drain",
         "41ff\n-\n0180 0042\n", "", ""),
        (ports + "line 0 feed 0aFF; line 1 feed9 1ff 0 2; line 1 parity 258", "",
         "99/3/00 99/3/01 99/4 100/4", "0 0aff, 0 -, 0 01ff00000002, 0 0102"),
        (ports + "line 0 line cctalk; 98/3/020201e7ff7f96; 99/3/00; line 0 insert 15; "
         "line 0 insert 16", "accepted\nreturned\n", "", ""),
        ("3/2/40027fff51; 4/2/021000aabb; eeprom read 16 2; eeprom read 32767 1", "aabb\nff\n",
         "", ""),
        ("114/1/01; 75/2; fail 1 ioctl EPIPE; 82/1; log; log --clear; log",
         2 * "1 114 01 0 -\n2 75 - 101 -\n1 82 - EPIPE -\n", "", ""),
    ]:
        sim = marvane_sim("k44:eeprom=24LC256:blank")
        client = Client(sim)
        assert take(sim[0], client, steps) == printed
        assert client(asked) == answers
    client("threads/1/2048/1 74/6")
    log = sim[0].ctl("log").splitlines()
    assert (log[0], len(log)) == ("# 1 earlier exchanges are forgotten", 4097)


def test_words_that_cannot_be_carried_out_are_refused(marvane_sim):
    sim = marvane_sim("k44", "k40")
    sim[0].ctl("serial", 1, "line", "loop")
    long_hex = "000102030405060708090a0b0c0d0e0f1011121314"
    for words, status, complaint in [
        ("0 input 33 on", 2, "the input must be a number from 0 to 32, not '33'"),
        ("0 input 5x on", 2, "the input must be a number from 0 to 32, not '5x'"),
        ("0 input 99999999999999999999 on", 2, "not '99999999999999999999'"),
        ("0 input 5 high", 2, "the level of input must be on or off, not 'high'"),
        ("0 input 5 on 6 up", 2, "must be on or off, not 'up'"),
        ("0 multiplexed 96 on", 2, "from 0 to 95"),
        ("0 identity 8", 2, "the identity must be a number from 0 to 7"),
        ("0 coin 3 1001", 2, "the number of coins must be a number from 1 to 1000"),
        ("0 coin 3 5 101", 2, "the number of coins a second must be a number from 1 to 100"),
        ("0 hopper 3 coins 65536", 2, "the number of coins must be a number from 0 to 65535"),
        ("0 hopper 3 rate 0", 2, "the number of coins a second must be a number from 1 to 25"),
        ("0 hopper 3 free now", 2, "nothing may follow before 'now'"),
        ("0 hopper 3 shake", 2, "'shake' is not coins, rate, jam or free"),
        ("0 reel 0 position 200", 2, "the position must be a number from 0 to 199"),
        ("0 reel 3 position 0", 2, "the reel must be a number from 0 to 2"),
        ("0 fail 1 fire", 2, "'fire' is not ioctl, status, echo, short or delay"),
        ("0 fail 1 ioctl EBANANA", 2, "'EBANANA' is no error name such as EIO"),
        ("1 fail 1 status 256", 2, "from -128 to 255"),
        ("0 fail 1 echo", 1, "only a K40 echoes the command"),
        ("0 switch 8 open", 2, "the security switch must be a number from 0 to 7, not '8'"),
        (f"0 spi reply {long_hex}", 2, "must be 1 to 20 bytes"),
        ("0 spi reply 0a 0", 2, "an SPI reply must be 1 to 20 bytes in hex, not '0'"),
        ("0 eeprom read 32767 2", 2, "the length must be a number from 1 to 1"),
        ("0 serial 2 drain", 2, "the port must be a number from 0 to 1"),
        ("0 serial 0 dance", 2, "nothing on a line is called 'dance'"),
        ("0 serial 0 feed 0", 2, "the bytes must be 1 to 65536 in hex, not '0'"),
        ("0 serial 0 feed9 1ff 200", 2, "a word must be 0 to 1ff in hex, not '200'"),
        ("0 serial 0 line pty", 1, "no other becomes one"),
        ("0 serial 0 line modem", 2, "nothing of the name 'modem' hangs on a line"),
        ("0 serial 0 insert 1", 1, "on the line hangs none, not cctalk"),
        ("0 serial 0 host on", 1, "not sas"),
        (f"0 serial 0 event {long_hex}", 2, "1 to 20 in hex"),
        ("0 serial 1 drain", 1, "goes to loop"),
        ("0 dance", 2, "there is no word 'dance'"),
        ("0 plug", 1, "the board is plugged in already"),
        ("3 show", 1, "there is no board 3"),
        ("16 show", 2, "the board must be a number from 0 to 15, not '16'"),
        ("", 2, "what to do is missing"),
        ("--gently 0 show", 2, "there is no option --gently"),
    ]:
        with pytest.raises(SimulationError) as refused:
            sim.ctl(*words.split())
        assert refused.value.status == status, words
        assert complaint in refused.value.message, words
    assert run([SIM, "ctl", "--pid", "1", "list"]) == Finished(
        1, "", "marvane-sim: no simulation runs as process 1\n")
    assert sim[0].show()["inputs"]["image"] == "0000000000", "what is refused changes nothing"


def test_the_seed_decides_the_random_numbers_and_each_board_has_its_own(marvane_sim):
    def numbers(*options):
        sim = marvane_sim("k44", "k44", options=options)
        return [Client(sim, "k44", board)("69/5/00000000 68/5 68/5") for board in (0, 1)]

    seeded = numbers("--seed", "7")
    assert numbers("--seed", "7") == seeded != numbers("--seed", "8")
    assert seeded[0] != seeded[1]
    assert numbers() != numbers()


def test_the_channel_survives_whatever_is_sent_to_it(marvane_sim):
    sim = marvane_sim("k44")
    path = sim.run(["printenv", "MARVANE_SIM_CONTROL"]).output.strip()
    refused = b'{"result":2,"text":"the request is not understood\\n"}\n'
    for text, answer in [(b"", b""), (b"\n", b""), (b"{\n", refused), (b"[]\n", refused),
                         (b'{"words":[1]}\n', refused), (b"x" * 200000, None)]:
        with socket.socket(socket.AF_UNIX) as channel:
            channel.settimeout(10)
            channel.connect(path)
            try:
                channel.sendall(text)
                channel.shutdown(socket.SHUT_WR)
                assert channel.recv(99) == answer
            except ConnectionError:
                assert answer is None
    assert sim.ctl("list") == "0 k44 480 plugged\n"


def test_a_terminal_carries_every_byte_both_ways(marvane_sim):
    sim = marvane_sim("k44:serial1=pty", "k40:serial0=none", options=["--serial", "0=pty"])
    assert sorted(sim.terminals) == [(0, 0), (0, 1)]
    client = Client(sim)
    client("97/3/00000000d901 97/4/0100000064ff 98/3/000d0aff 98/4/01800003")

    def play(port, receives, *sends):
        terminal = os.open(sim.terminals[0, port], os.O_RDWR | os.O_NOCTTY)
        received = b""
        while len(received) < receives:
            received += os.read(terminal, receives - len(received))
        for data in sends:
            os.write(terminal, data)
            time.sleep(0.1)  # nothing tells that half a word has come
        os.close(terminal)
        return received.hex()

    assert play(0, 4, bytes.fromhex("0d00030aff")) == "000d0aff"
    until(lambda: sim[0].show()["serial"][0]["received"] == 5, "what was sent")
    assert client("99/3/00") == "0 0d00030aff"
    assert play(1, 4, b"\1", b"\x80") == "01800003"
    until(lambda: sim[0].show()["serial"][1]["received"] == 1, "the word")
    assert client("99/4") == "0 0180"


def test_a_terminal_holds_nothing_up_though_nobody_reads(marvane_sim):
    sim = marvane_sim("k44", options=["--serial", "0=pty"])
    send = f"98/3/{'0' * 500}"
    assert set(Client(sim)(f"97/3/00000000d901 {100 * (send + ' ')}").split(", ")) == {"0 -"}
    with pytest.raises(SimulationError, match="a line that is a pty stays one"):
        sim[0].ctl("serial", 0, "line", "none")
