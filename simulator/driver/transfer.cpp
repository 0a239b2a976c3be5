// Layout and bounds of the two transfer records. A client may pass anything: every length is
// bounded before it is used, every pointer is followed only through the testbed.
#include "driver/transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <type_traits>

namespace simulator {
namespace {

constexpr unsigned long kK40Request = 0xC2108100;
constexpr unsigned long kK44Request = 0x8400;  // K50 too
constexpr std::uint32_t kChannelCount = 7;
constexpr std::uint32_t kK40ReplyRoom = 64;

struct K40Record {
    std::uint32_t writeChannel;
    std::uint32_t readChannel;
    std::uint32_t writeLength;  // command byte and payload
    std::uint32_t readLength;   // room for the reply, then its length; echo and status included
    std::uint8_t data[512];     // command and payload, then echo, status and reply
};
static_assert(sizeof(K40Record) == 528);

struct K44Record {
    std::uint64_t status;  // pointer to 32 bits
    std::uint32_t channelIndex;
    std::uint32_t reserved;
    std::uint64_t request;  // pointer
    std::uint64_t requestLength;
    std::uint64_t reply;        // pointer
    std::uint64_t replyLength;  // pointer to 64 bits
    std::uint8_t command;
    std::uint8_t reservedEnd[7];
};
static_assert(sizeof(K44Record) == 56);
static_assert(offsetof(K44Record, command) == 48);

/// What a pointer at the offset leads to; null where it leads nowhere or the client is gone.
GOwned<UMockdevIoctlData> Follow(UMockdevIoctlData* data, std::size_t offset, std::size_t length) {
    return GOwned<UMockdevIoctlData>(umockdev_ioctl_data_resolve(data, offset, length, nullptr));
}

// The testbed passes it on to the client when the request is completed.
void Store(UMockdevIoctlData* data, const void* bytes, std::size_t length) {
    umockdev_ioctl_data_update(data, 0, static_cast<guint8*>(const_cast<void*>(bytes)),
                               static_cast<gint>(length));
}

template <class Record>
Record Copy(const UMockdevIoctlData* data) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record;
    std::memcpy(&record, data->data, sizeof record);
    return record;
}

int ReadK40(UMockdevIoctlData* argument, Transfer& transfer) {
    transfer.record = Follow(argument, 0, sizeof(K40Record));
    if (!transfer.record) return EFAULT;

    const auto record = Copy<K40Record>(transfer.record.get());
    transfer.command = record.data[0];
    transfer.channel = record.writeChannel;
    if (record.writeLength < 1 || record.writeLength > sizeof record.data) return EINVAL;
    transfer.payload.assign(record.data + 1, record.data + record.writeLength);

    if (record.writeChannel < 1 || record.writeChannel > kChannelCount) return EINVAL;
    if (record.readChannel != record.writeChannel) return EINVAL;
    return record.readLength == kK40ReplyRoom ? 0 : EINVAL;
}

int ReadK44(UMockdevIoctlData* argument, Transfer& transfer) {
    transfer.record = Follow(argument, 0, sizeof(K44Record));
    if (!transfer.record) return EFAULT;

    const auto record = Copy<K44Record>(transfer.record.get());
    transfer.command = record.command;
    transfer.channel = record.channelIndex + 1;
    if (record.requestLength > kPayloadLimit) return EINVAL;
    if (record.requestLength > 0) {
        if (record.request == 0) return EFAULT;
        const auto payload = Follow(transfer.record.get(), offsetof(K44Record, request),
                                    static_cast<std::size_t>(record.requestLength));
        if (!payload) return EFAULT;
        transfer.payload.assign(payload->data, payload->data + record.requestLength);
    }
    if (record.channelIndex >= kChannelCount) return EINVAL;
    return record.status == 0 || record.replyLength == 0 ? EFAULT : 0;
}

int WriteK40(const Transfer& transfer, const Outcome& outcome) {
    std::vector<std::uint8_t> reply = {outcome.echo,
                                       static_cast<std::uint8_t>(outcome.answer.status)};
    reply.insert(reply.end(), outcome.answer.reply.begin(), outcome.answer.reply.end());

    auto record = Copy<K40Record>(transfer.record.get());
    const std::size_t length = std::min<std::size_t>(record.readLength, reply.size());
    std::copy_n(reply.begin(), length, record.data);
    record.readLength = static_cast<std::uint32_t>(length);
    Store(transfer.record.get(), &record, offsetof(K40Record, data) + length);
    return 0;
}

// Stores the bytes where the record's pointer at the offset leads.
bool StoreAt(const Transfer& transfer, std::size_t offset, const void* bytes, std::size_t length) {
    const auto target = Follow(transfer.record.get(), offset, length);
    if (target) Store(target.get(), bytes, length);
    return target != nullptr;
}

int WriteK44(const Transfer& transfer, const Outcome& outcome) {
    const auto record = Copy<K44Record>(transfer.record.get());
    const auto& reply = outcome.answer.reply;
    const std::uint64_t length = reply.size();
    const std::int32_t status = outcome.answer.status;

    if (length > 0 && record.reply == 0) return EFAULT;
    const bool stored =
        (length == 0 || StoreAt(transfer, offsetof(K44Record, reply), reply.data(), length)) &&
        StoreAt(transfer, offsetof(K44Record, replyLength), &length, sizeof length) &&
        StoreAt(transfer, offsetof(K44Record, status), &status, sizeof status);
    return stored ? 0 : EFAULT;
}

}  // namespace

int ReadTransfer(Model model, UMockdevIoctlClient* client, Transfer& transfer) {
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    UMockdevIoctlData* argument = umockdev_ioctl_client_get_arg(client);
    if (request == kK40Request && model == Model::kK40) return ReadK40(argument, transfer);
    if (request == kK44Request && model != Model::kK40) return ReadK44(argument, transfer);
    return ENOTTY;
}

int WriteAnswer(Model model, const Transfer& transfer, const Outcome& outcome) {
    return model == Model::kK40 ? WriteK40(transfer, outcome) : WriteK44(transfer, outcome);
}

}  // namespace simulator
