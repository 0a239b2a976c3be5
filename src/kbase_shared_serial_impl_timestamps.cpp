/**
 * @file kbase_shared_serial_impl_timestamps.cpp
 * @brief Receiving byte by byte with the board's timestamps, through the shared buffers.
 *
 * A board has one entry in "K40BUFFERS", for both ports and all processes, which holds the bytes
 * of the last fetch until they are handed out. Other programs can write there: indices that make
 * no sense count as an empty entry. Only an empty entry is filled, and its indices change last, so
 * that a process that is killed in between leaves no bytes that never came.
 */
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "kbase_implementation.h"
#include "kbase_shared_serial_impl.h"

namespace {

using ReceiveEntries = SharedProxy<K40BUFFER[kDeviceCount]>;

constexpr unsigned kLongestRecord = 3;

/** An entry as this process reads it, once, and bounded. */
class TimestampedBytes {
public:
    explicit TimestampedBytes(K40BUFFER& entry) : entry_(entry) {
        const std::uint32_t both = Indices().load();
        count_ = both & 0xFFFFU;
        readIndex_ = both >> 16U;
        if (count_ > sizeof entry_.bytes || readIndex_ > count_) Store(0, 0);
    }

    [[nodiscard]] bool Empty() const { return readIndex_ == count_; }
    [[nodiscard]] unsigned Count() const { return count_; }

    /** The claimed length counts modulo 256, whatever is there to copy. */
    void Fill(const unsigned char (&bytes)[256], unsigned long claimed) {
        std::memcpy(entry_.bytes, bytes, std::min<unsigned long>(claimed, sizeof bytes));
        Store(static_cast<unsigned>(claimed % 256), 0);
    }
    /**
     * Takes what is left of a record of `wanted` bytes, and yields how many that was. In one
     * store, for a process that is killed must not leave half a record to the next one.
     */
    unsigned Take(unsigned char (&record)[kLongestRecord], unsigned wanted) {
        const unsigned taken = std::min(wanted, count_ - readIndex_);
        std::memcpy(record, entry_.bytes + readIndex_, taken);
        Store(count_, readIndex_ + taken);
        return taken;
    }

private:
    static_assert(offsetof(K40BUFFER, count) == 0 && offsetof(K40BUFFER, readIndex) == 2);

    // Both change in one store.
    std::atomic_ref<std::uint32_t> Indices() {
        return std::atomic_ref<std::uint32_t>(reinterpret_cast<std::uint32_t&>(entry_));
    }
    void Store(unsigned count, unsigned readIndex) {
        count_ = count;
        readIndex_ = readIndex;
        Indices().store(count | readIndex << 16U);
    }

    K40BUFFER& entry_;
    unsigned count_ = 0;
    unsigned readIndex_ = 0;
};

int FetchTimestamped(KBaseImplementation& board, _usbSerialPort port, K40BUFFER& entry) {
    TimestampedBytes bytes(entry);
    if (!bytes.Empty()) return 1;

    unsigned char fetched[256] = {};
    unsigned long claimed = 0;
    if (!board.PerformUSBIO(serial_commands::kReceiveTimestamped,
                            KBaseImplementation::ChannelOf(port), nullptr, 0, fetched, &claimed)) {
        return 0;
    }
    bytes.Fill(fetched, claimed);
    return 1;
}

template <class Data>
int ReceiveTimestamped(KBaseImplementation& board, _usbSerialPort port, Data* data,
                       unsigned char* timestamp, unsigned int* received) {
    const ReceiveEntries entries(SharedserialRxBuffer);
    if (data == nullptr || timestamp == nullptr || received == nullptr) {
        return Fail(USB_ERR_NULL_POINTER);
    }
    if (!board.CheckPort(port)) return 0;
    K40BUFFER* entry = entries.Find(board.GetDeviceNo());
    if (entry == nullptr) return FailWithout(SharedserialRxBuffer);
    if (!FetchTimestamped(board, port, *entry)) return 0;

    TimestampedBytes bytes(*entry);
    const bool timestampAlone = bytes.Count() == 1;
    // A record is the data, high byte first, and its timestamp; the last may be cut short.
    constexpr unsigned kDataBytes = sizeof(Data);
    unsigned char record[kLongestRecord] = {};
    const unsigned taken = bytes.Take(record, timestampAlone ? 1 : kDataBytes + 1);
    if (taken == 0 || timestampAlone) {
        if (taken > 0) *timestamp = record[0];
        *received = 0;
        return 1;
    }
    *data = kDataBytes == 1 ? record[0] : static_cast<Data>(record[0] << 8U | record[1]);
    if (taken > kDataBytes) *timestamp = record[kDataBytes];
    *received = 1;
    return 1;
}

}  // namespace

int KBaseImplementation::ReceiveByteWithTimestamp(_usbSerialPort port, unsigned char* data,
                                                  unsigned char* timestamp,
                                                  unsigned int* received) {
    return ReceiveTimestamped(*this, port, data, timestamp, received);
}

int KBaseImplementation::ReceiveByteWithTimestamp9BitData(_usbSerialPort port, unsigned short* data,
                                                          unsigned char* timestamp,
                                                          unsigned int* received) {
    return ReceiveTimestamped(*this, port, data, timestamp, received);
}
