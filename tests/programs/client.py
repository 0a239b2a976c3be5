"""An application that fills the driver's records by itself, rightly and wrongly.

In front of a simulation `client.py k40|k44 NUMBER` opens /dev/Kovar_NUMBER, says "open" and takes
steps from its input, with a line of output for each:

    COMMAND/CHANNEL[/PAYLOAD[/TWIST]]  one exchange, payload in hex; says the error's name, or
                                       status and reply (K44), or readLength and reply (K40)
    reopen                             closes the node and opens it again
    request/NUMBER                     another ioctl request
    threads/COUNT/ROUNDS/FIRST         COUNT threads at once write and read memory, each in a place
                                       of its own from FIRST on; says how often it was found there
"""
import concurrent.futures
import ctypes
import errno
import fcntl
import os
import struct
import sys

# Fields of a record that are filled wrongly: index and value.
TWISTS = {
    "k40": {"other-channel": (1, 2), "write-nothing": (2, 0), "write-longest": (2, 512),
            "write-too-long": (2, 513), "room-63": (3, 63), "room-65": (3, 65)},
    "k44": {"no-status": (0, 0), "no-request": (3, 0), "huge-request": (4, 2**64 - 1),
            "no-reply": (5, 0), "no-length": (6, 0)}}
JUNK = b"\xEE"  # in what the driver does not read
UNTOUCHED = b"\xA5"  # in what it does not write


class Client:
    """The program, as a test sees it."""

    def __init__(self, simulation, model="k44", number=0):
        self.program = simulation.start([sys.executable, "-IS", __file__, model, str(number)],
                                        keep_input=True)
        self.begin, self.answer = self.program.say, self.program.read_until
        assert self.answer() == "open"

    def __call__(self, steps):
        for step in steps.split():
            self.begin(step)
        return ", ".join(self.answer() for _ in steps.split())


def exchange_k40(node, command, channel, payload, twist):
    data = bytes([command]) + payload
    fields = [channel, channel, len(data), 64, data.ljust(512, JUNK)]
    if twist:
        index, fields[index] = TWISTS["k40"][twist]
    record = bytearray(struct.pack("<4I512s", *fields))
    fcntl.ioctl(node, 0xC2108100, record)
    length = struct.unpack_from("<I", record, 12)[0]
    return length, record[16:16 + length]


def exchange_k44(node, command, channel, payload, twist):
    status, length = ctypes.c_int32(0), ctypes.c_uint64(0)
    reply = ctypes.create_string_buffer(UNTOUCHED * 264, 264)
    request = reply if twist == "one-buffer" else ctypes.create_string_buffer(264)
    request[:len(payload)] = payload
    at = ctypes.addressof
    fields = [at(status), (channel - 1) % 2**32, JUNK * 4, at(request) if payload else 0,
              len(payload), at(reply), at(length), command, JUNK * 7]
    if twist in TWISTS["k44"]:
        index, fields[index] = TWISTS["k44"][twist]
    fcntl.ioctl(node, 0x8400, bytearray(struct.pack("<QI4s4QB7s", *fields)))
    if twist != "one-buffer" and reply[length.value:length.value + 1] not in (UNTOUCHED, b""):
        return status.value, b"written past the reply"
    return status.value, reply[:length.value]


def open_node():
    node = os.open(f"/dev/Kovar_{sys.argv[2]}", os.O_RDWR | os.O_CLOEXEC | os.O_NOCTTY)
    print("open", flush=True)
    return node


def perform(node, command, channel, payload="", twist=""):
    exchange = exchange_k40 if sys.argv[1] == "k40" else exchange_k44
    number, reply = exchange(node, int(command), int(channel), bytes.fromhex(payload), twist)
    return f"{number} {reply.hex() or '-'}"


def count_own_bytes(node, thread, rounds):
    write, read, place, answer = ((71, 70, "0200%02x", "4 4600") if sys.argv[1] == "k40"
                                  else (117, 116, "0200%02x0000", "0 "))
    found = 0
    for round_ in range(rounds):
        own = f"{thread:02x}{round_ % 256:02x}"
        perform(node, write, 6, place % thread + own)
        found += perform(node, read, 6, place % thread) == answer + own
    return found


def take(node, word, *rest):
    if word == "threads":
        count, rounds, first = map(int, rest)
        with concurrent.futures.ThreadPoolExecutor(count) as pool:
            return sum(pool.map(lambda thread: count_own_bytes(node, thread, rounds),
                                range(first, first + count)))
    if word == "request":
        return fcntl.ioctl(node, int(*rest, 0), bytearray(4))
    return perform(node, word, *rest)


def main():
    node = open_node()
    for step in sys.stdin:
        try:
            if step.strip() == "reopen":
                os.close(node)
                node = open_node()
            else:
                print(take(node, *step.strip().split("/")), flush=True)
        except OSError as error:
            print(errno.errorcode[error.errno], flush=True)


if __name__ == "__main__":
    main()
