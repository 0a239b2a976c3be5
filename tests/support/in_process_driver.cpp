/**
 * @file in_process_driver.cpp
 * @brief The in-process stand-in for the kernel driver, and the system calls that it takes over.
 */
#include "in_process_driver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "led_key_files.h"
#include "transfer_records.h"

namespace {

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool BelongsToBoards(const std::string& path) {
    return path.starts_with("/dev/Kovar_") || path.starts_with("/sys/class/Kovar");
}

std::string SysfsPath(int deviceNo, const std::string& attribute) {
    return "/sys/class/Kovar/Kovar_" + std::to_string(deviceNo) + "/device/" + attribute;
}

int Fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Exchange& exchange) {
    out << "{" << exchange.command << ", " << exchange.channel << ", {";
    for (const std::uint8_t byte : exchange.payload)
        out << static_cast<int>(byte) << ",";
    return out << "}}";
}

InProcessDriver& InProcessDriver::Instance() {
    // Never destroyed: handles in static objects close their devices at exit.
    static auto* driver = new InProcessDriver;
    return *driver;
}

InProcessDriver::InProcessDriver() {
    pthread_atfork([] { Instance().guard.lock(); }, [] { Instance().guard.unlock(); },
                   [] { Instance().guard.unlock(); });
}

void InProcessDriver::Reset() {
    const std::lock_guard lock(guard);
    boards.clear();
    nodes.clear();
    nodeErrors.clear();
    files.clear();
    queued.clear();
    answerer = nullptr;
    sent.clear();
    opened.clear();
    lastRecord.clear();
    lastRequest = 0;
    lastOpenFlags = 0;
}

simulator::Board& InProcessDriver::AddBoard(int deviceNo, simulator::Model model, int speedMbit) {
    simulator::BoardOptions options;
    options.model = model;
    options.speedMbit = speedMbit;
    options.firmwareRunning = true;
    SetFile(deviceNo, "product", simulator::ProductOf(model) + "\n");
    SetFile(deviceNo, "speed", std::to_string(speedMbit) + "\n");
    SetNode(deviceNo, true);

    const std::lock_guard lock(guard);
    boards[deviceNo] = std::make_unique<simulator::Board>(options);
    return *boards[deviceNo];
}

void InProcessDriver::SetFile(int deviceNo, const std::string& attribute,
                              std::optional<std::string> content) {
    const std::lock_guard lock(guard);
    files.erase(SysfsPath(deviceNo, attribute));
    if (content) files[SysfsPath(deviceNo, attribute)] = *content;
}

void InProcessDriver::SetNode(int deviceNo, bool present) {
    const std::lock_guard lock(guard);
    nodes[deviceNo] = present;
}

void InProcessDriver::RefuseNode(int deviceNo, int error) {
    const std::lock_guard lock(guard);
    nodeErrors[deviceNo] = error;
}

void InProcessDriver::AnswerNext(DriverAnswer answer) {
    const std::lock_guard lock(guard);
    queued.push_back(std::move(answer));
}

void InProcessDriver::AnswerWith(Answerer newAnswerer) {
    const std::lock_guard lock(guard);
    answerer = std::move(newAnswerer);
}

Exchanges InProcessDriver::Sent() const {
    const std::lock_guard lock(guard);
    return sent;
}

void InProcessDriver::ForgetSent() {
    const std::lock_guard lock(guard);
    sent.clear();
}

Bytes InProcessDriver::LastRecord() const {
    const std::lock_guard lock(guard);
    return lastRecord;
}

unsigned long InProcessDriver::LastRequest() const {
    const std::lock_guard lock(guard);
    return lastRequest;
}

int InProcessDriver::LastOpenFlags() const {
    const std::lock_guard lock(guard);
    return lastOpenFlags;
}

std::vector<int> InProcessDriver::OpenedDevices() const {
    const std::lock_guard lock(guard);
    return opened;
}

int InProcessDriver::OpenDescriptors() const {
    const std::lock_guard lock(guard);
    return static_cast<int>(descriptors.size());
}

std::optional<int> InProcessDriver::Open(const std::string& path, int flags) {
    if (!BelongsToBoards(path)) return std::nullopt;

    const std::lock_guard lock(guard);
    int deviceNo = -1;
    if (std::sscanf(path.c_str(), "/dev/Kovar_%d", &deviceNo) != 1 || !nodes[deviceNo]) {
        return Fail(ENOENT);
    }
    if (nodeErrors[deviceNo] != 0) return Fail(nodeErrors[deviceNo]);
    // One file per board, opened anew each time, so that flock works as on a node.
    int& node = nodeFiles[deviceNo];
    if (node == 0) node = memfd_create("Kovar", MFD_CLOEXEC);
    static auto* next = Next<int(const char*, int, ...)>("open");
    const int descriptor = next(("/proc/self/fd/" + std::to_string(node)).c_str(), flags);
    if (descriptor < 0) return -1;
    Note(descriptor, deviceNo);
    opened.push_back(deviceNo);
    lastOpenFlags = flags;
    return descriptor;
}

std::optional<std::FILE*> InProcessDriver::OpenFile(const std::string& path) {
    if (!BelongsToBoards(path)) return std::nullopt;

    const std::lock_guard lock(guard);
    const auto file = files.find(path);
    if (file == files.end()) {
        errno = ENOENT;
        return nullptr;
    }
    std::FILE* stream = std::tmpfile();
    if (stream == nullptr) return nullptr;
    std::fwrite(file->second.data(), 1, file->second.size(), stream);
    std::rewind(stream);
    return stream;
}

std::optional<int> InProcessDriver::Ioctl(int descriptor, unsigned long request, void* record) {
    int deviceNo = -1;
    {
        const std::lock_guard lock(guard);
        const auto known = descriptors.find(descriptor);
        if (known == descriptors.end()) return std::nullopt;
        deviceNo = known->second;
        const auto* bytes = static_cast<unsigned char*>(record);
        const std::size_t size = request == kK40Request ? sizeof(K40Record) : sizeof(K44Record);
        lastRecord.assign(bytes, bytes + size);
        lastRequest = request;
    }
    if (request == kK40Request) return TransferK40(deviceNo, *static_cast<K40Record*>(record));
    if (request == kK44Request) return TransferK44(deviceNo, *static_cast<K44Record*>(record));
    return Fail(ENOTTY);
}

void InProcessDriver::Duplicated(int descriptor, int copy) {
    const std::lock_guard lock(guard);
    if (const auto known = descriptors.find(descriptor); known != descriptors.end()) {
        Note(copy, known->second);
    }
}

void InProcessDriver::Note(int descriptor, int deviceNo) {
    descriptors[descriptor] = deviceNo;
    isBoards.at(static_cast<std::size_t>(descriptor)) = true;
}

void InProcessDriver::Close(int descriptor) {
    // Of others without the lock: whoever forks takes it before the one under which the library
    // closes key files.
    const auto index = static_cast<std::size_t>(descriptor);
    if (index >= isBoards.size() || !isBoards[index].exchange(false)) return;
    const std::lock_guard lock(guard);
    descriptors.erase(descriptor);
}

DriverAnswer InProcessDriver::Answer(int deviceNo, const Exchange& exchange) {
    Answerer answering;
    {
        const std::lock_guard lock(guard);
        sent.push_back(exchange);
        if (!queued.empty()) {
            DriverAnswer answer = std::move(queued.front());
            queued.pop_front();
            return answer;
        }
        answering = answerer;
        if (!answering) {
            if (!boards.contains(deviceNo) || !nodes[deviceNo]) return {.error = ENODEV};
            simulator::Answer answer = boards[deviceNo]->Handle(
                static_cast<std::uint8_t>(exchange.command),
                static_cast<std::uint32_t>(exchange.channel), exchange.payload);
            return {.status = answer.status, .reply = std::move(answer.reply)};
        }
    }
    return answering(exchange);  // without the lock: it may wait for another thread
}

int InProcessDriver::TransferK40(int deviceNo, K40Record& record) {
    constexpr std::uint32_t kReplyRoom = 64;
    if (record.writeLength < 1 || record.writeLength > sizeof record.data) return Fail(EINVAL);
    if (record.readChannel != record.writeChannel || record.readLength != kReplyRoom) {
        return Fail(EINVAL);
    }
    unsigned char* data = record.data;
    const DriverAnswer answer = Answer(deviceNo, {data[0], static_cast<int>(record.writeChannel),
                                                  Bytes(data + 1, data + record.writeLength)});
    if (answer.error != 0) return Fail(answer.error);

    const auto length = std::min<std::uint32_t>(static_cast<std::uint32_t>(answer.reply.size()) + 2,
                                                record.readLength);
    data[0] = answer.echo.value_or(data[0]);
    data[1] = static_cast<unsigned char>(answer.status);
    std::copy_n(answer.reply.begin(), length - 2, data + 2);
    record.readLength = static_cast<std::uint32_t>(answer.claimedLength.value_or(length));
    return 0;
}

int InProcessDriver::TransferK44(int deviceNo, K44Record& record) {
    const DriverAnswer answer =
        Answer(deviceNo, {record.command, static_cast<int>(record.channelIndex) + 1,
                          Bytes(record.request, record.request + record.requestLength)});
    if (answer.error != 0) return Fail(answer.error);

    *record.status = answer.status;
    if (record.reply != nullptr) std::copy(answer.reply.begin(), answer.reply.end(), record.reply);
    *record.replyLength = answer.claimedLength.value_or(answer.reply.size());
    return 0;
}

// The calls themselves. Every name under which the library could reach a file or a device.

extern "C" {

int open(const char* path, int flags, ...) {
    path = led_key_files::Lead(path);
    if (const auto taken = InProcessDriver::Instance().Open(path, flags)) return *taken;
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    static auto* next = Next<int(const char*, int, ...)>("open");
    const int descriptor = next(path, flags, mode);
    const int error = errno;
    if (const auto& told = InProcessDriver::Instance().onOtherOpen) told(path);
    errno = error;
    return descriptor;
}

// On 64-bit Linux the two are one function.
int open64(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    return open(path, flags, mode);
}

int __open_2(const char* path, int flags) {
    return open(path, flags);
}

int __open64_2(const char* path, int flags) {
    return open(path, flags);
}

std::FILE* fopen(const char* path, const char* mode) {
    if (const auto taken = InProcessDriver::Instance().OpenFile(path)) return *taken;
    static auto* next = Next<std::FILE*(const char*, const char*)>("fopen");
    return next(led_key_files::Lead(path), mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return fopen(path, mode);
}

int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    if (const auto taken = InProcessDriver::Instance().Ioctl(descriptor, request, argument)) {
        return *taken;
    }
    static auto* next = Next<int(int, unsigned long, ...)>("ioctl");
    return next(descriptor, request, argument);
}

int fcntl(int descriptor, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    static auto* next = Next<int(int, int, ...)>("fcntl");
    const int result = next(descriptor, command, argument);
    const bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    if (copies && result >= 0) InProcessDriver::Instance().Duplicated(descriptor, result);
    return result;
}

int close(int descriptor) {
    InProcessDriver::Instance().Close(descriptor);
    static auto* next = Next<int(int)>("close");
    return next(descriptor);
}

}  // extern "C"
