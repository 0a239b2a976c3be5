// An application that fills the driver's records by itself, rightly and wrongly.
//
//     raw_client k40|k44 NUMBER STEP ...
//
// opens /dev/Kovar_NUMBER and takes the steps one after the other, a line of output for each:
//
//     COMMAND/CHANNEL[/PAYLOAD[/TWIST]]  one exchange, payload in hex; prints the error's name, or
//                                        status and reply (K44), or readLength and reply (K40)
//     reopen                             closes the node and opens it again
//     threads/COUNT/ROUNDS/FIRST         writes and reads memory from COUNT threads at once, each
//                                        in a place of its own from place FIRST on; prints how
//                                        often they found their own bytes
//     request/NUMBER                     another ioctl request
//     !TEXT                              a shell command
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Exchange {
    std::uint8_t command = 0;
    std::uint32_t channel = 0;
    Bytes payload;
    std::string twist;
};

struct Result {
    int error = 0;
    std::int64_t number = 0;  // status, or the K40's readLength
    Bytes reply;
};

int descriptor = -1;
bool isK40 = false;

template <class Value>
void Put(Bytes& record, std::size_t offset, Value value) {
    std::memcpy(record.data() + offset, &value, sizeof value);
}

std::uint64_t Address(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

Result ExchangeK40(const Exchange& exchange) {
    Bytes record(528, 0xEE);
    Put<std::uint32_t>(record, 0, exchange.channel);
    Put<std::uint32_t>(record, 4, exchange.channel);
    Put<std::uint32_t>(record, 8, static_cast<std::uint32_t>(exchange.payload.size() + 1));
    Put<std::uint32_t>(record, 12, 64);
    Put<std::uint8_t>(record, 16, exchange.command);
    std::ranges::copy(exchange.payload, record.begin() + 17);
    if (exchange.twist == "other-channel") Put<std::uint32_t>(record, 4, 2);
    if (exchange.twist == "write-nothing") Put<std::uint32_t>(record, 8, 0);
    if (exchange.twist == "write-longest") Put<std::uint32_t>(record, 8, 512);
    if (exchange.twist == "write-too-long") Put<std::uint32_t>(record, 8, 513);
    if (exchange.twist == "room-63") Put<std::uint32_t>(record, 12, 63);
    if (exchange.twist == "room-65") Put<std::uint32_t>(record, 12, 65);

    Result result;
    if (ioctl(descriptor, 0xC2108100, record.data()) != 0) {
        result.error = errno;
        return result;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, record.data() + 12, sizeof length);
    result.number = length;
    if (length <= 512) result.reply.assign(record.begin() + 16, record.begin() + 16 + length);
    return result;
}

Result ExchangeK44(const Exchange& exchange) {
    constexpr std::uint8_t kGuard = 0xA5;
    Bytes request = exchange.payload;
    Bytes reply(264, kGuard);
    std::int32_t status = 0;
    std::uint64_t length = 0;

    Bytes record(56, 0xEE);
    Put<std::uint64_t>(record, 0, Address(&status));
    Put<std::uint32_t>(record, 8, exchange.channel - 1);
    Put<std::uint64_t>(record, 16, request.empty() ? 0 : Address(request.data()));
    Put<std::uint64_t>(record, 24, request.size());
    Put<std::uint64_t>(record, 32, Address(reply.data()));
    Put<std::uint64_t>(record, 40, Address(&length));
    Put<std::uint8_t>(record, 48, exchange.command);
    if (exchange.twist == "no-status") Put<std::uint64_t>(record, 0, 0);
    if (exchange.twist == "no-request") Put<std::uint64_t>(record, 16, 0);
    if (exchange.twist == "huge-request") Put<std::uint64_t>(record, 24, ~std::uint64_t{0});
    if (exchange.twist == "no-reply") Put<std::uint64_t>(record, 32, 0);
    if (exchange.twist == "no-length") Put<std::uint64_t>(record, 40, 0);
    if (exchange.twist == "one-buffer") {
        std::copy(request.begin(), request.end(), reply.begin());
        Put<std::uint64_t>(record, 16, Address(reply.data()));
    }

    Result result;
    if (ioctl(descriptor, 0x8400, record.data()) != 0) {
        result.error = errno;
        return result;
    }
    result.number = status;
    const std::size_t received = std::min<std::size_t>(length, reply.size());
    result.reply.assign(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(received));
    if (exchange.twist != "one-buffer" && received < reply.size() && reply[received] != kGuard) {
        std::puts("written past the reply");
    }
    return result;
}

Result Perform(const Exchange& exchange) {
    return isK40 ? ExchangeK40(exchange) : ExchangeK44(exchange);
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '/');)
        parts.push_back(part);
    return parts;
}

Bytes FromHex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

void Print(const Result& result) {
    if (result.error != 0) {
        std::puts(strerrorname_np(result.error));
        return;
    }
    std::printf("%lld ", static_cast<long long>(result.number));
    for (const std::uint8_t byte : result.reply)
        std::printf("%02x", byte);
    std::puts(result.reply.empty() ? "-" : "");
}

void PerformAndPrint(const std::vector<std::string>& parts) {
    Exchange exchange;
    exchange.command = static_cast<std::uint8_t>(std::stoi(parts.at(0)));
    exchange.channel = static_cast<std::uint32_t>(std::stol(parts.at(1)));
    if (parts.size() > 2) exchange.payload = FromHex(parts[2]);
    if (parts.size() > 3) exchange.twist = parts[3];
    Print(Perform(exchange));
}

// Writes the round's number to a place of the thread's own and reads it back.
bool FindsOwnBytes(std::uint8_t thread, std::uint8_t round) {
    const Bytes place = isK40 ? Bytes{2, 0, thread} : Bytes{2, 0, thread, 0, 0};
    Exchange write{static_cast<std::uint8_t>(isK40 ? 71 : 117), 6, place, ""};
    write.payload.insert(write.payload.end(), {thread, round});
    const Result written = Perform(write);
    const Result read = Perform({static_cast<std::uint8_t>(isK40 ? 70 : 116), 6, place, ""});
    const Bytes expected = isK40 ? Bytes{70, 0, thread, round} : Bytes{thread, round};
    return written.error == 0 && read.error == 0 && read.reply == expected;
}

void RunThreads(int count, int rounds, int first) {
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < rounds; ++round) {
                if (FindsOwnBytes(static_cast<std::uint8_t>(first + thread),
                                  static_cast<std::uint8_t>(round))) {
                    ++good;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::printf("%d of %d\n", good.load(), count * rounds);
}

void Open(const std::string& node) {
    if (descriptor >= 0) close(descriptor);
    descriptor = open(node.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) std::puts(strerrorname_np(errno));
}

void Step(const std::string& step, const std::string& node) {
    if (step.starts_with("!")) {
        (void)std::fflush(stdout);
        if (std::system(step.c_str() + 1) != 0) std::puts("failed");  // NOLINT(cert-env33-c)
        return;
    }
    if (step == "reopen") return Open(node);

    const std::vector<std::string> parts = Split(step);
    if (parts[0] == "threads") {
        return RunThreads(std::stoi(parts.at(1)), std::stoi(parts.at(2)), std::stoi(parts.at(3)));
    }
    if (parts[0] == "request") {
        int unused = 0;
        const int result = ioctl(descriptor, std::stoul(parts.at(1), nullptr, 0), &unused);
        std::puts(result == 0 ? "0" : strerrorname_np(errno));
        return;
    }
    PerformAndPrint(parts);
}

}  // namespace

int main(int count, char** values) {
    if (count < 3) return 2;
    isK40 = std::string(values[1]) == "k40";
    const std::string node = std::string("/dev/Kovar_") + values[2];
    Open(node);
    if (descriptor < 0) return 1;
    for (int i = 3; i < count; ++i) {
        Step(values[i], node);
        (void)std::fflush(stdout);
    }
    return 0;
}
