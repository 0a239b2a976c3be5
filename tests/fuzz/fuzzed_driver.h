/**
 * @file fuzzed_driver.h
 * @brief A kernel driver whose every answer comes from the fuzzer's input.
 *
 * It writes no more than a real one could: 256 bytes into the reply of a K44 or K50, and into the
 * record of a K40; what it claims about them is another matter. It says what each exchange has to
 * lead to, and keeps what the accepted ones delivered.
 */
#ifndef FUZZED_DRIVER_H
#define FUZZED_DRIVER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "shared_entries.h"
#include "transfer_records.h"

/** Devices 0 to 5: K40, K44 and K50 in turn, three at 480 and three at 12 Mbit/s. */
constexpr int kBoardCount = 6;

/** The fuzzer's input, taken from the front; used up, it yields zeroes. */
class InputBytes {
public:
    InputBytes(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    [[nodiscard]] bool Empty() const { return next_ == end_; }
    void Fill(void* target, std::size_t length);
    template <class Number>
    Number Take() {
        Number number = 0;
        Fill(&number, sizeof number);
        return number;
    }
    unsigned Byte() { return Take<std::uint8_t>(); }
    /** One of several, by one byte. */
    template <class Choice, std::size_t kCount>
    const Choice& Pick(const Choice (&choices)[kCount]) {
        return choices[Byte() % kCount];
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

/** What an operation may do in exchanges, beyond which it is at fault. */
struct ExchangeLimits {
    unsigned most;
    unsigned answered;        // from the input; from then on accepted, with empty replies
    bool goesOnAfterFailure;  // otherwise the first exchange that fails must be the last
};

/** A board's timestamped bytes in the shared segment. */
struct StoredBytes {
    std::uint16_t count, readIndex;
    unsigned char bytes[256];
};

class FuzzedDriver {
public:
    static FuzzedDriver& Instance();

    /** Only this device exists while the input lasts. */
    void Begin(InputBytes& input, int deviceNo);
    void BeginOperation(const char* name, const ExchangeLimits& limits);
    /** So many bytes at the start of every reply are not delivered to the caller. */
    void LeaveOut(std::size_t header) { header_ = header; }

    /** Ends the program with what is wrong, for the fuzzer to keep the input. */
    void Require(bool holds, const char* what) const;

    [[nodiscard]] unsigned Exchanges() const { return exchanges_; }
    // Of the last exchange.
    [[nodiscard]] bool Accepted() const { return error_ == 0; }
    [[nodiscard]] int Error() const { return error_; }
    [[nodiscard]] std::size_t Length() const { return length_; }
    [[nodiscard]] std::size_t Asked() const { return asked_; }
    /** A byte of its reply; those that did not arrive are 0. */
    [[nodiscard]] unsigned char Arrived(std::size_t i) const {
        return i < length_ ? reply_[i] : static_cast<unsigned char>(0);
    }
    /** What the operation's accepted exchanges delivered, and all but the last of them. */
    [[nodiscard]] const std::vector<unsigned char>& Delivered() const { return delivered_; }
    [[nodiscard]] std::size_t DeliveredBefore() const { return deliveredBefore_; }

    // What another program may write into the board's entries of the shared segment; both yield 1.
    int StoreBytes();
    int StoreEeprom();
    [[nodiscard]] StoredBytes LookAtStoredBytes() const;

    // The system calls
    [[nodiscard]] const char* Attribute(const char* path) const;
    int Transfer(K40Record& record);
    int Transfer(K44Record& record);

    SharedEntries receivedBytes = SharedEntries::OfReceivedBytes();
    SharedEntries eeproms = SharedEntries::OfEeproms();

private:
    struct Answer {
        bool refused = false;
        std::int32_t status = 0;
        unsigned echo = 0;  // laid over the command
        unsigned char bytes[256] = {};
        std::size_t written = 0;
        bool honest = true;
        std::uint64_t claimed = 0;  // when it is not honest
    };
    Answer Next(unsigned char command, const unsigned char* payload);
    void ChooseReply(unsigned shape, Answer& answer);
    void ChooseFate(unsigned fate, Answer& answer);
    int Conclude(const Answer& answer, int error, std::size_t length);

    InputBytes* input_ = nullptr;
    int deviceNo_ = -1;
    const char* operation_ = "";
    ExchangeLimits limits_ = {};
    std::size_t header_ = 0;
    unsigned exchanges_ = 0;
    int error_ = 0;
    std::size_t length_ = 0;
    std::size_t asked_ = 0;  // by a memory read, else 0
    unsigned char reply_[256] = {};
    std::vector<unsigned char> delivered_;
    std::size_t deliveredBefore_ = 0;
};

#endif  // FUZZED_DRIVER_H
