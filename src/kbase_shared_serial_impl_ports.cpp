/**
 * @file kbase_shared_serial_impl_ports.cpp
 * @brief Line parameters of the serial ports, and moving bytes and words through them.
 */
#include <algorithm>
#include <atomic>

#include "kbase_implementation.h"

namespace {

struct Rate {
    unsigned long baud;
    unsigned char byte4, byte5;
};

// clang-format off
constexpr Rate kPort0Rates[] = {
    { 1200, 0x98, 0x00}, { 2400, 0x64, 0x01}, { 4800, 0xB2, 0x01}, { 9600, 0xD9, 0x01},
    {19200, 0xEC, 0x01}, {38400, 0xF6, 0x01}, {62500, 0xFA, 0x01},
};
constexpr Rate kPort1Rates[] = {
    {  110, 0xBB, 0xCA}, {  300, 0x78, 0xEC}, {  600, 0x3C, 0xF6}, { 1200, 0x1F, 0xFB},
    { 2400, 0x8F, 0xFD}, { 4800, 0xC8, 0xFE}, { 9600, 0x64, 0xFF}, {14400, 0x98, 0xFF},
    {19200, 0xB2, 0xFF}, {38400, 0xD8, 0xFF}, {57600, 0xE6, 0xFF}, {62500, 0xE8, 0xFF},
};
// clang-format on

template <std::size_t kCount>
const Rate* FindRate(const Rate (&rates)[kCount], unsigned long baud) {
    const auto* rate = std::find_if(std::begin(rates), std::end(rates),
                                    [baud](const Rate& known) { return known.baud == baud; });
    return rate == std::end(rates) ? nullptr : rate;
}

const Rate* FindRate(_usbSerialPort port, unsigned long baud) {
    return port == USB_SERIAL_PORT_0 ? FindRate(kPort0Rates, baud) : FindRate(kPort1Rates, baud);
}

constexpr unsigned char kParityOfType0 = 5;

unsigned char ParityCode(unsigned char parity) {
    switch (parity) {
        case 1:
            return 2;
        case 2:
            return 1;
        case kParityOfType0:
            return 3;
        default:
            return 0;
    }
}

/** Turns words that arrived high byte first into the processor's. */
void FromHighFirst(unsigned short* words, unsigned long count) {
    for (unsigned long i = 0; i < count; ++i) {
        words[i] = static_cast<unsigned short>(words[i] << 8U | words[i] >> 8U);
    }
}

/** What is sent, and how a chunk of it, in bytes, goes into a payload. */
struct SerialSource {
    const void* data;
    void (*append)(Payload& payload, const void* data, unsigned long done, unsigned long chunk);
};

int SendChunks(KBaseImplementation& board, _usbSerialPort port, unsigned long bytes,
               const SerialSource& source) {
    unsigned char speed = 0;
    board.GetBoardSpeed(&speed);
    const unsigned long longest = kSerialSendChunk.At(speed);
    for (unsigned long done = 0; done < bytes;) {
        const unsigned long chunk = std::min(bytes - done, longest);
        Payload payload;
        source.append(payload, source.data, done, chunk);
        if (!board.ExchangeWithPort(port, serial_commands::kSend, payload)) return 0;
        done += chunk;
    }
    return 1;
}

// One for the process, whatever board and object; only port 0 is sent it.
constinit std::atomic<unsigned char> message_id = 0;

int FetchReceived(KBaseImplementation& board, _usbSerialPort port, Reply& reply) {
    if (port == USB_SERIAL_PORT_1) {
        return board.ExchangeWithPort(port, serial_commands::kReceive, reply);
    }
    Payload payload;
    payload.Byte(message_id.fetch_add(1, std::memory_order_relaxed));
    return board.ExchangeWithPort(port, serial_commands::kReceive, payload, reply);
}

unsigned long LongestReply(KBaseImplementation& board) {
    unsigned char type = 0;
    board.GetBoardType(&type);
    return type == static_cast<unsigned char>(BoardType::kK40) ? kK40LongestReply : Reply::kRoom;
}

/** Where received bytes go. The capacity is in bytes; in words, a half one may be kept. */
struct ReceiveRoom {
    unsigned char* buffer;
    unsigned long capacity;
    bool inWords;
    std::atomic<int>& keptByte;
};
enum class Received { kFailed, kSome, kAll };

/** Fetches until nothing comes, or another reply may not fit. */
Received ReceiveBytes(KBaseImplementation& board, _usbSerialPort port, ReceiveRoom room,
                      unsigned long* length) {
    // Counted apart from *length, which the application can reach: no place depends on it.
    unsigned long done = 0;
    // What an earlier call read ahead comes first.
    if (const int kept = room.keptByte.exchange(KBaseImplementation::kNothingKept);
        kept != KBaseImplementation::kNothingKept) {
        room.buffer[done++] = static_cast<unsigned char>(kept);
    }
    const unsigned long longest = LongestReply(board);
    // Half a word more than fits can be kept for the next call.
    while (longest <= room.capacity - done + (room.inWords ? done % 2 : 0)) {
        *length = done;
        CopiedReply reply = CopiedReply::OfAnyLength();
        if (!FetchReceived(board, port, reply)) return Received::kFailed;
        if (reply.Length() == 0) return Received::kAll;

        const unsigned long copied = reply.CopyTo(room.buffer + done, room.capacity - done);
        if (copied < reply.Length()) room.keptByte = reply.Data()[copied];
        done += copied;
    }
    *length = done;
    return Received::kSome;
}

}  // namespace

int KBaseImplementation::SetConfig(_usbSerialPort port, _DCB* dcb, _usbPortType type) {
    if (dcb == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (static_cast<unsigned>(type) > USB_PORT_TYPE_3) return Fail(USB_ERR_BAD_PORT_TYPE);
    // The record is read once: what is checked is what is sent.
    const _DCB line = *dcb;
    if (line.Parity == kParityOfType0 && type != USB_PORT_TYPE_0)
        return Fail(USB_ERR_BAD_PORT_TYPE);
    if (!IsPort(port)) return Fail(USB_ERR_BAD_PORT_TYPE);
    const Rate* rate = FindRate(port, line.BaudRate);
    if (rate == nullptr) return Fail(USB_ERR_BAD_BAUD_RATE);

    Payload payload;
    payload.Byte(static_cast<unsigned>(type)).Byte(ParityCode(line.Parity));
    payload.Byte(line.Flags >> 2U & 3U).Byte(line.Flags >> 1U & 1U);
    payload.Byte(rate->byte4).Byte(rate->byte5);
    if (!ExchangeWithPort(port, serial_commands::kSetConfig, payload)) return 0;

    serialPortConfigured[port].store(1, std::memory_order_relaxed);
    return 1;
}

int KBaseImplementation::Send(_usbSerialPort port, unsigned char* data, unsigned int length) {
    if (data == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    return SendChunks(
        *this, port, length,
        {data, [](Payload& payload, const void* from, unsigned long done, unsigned long chunk) {
             payload.Bytes(static_cast<const unsigned char*>(from) + done, chunk);
         }});
}

int KBaseImplementation::Send9BitData(_usbSerialPort port, unsigned short* words,
                                      unsigned int count) {
    if (words == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    return SendChunks(
        *this, port, 2UL * count,
        {words, [](Payload& payload, const void* from, unsigned long done, unsigned long chunk) {
             const auto* next = static_cast<const unsigned short*>(from) + done / 2;
             for (unsigned long i = 0; i < chunk / 2; ++i)
                 payload.HighFirst(next[i]);
         }});
}

int KBaseImplementation::Receive(_usbSerialPort port, unsigned char* buffer,
                                 unsigned long* length) {
    if (length == nullptr || buffer == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    const ReceiveRoom unlimited{buffer, kUnlimited, false, keptByte[port]};
    return ReceiveBytes(*this, port, unlimited, length) != Received::kFailed;
}

int KBaseImplementation::ReceiveEx(_usbSerialPort port, unsigned char* buffer,
                                   unsigned long capacity, unsigned long* length) {
    if (length == nullptr || buffer == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;
    if (capacity < LongestReply(*this)) return Fail(USB_ERR_OUT_OF_RANGE);

    const ReceiveRoom room{buffer, std::min(capacity, kUnlimited), false, keptByte[port]};
    return ReceiveBytes(*this, port, room, length) != Received::kFailed;
}

int KBaseImplementation::Receive9BitData(_usbSerialPort port, unsigned short* words,
                                         unsigned long* count) {
    if (count == nullptr || words == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    *count = 0;
    unsigned long bytes = 0;
    if (!Receive(port, reinterpret_cast<unsigned char*>(words), &bytes)) return 0;
    *count = bytes / 2;
    FromHighFirst(words, *count);
    return 1;
}

int KBaseImplementation::Receive9BitDataEx(_usbSerialPort port, unsigned short* words,
                                           unsigned long capacity, unsigned long* count) {
    if (count == nullptr || words == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;
    if (capacity < LongestReply(*this) / 2) return Fail(USB_ERR_OUT_OF_RANGE);

    auto* buffer = reinterpret_cast<unsigned char*>(words);
    const ReceiveRoom room{buffer, 2 * std::min(capacity, kUnlimited / 2), true, keptByte[port]};
    unsigned long bytes = 0;
    const Received received = ReceiveBytes(*this, port, room, &bytes);
    // Where more may come, half a word waits for its other half.
    if (received != Received::kAll && bytes % 2 != 0) keptByte[port] = buffer[bytes - 1];
    *count = bytes / 2;
    FromHighFirst(words, *count);
    return received != Received::kFailed;
}

int KBaseImplementation::GetParityErrors(_usbSerialPort port, unsigned short* count) {
    if (count == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    Reply reply;
    if (!ExchangeWithPort(port, serial_commands::kGetParityErrors, reply)) return 0;

    *count = reply.HighFirst(0);
    return 1;
}
