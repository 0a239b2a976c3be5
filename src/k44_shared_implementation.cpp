/**
 * @file k44_shared_implementation.cpp
 * @brief What the K44 and K50 share, a transfer record of pointers and memory in pages of 16 KB, and
 *   the K44's own memory.
 */
#include "k44_shared_implementation.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "k44_implementation.h"

namespace {

constexpr unsigned long kTransferRequest = 0x8400;
constexpr int kHighestChannel = static_cast<int>(Channel::kSpi);

struct K44TransferRecord {
    std::int32_t* statusPtr;  // the driver stores the board's status there
    std::uint32_t channelIndex;
    std::uint32_t reserved;
    unsigned char* request;
    std::uint64_t requestLength;
    unsigned char* reply;
    unsigned long* replyLengthPtr;  // the driver stores the number of reply bytes there
    std::uint8_t command;
    std::uint8_t reservedTail[7];
};

static_assert(sizeof(K44TransferRecord) == 56);
static_assert(offsetof(K44TransferRecord, statusPtr) == 0);
static_assert(offsetof(K44TransferRecord, channelIndex) == 8);
static_assert(offsetof(K44TransferRecord, request) == 16);
static_assert(offsetof(K44TransferRecord, requestLength) == 24);
static_assert(offsetof(K44TransferRecord, reply) == 32);
static_assert(offsetof(K44TransferRecord, replyLengthPtr) == 40);
static_assert(offsetof(K44TransferRecord, command) == 48);
static_assert(sizeof(unsigned long) == 8);

void AppendPagedPlace(Payload& payload, unsigned long page, unsigned long address) {
    payload.Byte(0).Byte(page).LowFirst(static_cast<unsigned short>(address % kMemoryPageSize));
}

void AppendProgramPlace(Payload& payload, unsigned long address) {
    AppendPagedPlace(payload, kFirstProgramPage + address / kMemoryPageSize, address);
}

void AppendStoragePlace(Payload& payload, unsigned long address) {
    unsigned long page = kFirstStoragePage + address / kMemoryPageSize;
    if (page >= kFirstProgramPage) page += kProgramPageCount;
    AppendPagedPlace(payload, page, address);
}

}  // namespace

int k44_shared::PerformUSBIO(const KBaseImplementation& board, unsigned char command, int channel,
                             unsigned char* in, unsigned long inLen, unsigned char* out,
                             unsigned long* outLen) {
    if (outLen == nullptr || (in == nullptr && inLen > 0)) {
        return Fail(USB_ERR_NULL_POINTER);
    }
    if (channel > kHighestChannel) return Fail(USB_ERR_BAD_CHANNEL);

    std::int32_t status = 0;
    K44TransferRecord record = {};
    record.statusPtr = &status;
    record.channelIndex = static_cast<std::uint32_t>(channel) - 1;
    record.request = in;
    record.requestLength = inLen;
    record.reply = out;
    record.replyLengthPtr = outLen;
    record.command = command;

    // An exchange that a signal interrupted is not repeated: the board may have acted on it.
    if (ioctl(board.GetDeviceHandle(0), kTransferRequest, &record) != 0) {
        *outLen = 0;
        return board.FailExchange(Failure::Kind::kDriver, USB_ERR_TRANSFER_FAILED, command, channel,
                                  errno);
    }
    if (status != 0) {
        return board.FailExchange(Failure::Kind::kStatus, status, command, channel);
    }

    KBaseImplementation::ClearErrors();
    return 1;
}

MemoryAccess k44_shared::WriteAccess(int boardSpeed, bool programRuns) {
    return {commands::kWritePagedMemory, kPagedWriteChunk.At(boardSpeed), kMemoryPageSize,
            programRuns ? AppendStoragePlace : AppendProgramPlace};
}

MemoryAccess k44_shared::ReadAccess(int boardSpeed) {
    return {commands::kReadPagedMemory, kPagedReadChunk.At(boardSpeed), kMemoryPageSize,
            AppendStoragePlace};
}

int K44_Implementation::WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) {
    return CheckMemoryRange(kK44MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           WriteMemory(
               *this,
               k44_shared::WriteAccess(boardSpeed, hiCodeLoaded.load(std::memory_order_relaxed)),
               address, data, length);
}

int K44_Implementation::ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return CheckMemoryRange(kK44MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           ReadMemory(*this, k44_shared::ReadAccess(boardSpeed), address, data, length);
}
