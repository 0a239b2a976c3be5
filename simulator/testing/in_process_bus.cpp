/**
 * @file in_process_bus.cpp
 * @brief Nodes, sysfs files and exchanges of the boards in this process.
 */
#include "testing/in_process_bus.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "terms/model.h"
#include "testing/transfer_records.h"

namespace marvaneusb::testing {
namespace {

constexpr std::string_view kNodes = "/dev/Kovar_";
constexpr std::string_view kClass = "/sys/class/Kovar";
constexpr std::string_view kDevices = "/sys/class/Kovar/Kovar_";
constexpr std::string_view kAttributes = "/device/";
constexpr std::size_t kReplyRoom = 256;        // of a K44 or K50
constexpr std::size_t kMostRequest = 1 << 20;  // that a test sees; a board takes far less

int Fail(int error) {
    errno = error;
    return -1;
}

/** Takes the number off the text's front; -1 when it is none of a board. */
int TakeDeviceNo(std::string_view& text) {
    int number = -1;
    const char* stop = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
    if (number < 0 || number >= simulator::kDeviceCount) return -1;
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return number;
}

std::FILE* FileHolding(const std::string& content) {
    const int descriptor = memfd_create("Kovar", MFD_CLOEXEC);
    std::FILE* file = descriptor < 0 ? nullptr : fdopen(descriptor, "w+");
    if (file == nullptr) return nullptr;
    std::fwrite(content.data(), 1, content.size(), file);
    std::rewind(file);
    return file;
}

}  // namespace

std::function<void(const std::string& path)> onOtherOpen;

InProcessBus& InProcessBus::Instance() {
    // Never destroyed: handles in static objects close their devices at exit.
    static auto* bus = new InProcessBus;
    return *bus;
}

InProcessBus::InProcessBus() {
    nodeFiles.fill(-1);
    pthread_atfork([] { Instance().guard.lock(); }, [] { Instance().guard.unlock(); },
                   [] { Instance().guard.unlock(); });
}

void InProcessBus::Reset() {
    const std::lock_guard lock(guard);
    devices.clear();
    nodes = {};
    queued.clear();
    answerer = nullptr;
    record = {};
}

void InProcessBus::Add(int deviceNo, simulator::BoardOptions options) {
    options.time = [this] { return record.now; };
    const std::lock_guard lock(guard);
    Node& node = nodes.at(static_cast<std::size_t>(deviceNo));
    node.present = true;
    node.files["product"] = simulator::ProductOf(options.model) + "\n";
    node.files["speed"] = std::to_string(options.speedMbit) + "\n";
    devices.erase(deviceNo);
    devices.try_emplace(deviceNo, deviceNo, std::move(options));
}

void InProcessBus::SetFile(int deviceNo, const std::string& attribute,
                           std::optional<std::string> content) {
    const std::lock_guard lock(guard);
    auto& files = nodes.at(static_cast<std::size_t>(deviceNo)).files;
    files.erase(attribute);
    if (content) files[attribute] = *std::move(content);
}

void InProcessBus::SetNode(int deviceNo, bool present) {
    const std::lock_guard lock(guard);
    nodes.at(static_cast<std::size_t>(deviceNo)).present = present;
}

void InProcessBus::RefuseNode(int deviceNo, int error) {
    const std::lock_guard lock(guard);
    nodes.at(static_cast<std::size_t>(deviceNo)).refusal = error;
}

void InProcessBus::AnswerNext(Answer answer) {
    const std::lock_guard lock(guard);
    queued.push_back(std::move(answer));
}

void InProcessBus::AnswerWith(Answerer newAnswerer) {
    const std::lock_guard lock(guard);
    answerer = std::move(newAnswerer);
}

void InProcessBus::Advance(std::chrono::milliseconds time) {
    const std::lock_guard lock(guard);
    record.now += time;  // boards follow when they are looked at
}

void InProcessBus::ForgetSent() {
    const std::lock_guard lock(guard);
    record.sent.clear();
}

int InProcessBus::OpenDescriptors() const {
    const std::lock_guard lock(guard);
    return static_cast<int>(descriptors.size());
}

bool InProcessBus::IsReached() {
    reached = false;
    // As the library's call is bound, past what the linker may have done to ours.
    auto* call = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_DEFAULT, "open"));
    call(kNodes.data(), O_RDONLY);
    return reached;
}

simulator::Device* InProcessBus::DeviceAt(int deviceNo) {
    const auto device = devices.find(deviceNo);
    return device == devices.end() ? nullptr : &device->second;
}

bool InProcessBus::IsThere(int deviceNo) {
    const simulator::Device* device = DeviceAt(deviceNo);
    return device == nullptr || device->IsPlugged();
}

std::optional<int> InProcessBus::Open(const char* path, int flags) {
    if (path == nullptr) return std::nullopt;
    std::string_view rest = path;
    if (!rest.starts_with(kNodes) && !rest.starts_with(kClass)) return std::nullopt;
    reached = true;
    if (!rest.starts_with(kNodes)) return Fail(ENOENT);
    rest.remove_prefix(kNodes.size());

    const std::lock_guard lock(guard);
    const int deviceNo = TakeDeviceNo(rest);
    if (deviceNo < 0 || !rest.empty()) return Fail(ENOENT);
    const auto index = static_cast<std::size_t>(deviceNo);
    if (!nodes[index].present || !IsThere(deviceNo)) return Fail(ENOENT);
    if (nodes[index].refusal != 0) return Fail(nodes[index].refusal);

    // One file per board, opened anew each time, so that flock works as on a node.
    int& file = nodeFiles[index];
    if (file < 0) file = memfd_create("Kovar", MFD_CLOEXEC);
    using OpenCall = int(const char*, int, ...);
    static auto* next = reinterpret_cast<OpenCall*>(dlsym(RTLD_NEXT, "open"));
    const int descriptor = next(("/proc/self/fd/" + std::to_string(file)).c_str(), flags);
    if (descriptor < 0) return -1;
    const simulator::Device* device = DeviceAt(deviceNo);
    if (!Note(descriptor, {deviceNo, device == nullptr ? 0 : device->PlugCount()})) {
        close(descriptor);
        return Fail(EMFILE);
    }
    record.opened.push_back(deviceNo);
    record.lastOpenFlags = flags;
    return descriptor;
}

std::optional<std::FILE*> InProcessBus::OpenFile(const char* path) {
    if (path == nullptr) return std::nullopt;
    std::string_view rest = path;
    if (!rest.starts_with(kNodes) && !rest.starts_with(kClass)) return std::nullopt;

    const std::lock_guard lock(guard);
    errno = ENOENT;
    if (!rest.starts_with(kDevices)) return nullptr;
    rest.remove_prefix(kDevices.size());
    const int deviceNo = TakeDeviceNo(rest);
    if (deviceNo < 0 || !IsThere(deviceNo) || !rest.starts_with(kAttributes)) return nullptr;
    rest.remove_prefix(kAttributes.size());
    const auto& files = nodes[static_cast<std::size_t>(deviceNo)].files;
    const auto file = files.find(rest);
    return file == files.end() ? nullptr : FileHolding(file->second);
}

std::optional<int> InProcessBus::Ioctl(int descriptor, unsigned long request, void* argument) {
    Opened opened{};
    const bool isK40 = request == kK40Request;
    const bool isTransfer = isK40 || request == kK44Request;
    {
        const std::lock_guard lock(guard);
        const auto known = descriptors.find(descriptor);
        if (known == descriptors.end()) return std::nullopt;
        opened = known->second;
        record.lastRequest = request;
        if (!isTransfer) return Fail(ENOTTY);
        if (argument == nullptr) return Fail(EFAULT);
        const auto* bytes = static_cast<unsigned char*>(argument);
        record.lastRecord.assign(bytes, bytes + (isK40 ? sizeof(K40Record) : sizeof(K44Record)));
    }
    return isK40 ? TransferK40(opened, *static_cast<K40Record*>(argument))
                 : TransferK44(opened, *static_cast<K44Record*>(argument));
}

void InProcessBus::Duplicated(int descriptor, int copy) {
    const std::lock_guard lock(guard);
    if (const auto known = descriptors.find(descriptor); known != descriptors.end()) {
        Note(copy, known->second);
    }
}

bool InProcessBus::Note(int descriptor, Opened opened) {
    const auto index = static_cast<std::size_t>(descriptor);
    if (index >= isBoards.size()) return false;
    descriptors[descriptor] = opened;
    isBoards[index] = true;
    return true;
}

void InProcessBus::Close(int descriptor) {
    // Of others without the lock: whoever forks takes it before the one under which the library
    // closes key files.
    const auto index = static_cast<std::size_t>(descriptor);
    if (index >= isBoards.size() || !isBoards[index].exchange(false)) return;
    const std::lock_guard lock(guard);
    descriptors.erase(descriptor);
}

Answer InProcessBus::AnswerTo(const Opened& opened, const Exchange& exchange) {
    Answerer answering;
    {
        const std::lock_guard lock(guard);
        record.sent.push_back(exchange);
        const simulator::Device* device = DeviceAt(opened.deviceNo);
        if (device != nullptr &&
            (!device->IsPlugged() || device->PlugCount() != opened.plugCount)) {
            return {ENODEV};
        }
        if (!queued.empty()) {
            Answer answer = std::move(queued.front());
            queued.pop_front();
            return answer;
        }
        answering = answerer;
        if (!answering) return AskBoard(opened.deviceNo, exchange);
    }
    return answering(exchange);  // without the lock: it may wait for another thread
}

Answer InProcessBus::AskBoard(int deviceNo, const Exchange& exchange) {
    simulator::Device* device = DeviceAt(deviceNo);
    if (device == nullptr || !nodes[static_cast<std::size_t>(deviceNo)].present) return {ENODEV};
    simulator::Outcome outcome =
        device->Exchange(static_cast<std::uint8_t>(exchange.command),
                         static_cast<std::uint32_t>(exchange.channel), exchange.payload);
    record.now += outcome.delay;
    Answer answer{outcome.error, outcome.answer.status, std::move(outcome.answer.reply)};
    if (outcome.error == 0) answer.echo = outcome.echo;
    return answer;
}

int InProcessBus::TransferK40(const Opened& opened, K40Record& transfer) {
    constexpr std::uint32_t kRoom = 64;
    if (transfer.writeLength < 1 || transfer.writeLength > sizeof transfer.data) {
        return Fail(EINVAL);
    }
    if (transfer.readChannel != transfer.writeChannel || transfer.readLength != kRoom) {
        return Fail(EINVAL);
    }
    unsigned char* data = transfer.data;
    const Answer answer = AnswerTo(opened, {data[0], static_cast<int>(transfer.writeChannel),
                                            Bytes(data + 1, data + transfer.writeLength)});
    if (answer.error != 0) return Fail(answer.error);

    const auto length = std::min(answer.reply.size() + 2, std::size_t{kRoom});
    data[0] = answer.echo.value_or(data[0]);
    data[1] = static_cast<unsigned char>(answer.status);
    std::copy_n(answer.reply.begin(), length - 2, data + 2);
    transfer.readLength = static_cast<std::uint32_t>(answer.claimedLength.value_or(length));
    return 0;
}

int InProcessBus::TransferK44(const Opened& opened, K44Record& transfer) {
    if (transfer.requestLength > kMostRequest) return Fail(EINVAL);
    if (transfer.status == nullptr || transfer.replyLength == nullptr) return Fail(EFAULT);
    const unsigned char* request = transfer.request;
    if (request == nullptr && transfer.requestLength > 0) return Fail(EFAULT);
    const Answer answer =
        AnswerTo(opened, {transfer.command, static_cast<int>(transfer.channelIndex) + 1,
                          Bytes(request, request + transfer.requestLength)});
    if (answer.error != 0) return Fail(answer.error);

    const auto length = std::min(answer.reply.size(), kReplyRoom);
    *transfer.status = answer.status;
    if (transfer.reply != nullptr) std::copy_n(answer.reply.begin(), length, transfer.reply);
    *transfer.replyLength = answer.claimedLength.value_or(length);
    return 0;
}

}  // namespace marvaneusb::testing
