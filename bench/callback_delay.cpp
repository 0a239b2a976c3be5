/**
 * @file callback_delay.cpp
 * @brief How long after an input changes the application is called, and what the thread that
 *   looks for changes costs while nothing changes.
 *
 * The delay runs from just before the stand-in's inputs change to the first line of the callback:
 * the rest of the thread's sleep, its waking, two exchanges and the library between them. The
 * stand-in answers at once; a real board adds the time of two exchanges. It takes no lock and
 * allocates nothing, so that a press never waits for the thread, nor the thread for a press.
 * Presses come at random phases of the poll.
 *
 * The idle cost is counted in a process of its own, whose inputs thread the kernel lets do nothing
 * but sleep: any other system call ends that process, and the measurement fails.
 */
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>
#include <semaphore>
#include <thread>
#include <vector>

#include "allowed_system_calls.h"
#include "marvaneusb.h"
#include "testing/transfer_records.h"

extern "C" int ConstantIoctl(int descriptor, unsigned long request, ...);

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr int kK44Device = 1;  // of the constant driver
constexpr int kGetInputs = 75;
constexpr int kGetChangedInputs = 81;

constexpr int kPresses = 2000;
constexpr microseconds kPollPeriod{5000};
constexpr microseconds kBound = kPollPeriod + microseconds(1000);
constexpr auto kIdleTime = std::chrono::seconds(5);

/** The one button, input 0, and the exchanges of the thread that looks at it. */
struct Inputs {
    std::atomic<unsigned char> level = 0, changed = 0;
    std::atomic<long> reports = 0, others = 0;
    std::atomic<bool> onlySleeps = false;  // from the next report on, for the thread that asks

    void Move(unsigned char to) {
        level = to;
        changed = 1;
    }
};
Inputs inputs;

unsigned char AnswerToReport() {
    ++inputs.reports;
    if (inputs.onlySleeps.exchange(false) && !AllowOnly({SYS_clock_nanosleep})) {
        std::fputs("The kernel does not let a thread give up system calls here.\n", stderr);
        _exit(2);
    }
    return inputs.changed.exchange(0);
}

}  // namespace

extern "C" int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    auto* record = static_cast<K44Record*>(argument);
    const bool isInputs = request == kK44Request &&
                          (record->command == kGetInputs || record->command == kGetChangedInputs);
    if (!isInputs) {
        ++inputs.others;
        return ConstantIoctl(descriptor, request, argument);
    }
    std::memset(record->reply, 0, sizeof(usbInput));
    *record->replyLength = sizeof(usbInput);
    if (record->command == kGetChangedInputs) {
        record->reply[0] = AnswerToReport();
    } else {
        ++inputs.others;
        record->reply[0] = inputs.level;
    }
    return 0;
}

namespace {

Clock::time_point calledAt;
std::binary_semaphore called{0};

void NoteCall(usbInput* /*changed*/, usbInput* /*current*/) {
    calledAt = Clock::now();
    called.release();
}

bool Watch(MarvaneUSB& board) {
    usbInput all = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    return board.InitPort(kK44Device) == 1 &&
           board.ConfigureChangedInputsCallback(&all, &all, NoteCall) == 1;
}

double Milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

/** Until a pass has begun and ended; of a thread that is gone the next press tells. */
void AwaitPass() {
    const long next = inputs.reports + 2;
    for (int looks = 0; inputs.reports < next && looks < 4000; ++looks)
        std::this_thread::sleep_for(microseconds(500));
}

/** Presses and lets go; empty when a press was not reported. */
std::vector<Clock::duration> MeasureDelays(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> phase(0, static_cast<int>(kPollPeriod.count()));
    std::vector<Clock::duration> delays;
    for (int press = 0; press < kPresses; ++press) {
        AwaitPass();
        std::this_thread::sleep_for(microseconds(phase(random)));
        const auto pressedAt = Clock::now();
        inputs.Move(1);
        if (!called.try_acquire_for(std::chrono::seconds(2))) return {};
        delays.push_back(calledAt - pressedAt);
        inputs.Move(0);
    }
    std::sort(delays.begin(), delays.end());
    return delays;
}

bool ReportDelays() {
    MarvaneUSB board;
    if (!Watch(board)) return false;
    const unsigned seed = std::random_device()();
    const std::vector<Clock::duration> delays = MeasureDelays(seed);
    if (delays.empty()) {
        std::puts("A press was not reported.");
        return false;
    }
    const Clock::duration late = delays[delays.size() * 99 / 100];
    const bool within = late <= kBound;
    std::printf("%d presses, seed %u: delay in ms\n", kPresses, seed);
    std::printf("%10s %10s %10s %10s\n", "median", "99 %", "largest", "bound 99 %");
    std::printf("%10.3f %10.3f %10.3f %10.3f\n", Milliseconds(delays[delays.size() / 2]),
                Milliseconds(late), Milliseconds(delays.back()), Milliseconds(kBound));
    std::puts(within ? "Within its bound." : "The bound is exceeded.");
    return within;
}

struct Usage {
    Clock::time_point at = Clock::now();
    long reports = inputs.reports, others = inputs.others;
    rusage process = {};

    Usage() { getrusage(RUSAGE_SELF, &process); }
    [[nodiscard]] double ProcessorUs() const {
        return 1e6 * static_cast<double>(process.ru_utime.tv_sec + process.ru_stime.tv_sec) +
               static_cast<double>(process.ru_utime.tv_usec + process.ru_stime.tv_usec);
    }
};

/** In a process of its own; its exit status says whether only command 81 was sent. */
[[noreturn]] void MeasureIdle() {
    MarvaneUSB board;
    if (!Watch(board)) _exit(3);
    inputs.onlySleeps = true;
    while (inputs.onlySleeps)
        usleep(1000);
    const Usage before;
    std::this_thread::sleep_for(kIdleTime);
    const Usage after;
    const auto reports = static_cast<double>(after.reports - before.reports);
    const double seconds = Milliseconds(after.at - before.at) / 1000;
    std::printf("idle: %.1f exchanges of command 81 a second, %ld of others in %.1f s\n",
                reports / seconds, after.others - before.others, seconds);
    std::printf("each pass: %.2f waits, no other system call but its ioctl, %.1f us of processor\n",
                static_cast<double>(after.process.ru_nvcsw - before.process.ru_nvcsw) / reports,
                (after.ProcessorUs() - before.ProcessorUs()) / reports);
    std::fflush(stdout);
    _exit(reports > 0 && after.others == before.others ? 0 : 1);  // the thread may not even end
}

bool ReportIdle() {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) MeasureIdle();
    int status = 0;
    if (waitpid(child, &status, 0) != child || status == 0) return status == 0;
    std::printf("idle: failed, %s %d\n", WIFSIGNALED(status) ? "signal" : "status",
                WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    return false;
}

}  // namespace

int main() {
    const bool idle = ReportIdle();
    std::puts("");
    const bool delays = ReportDelays();
    return idle && delays ? 0 : 1;
}
