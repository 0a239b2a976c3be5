/**
 * @file payload.h
 * @brief What one exchange sends and receives: the payload of a command and the reply to it.
 *
 * Both live on the caller's stack and clear no more than an operation can read, for an exchange
 * must cost little more than its ioctl.
 */
#ifndef PAYLOAD_H
#define PAYLOAD_H

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>

/** The payload of one command, built byte by byte; each verb says its byte order. */
class Payload {
public:
    /** The longest payload that an operation builds: 252 bytes of header and data. */
    static constexpr std::size_t kRoom = 252;

    // Only the bytes put in are ever read, so the rest stays as it is.
    Payload() {}  // NOLINT(cppcoreguidelines-pro-type-member-init,modernize-use-equals-default)

    Payload& Byte(unsigned long value) {
        assert(length_ < kRoom);
        bytes_[length_++] = static_cast<unsigned char>(value);
        return *this;
    }
    Payload& HighFirst(unsigned short value) { return Byte(value >> 8U).Byte(value); }
    Payload& LowFirst(unsigned short value) { return Byte(value).Byte(value >> 8U); }
    Payload& LowFirst32(unsigned long value) {
        return Byte(value).Byte(value >> 8U).Byte(value >> 16U).Byte(value >> 24U);
    }
    Payload& Bytes(const unsigned char* data, std::size_t length) {
        assert(length <= kRoom - length_);
        std::memcpy(bytes_ + length_, data, length);
        length_ += length;
        return *this;
    }
    template <std::size_t kLength>
    Payload& Bytes(const unsigned char (&data)[kLength]) {
        return Bytes(data, kLength);
    }

    unsigned char* Data() { return bytes_; }
    [[nodiscard]] unsigned long Length() const { return length_; }

private:
    unsigned char bytes_[kRoom];
    unsigned long length_ = 0;
};

/**
 * The reply to one command, received into a buffer of our own that is longer than any reply of a
 * board. A byte that did not arrive reads as 0.
 */
class Reply {
public:
    static constexpr std::size_t kRoom = 256;

    /** As much as any operation decodes byte by byte. */
    static constexpr std::size_t kDecoded = 32;

    Reply() : Reply(kDecoded) {}

    [[nodiscard]] unsigned char Byte(std::size_t position) const {
        assert(position < kDecoded);
        return position < length_ ? bytes_[position] : static_cast<unsigned char>(0);
    }
    [[nodiscard]] unsigned short HighFirst(std::size_t position) const {
        return static_cast<unsigned short>(Byte(position) << 8U | Byte(position + 1));
    }
    [[nodiscard]] unsigned short LowFirst(std::size_t position) const {
        return static_cast<unsigned short>(Byte(position + 1) << 8U | Byte(position));
    }
    [[nodiscard]] unsigned int LowFirst32(std::size_t position) const {
        return static_cast<unsigned int>(LowFirst(position + 2)) << 16U | LowFirst(position);
    }
    /** Fills a field of fixed length; what did not arrive becomes 0. */
    template <std::size_t kLength>
    void Decode(std::size_t position, unsigned char (&field)[kLength]) const {
        for (std::size_t i = 0; i < kLength; ++i)
            field[i] = Byte(position + i);
    }
    [[nodiscard]] unsigned long Length() const { return length_; }

protected:
    [[nodiscard]] const unsigned char* Data() const { return bytes_; }
    explicit Reply(std::size_t cleared) {
        assert(cleared <= kRoom);
        std::memset(bytes_, 0, cleared);
    }

private:
    friend class KBaseImplementation;

    unsigned char bytes_[kRoom];
    // Set by the transport; the driver may claim more than there is room for, so an exchange cuts
    // it to kRoom before anyone reads it.
    unsigned long length_ = 0;
};

/**
 * A reply that can be copied, too. No more is than was cleared: the driver may claim bytes that it
 * did not write, and the caller would get what lay on the stack.
 */
class CopiedReply : public Reply {
public:
    static CopiedReply OfAnyLength() { return CopiedReply(kRoom); }
    static CopiedReply UpTo(std::size_t most) { return CopiedReply(std::max(most, kDecoded)); }
    using Reply::Data;

    /** Copies what arrived, at most `most` bytes, and says how much that was. */
    std::size_t CopyTo(unsigned char* target, std::size_t most) const {
        const std::size_t copied = std::min({std::size_t{Length()}, most, cleared_});
        std::memcpy(target, Data(), copied);
        return copied;
    }

private:
    explicit CopiedReply(std::size_t cleared) : Reply(cleared), cleared_(cleared) {}

    std::size_t cleared_;
};

#endif  // PAYLOAD_H
