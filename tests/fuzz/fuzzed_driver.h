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
#include <optional>
#include <vector>

#include "testing/transfer_records.h"

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

/** What an operation may do, beyond which it is at fault. */
struct Kind {
    unsigned most;            // exchanges
    unsigned answered;        // from the input; from then on accepted, with empty replies
    bool goesOnAfterFailure;  // otherwise the first exchange that fails must be the last
    bool keepsOutputs;        // when it fails
    bool alwaysAsks;          // to succeed
};

/** What has come of an operation so far. */
struct Progress {
    unsigned exchanges = 0;
    int error = 0;                         // of the last exchange
    std::size_t length = 0;                // of its reply
    std::size_t asked = 0;                 // by it, if it is a memory read
    std::vector<unsigned char> delivered;  // by all that were accepted
    std::size_t deliveredBefore = 0;       // by all but the last of them
    unsigned bare = 0;                     // accepted ones in a row, up to the last, without data
    std::size_t header = 0;                // bytes at the start of a reply that do not count
};

class FuzzedDriver : public Progress {
public:
    void BeginOperation(InputBytes& input, const char* name, const Kind& kind) {
        static_cast<Progress&>(*this) = {};
        input_ = &input;
        operation_ = name;
        kind_ = kind;
    }
    /** Ends the program with what is wrong, for the fuzzer to keep the input. */
    void Require(bool holds, const char* what) const;
    /** A byte of the last reply; those that did not arrive are 0. */
    [[nodiscard]] unsigned char Arrived(std::size_t i) const {
        return i < length ? reply_[i] : static_cast<unsigned char>(0);
    }
    int Transfer(K40Record& record);
    int Transfer(K44Record& record);

private:
    struct Answer {
        bool refused = false;
        std::int32_t status = 0;
        unsigned echo = 0;  // laid over the command
        unsigned char bytes[256] = {};
        std::size_t written = 0;
        std::optional<std::uint64_t> claimed = {};  // when it is not honest
    };
    Answer Next(unsigned char command, const unsigned char* payload);
    void ChooseReply(unsigned shape, Answer& answer);
    int Conclude(const Answer& answer, int failure, std::size_t replyLength);

    InputBytes* input_ = nullptr;
    const char* operation_ = "";
    Kind kind_ = {};
    unsigned char reply_[256] = {};
};

extern FuzzedDriver& driver;

#endif  // FUZZED_DRIVER_H
