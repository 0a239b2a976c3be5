/**
 * @file failure.h
 * @brief What is known of the calling thread's last failure beyond its code, for DescribeFailure.
 *
 * Kept where a call fails, and put into words only when somebody asks: a success pays nothing.
 */
#ifndef FAILURE_H
#define FAILURE_H

#include <cstdarg>

#include "board_limits.h"
#include "shared_trouble.h"

/** Appends to a text of limited room; counts on when it is full. */
class TextLine {
public:
    TextLine(char* text, unsigned long capacity) : text_(text), capacity_(capacity) {}

    TextLine& Add(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /** A system's error, as a person reads it in the middle of a sentence. */
    TextLine& AddError(int error);
    [[nodiscard]] unsigned long Wanted() const { return wanted_; }

private:
    char* text_;
    unsigned long capacity_;
    unsigned long wanted_ = 0;
};

/** What was not to be had of the shared state. */
struct Absence {
    enum class Of : unsigned char { kProcess, kSegment, kObject, kSet };

    void Describe(TextLine& line) const;

    Of of = Of::kProcess;
    const char* object = "";  // that was wanted
    Trouble why = {};
};

/** A failed call, but for openings. */
struct Failure {
    enum class Kind : unsigned char {
        kNone,
        kCode,           // the code says it all
        kNoBoard,        // no board is open on the object
        kDriver,         // the driver refused the exchange
        kOtherEcho,      // a K40 answered another command
        kReplyLength,    // a K40's reply is of impossible length
        kEmptyReplies,   // more was to come, and nothing came
        kStatus,         // the board refused the command
        kNoSharedState,  // an object that processes share, or its lock, is not to be had
    };

    void Describe(TextLine& line) const;

    Kind kind = Kind::kNone;
    unsigned char command = 0;
    int code = 0;  // the last error
    int channel = 0;
    int deviceNo = 0;
    int systemError = 0;
    Absence missing = {};
};

/** Where opening a board ended. */
struct OpeningFailure {
    enum class Step : unsigned char {
        kProduct,        // its file cannot be read
        kOtherProduct,   // it is no board of ours
        kSpeed,          // its file cannot be read
        kOtherSpeed,     // it is none that we know
        kNode,           // it cannot be opened
        kMemory,         // none is left
        kFirmware,       // the board is open, and it failed beneath
        kEeprom,         // likewise
        kInputs,         // likewise
        kOtherIdentity,  // the board is another than the one that is wanted
    };

    void Describe(TextLine& line) const;
    /** The driver knows of no such board. */
    [[nodiscard]] bool IsAbsence() const;

    Step step = Step::kProduct;
    int deviceNo = 0;
    int systemError = 0;
    int identity = 0;
    char found[32] = {};  // what the file says
    Failure beneath = {};
};

/** The device numbers that one opening tried, and why each failed. */
class OpeningReport {
public:
    /** Of boards that are looked for by their identity. */
    void SetIdentity(int identity) { identity_ = identity; }
    void Add(const OpeningFailure& failure) {
        if (count_ < kDeviceCount) failures_[count_++] = failure;
    }
    void Describe(TextLine& line) const;

private:
    static constexpr int kAnyIdentity = -1;
    [[nodiscard]] const char* WhyNothingIsThere() const;

    int identity_ = kAnyIdentity;
    int count_ = 0;
    OpeningFailure failures_[kDeviceCount];
};

/** The calling thread's last failed call. */
class LastFailure {
public:
    static void Note(const Failure& failure) {
        last_ = failure;
        wasOpening_ = false;
    }
    static void NoteOpening(const OpeningReport& report) {
        openings_ = report;
        wasOpening_ = true;
    }
    static const Failure& Get() { return last_; }

    /** What was noted at a time, for a call that succeeds after some of its steps have failed. */
    struct Mark {
        Failure failure;
        bool wasOpening;
    };
    static Mark GetMark() { return {last_, wasOpening_}; }
    static void GoBackTo(const Mark& mark) {
        last_ = mark.failure;
        wasOpening_ = mark.wasOpening;
    }
    static void Forget() { Note({}); }

    static void Describe(TextLine& line);

private:
    // Constant initialisation and plain data: nothing runs when a thread begins or ends.
    static constinit thread_local Failure last_;
    static constinit thread_local OpeningReport openings_;
    static constinit thread_local bool wasOpening_;
};

/** Name and meaning of a code of the library; null for a status of the board. */
const char* TextOfCode(int code);

#endif  // FAILURE_H
