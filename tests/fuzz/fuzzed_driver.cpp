/**
 * @file fuzzed_driver.cpp
 * @brief The fuzzed driver, and the system calls that it takes over.
 */
#include "fuzzed_driver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kLongestK40Reply = 62;

/** Lengths at which something may break: limits of replies, chunks and number types. */
constexpr std::uint64_t kClaims[] = {
    0,          1,     2,          3,          4,          7,          8,
    57,         58,    59,         60,         61,         62,         63,
    64,         65,    66,         252,        253,        254,        255,
    256,        257,   258,        511,        512,        513,        528,
    65535,      65536, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 1UL << 32U, (1UL << 32U) + 4,
    1UL << 63U, ~1UL,  ~0UL,
};

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsMemoryRead(unsigned char command) {
    return command == 5 || command == 70 || command == 116;
}

}  // namespace

void InputBytes::Fill(void* target, std::size_t length) {
    const std::size_t taken = std::min(length, static_cast<std::size_t>(end_ - next_));
    std::memset(static_cast<unsigned char*>(target) + taken, 0, length - taken);
    std::memcpy(target, next_, taken);
    next_ += taken;
}

FuzzedDriver& FuzzedDriver::Instance() {
    // Never destroyed: it serves to the end of the process.
    static auto* driver = new FuzzedDriver;
    return *driver;
}

void FuzzedDriver::Begin(InputBytes& input, int deviceNo) {
    input_ = &input;
    deviceNo_ = deviceNo;
}

void FuzzedDriver::BeginOperation(const char* name, const ExchangeLimits& limits) {
    operation_ = name;
    limits_ = limits;
    header_ = exchanges_ = 0;
    error_ = 0;
    length_ = asked_ = 0;
    delivered_.clear();
    deliveredBefore_ = 0;
}

void FuzzedDriver::Require(bool holds, const char* what) const {
    if (holds) return;
    std::fprintf(stderr, "%s, device %d, %u exchanges: %s\n", operation_, deviceNo_, exchanges_,
                 what);
    std::abort();
}

int FuzzedDriver::StoreBytes() {
    // Mostly in or near the range in which the indices make sense.
    const unsigned range = input_->Byte() % 4 == 0 ? 65536 : 258;
    std::vector<std::uint8_t> entry(sizeof(StoredBytes), static_cast<std::uint8_t>(range));
    for (std::size_t at = 0; at < 4; at += 2) {
        const unsigned index = input_->Take<std::uint16_t>() % range;
        std::memcpy(entry.data() + at, &index, 2);
    }
    receivedBytes.Set(static_cast<std::size_t>(deviceNo_), entry);
    return 1;
}

int FuzzedDriver::StoreEeprom() {
    std::vector<std::uint8_t> entry(8);
    input_->Fill(entry.data(), entry.size());
    eeproms.Set(static_cast<std::size_t>(deviceNo_), entry);
    return 1;
}

StoredBytes FuzzedDriver::LookAtStoredBytes() const {
    StoredBytes stored;
    const auto entry = receivedBytes.Get(static_cast<std::size_t>(deviceNo_), sizeof stored);
    std::memcpy(&stored, entry.data(), sizeof stored);
    return stored;
}

void FuzzedDriver::ChooseReply(unsigned shape, Answer& answer) {
    InputBytes& input = *input_;
    if (shape < 3) {
        answer.written = input.Byte();
        input.Fill(answer.bytes, answer.written);
        return;
    }
    answer.written = shape == 3 ? asked_ : shape == 4 ? kLongestK40Reply : 256 - input.Byte();
    std::memset(answer.bytes, static_cast<int>(input.Byte()), answer.written);
    answer.honest = shape < 6;
    if (shape == 6) answer.claimed = input.Pick(kClaims);
    if (shape == 7) answer.claimed = input.Take<std::uint64_t>();
}

void FuzzedDriver::ChooseFate(unsigned fate, Answer& answer) {
    if (fate == 4) answer.status = input_->Take<std::int32_t>();
    if (fate == 5) answer.echo = input_->Byte();
    if (fate == 6) answer.refused = true;
    if (fate == 7) input_->Byte() % 2 == 0 ? StoreBytes() : StoreEeprom();
}

FuzzedDriver::Answer FuzzedDriver::Next(unsigned char command, const unsigned char* payload) {
    Require(error_ == 0 || limits_.goesOnAfterFailure, "goes on after a failure");
    Require(++exchanges_ <= limits_.most, "too many exchanges");

    asked_ = IsMemoryRead(command) ? payload[0] : 0;
    Answer answer;
    if (input_->Empty() || exchanges_ > limits_.answered) return answer;
    const unsigned control = input_->Byte();
    ChooseReply(control % 8, answer);
    ChooseFate(control / 8 % 8, answer);
    return answer;
}

int FuzzedDriver::Conclude(const Answer& answer, int error, std::size_t length) {
    error_ = answer.refused ? 6 : error;
    length_ = error_ == 0 ? length : 0;
    if (error_ == 0) {
        deliveredBefore_ = delivered_.size();
        delivered_.insert(delivered_.end(), reply_ + std::min(header_, length_), reply_ + length_);
    }
    errno = EIO;
    return answer.refused ? -1 : 0;
}

int FuzzedDriver::Transfer(K40Record& record) {
    const Answer answer = Next(record.data[0], record.data + 1);
    record.data[0] ^= static_cast<unsigned char>(answer.echo);
    record.data[1] = static_cast<unsigned char>(answer.status);
    std::memcpy(record.data + 2, answer.bytes, answer.written);
    record.readLength =
        static_cast<std::uint32_t>(answer.honest ? answer.written + 2 : answer.claimed);

    // What is claimed beyond what is written lies in the record already.
    std::memcpy(reply_, record.data + 2, sizeof reply_);
    const bool fits = record.readLength >= 2 && record.readLength <= kLongestK40Reply + 2;
    const auto status = static_cast<std::int8_t>(answer.status);
    return Conclude(answer, !fits ? 7 : answer.echo != 0 ? 6 : status, record.readLength - 2);
}

int FuzzedDriver::Transfer(K44Record& record) {
    const Answer answer = Next(record.command, record.request);
    *record.status = answer.status;
    std::memcpy(record.reply, answer.bytes, answer.written);
    *record.replyLength = answer.honest ? answer.written : answer.claimed;

    // What is claimed beyond what is written has to read as 0.
    std::memcpy(reply_, answer.bytes, sizeof reply_);
    return Conclude(answer, answer.status,
                    std::min<std::uint64_t>(*record.replyLength, sizeof reply_));
}

const char* FuzzedDriver::Attribute(const char* path) const {
    char folder[64];
    std::snprintf(folder, sizeof folder, "/sys/class/Kovar/Kovar_%d/", deviceNo_);
    if (std::strncmp(path, folder, std::strlen(folder)) != 0) return nullptr;
    const char* products[] = {"Marvane K40 Board", "Marvane K44 Board", "Marvane K50 Board"};
    if (std::strstr(path, "product") != nullptr) return products[deviceNo_ % 3];
    return deviceNo_ / 3 == 0 ? "480" : "12";
}

extern "C" {

int open(const char* path, int flags, ...) {
    if (std::strncmp(path, "/dev/Kovar_", 11) == 0) {
        static const int node = memfd_create("Kovar", MFD_CLOEXEC);
        return fcntl(node, F_DUPFD_CLOEXEC, 1);
    }
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    static auto* next = Next<int(const char*, int, ...)>("open");
    return next(path, flags, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
    if (std::strncmp(path, "/sys/class/Kovar/", 17) != 0) {
        static auto* next = Next<std::FILE*(const char*, const char*)>("fopen");
        return next(path, mode);
    }
    const char* text = FuzzedDriver::Instance().Attribute(path);
    if (text == nullptr) return nullptr;
    return fmemopen(const_cast<char*>(text), std::strlen(text), "r");
}

int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    FuzzedDriver& driver = FuzzedDriver::Instance();
    if (request == kK40Request) return driver.Transfer(*static_cast<K40Record*>(argument));
    if (request == kK44Request) return driver.Transfer(*static_cast<K44Record*>(argument));
    static auto* next = Next<int(int, unsigned long, ...)>("ioctl");
    return next(descriptor, request, argument);
}

}  // extern "C"
