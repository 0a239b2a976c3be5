/**
 * @file marvaneusb.cpp
 * @brief MarvaneUSB: sharing, discovery and opening of a board.
 */
#include "marvaneusb.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "failure.h"
#include "k40_implementation.h"
#include "k44_implementation.h"
#include "k50_implementation.h"
#include "kbase_implementation.h"
#include "open_file.h"

#if !defined(__linux__) || !defined(__LP64__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "libmarvaneusb runs on 64-bit little-endian Linux only: the driver's records need it"
#endif

namespace {

constexpr std::size_t kSysfsPathRoom = 128;
constexpr std::size_t kSysfsTextRoom = 128;
constexpr std::size_t kDevicePathRoom = 32;
constexpr char kVersion[] = "1";
constexpr unsigned char kFirmwareRuns = 1;  // answer to kFirmwareStatus

using Opener = KBaseImplementation* (*)(MarvaneUSB*, int, char*, int, int);

template <class Model>
KBaseImplementation* CreateBoard(MarvaneUSB* owner, int handle, char* name, int speed, int number) {
    return new (std::nothrow) Model(owner, handle, name, speed, number);
}

struct Product {
    std::string_view text;
    Opener create;
};

// In the order in which they are tried.
constexpr Product kProducts[] = {
    {"Marvane K44 Board", CreateBoard<K44_Implementation>},
    {"Marvane K40 Board", CreateBoard<K40Implementation>},
    {"Marvane K50 Board", CreateBoard<K50_Implementation>},
};

struct Speed {
    std::string_view text;
    int code;
};

constexpr Speed kSpeeds[] = {{"12", kFullSpeed}, {"480", kHighSpeed}};

/** The start of a file that sysfs keeps about a board. */
class SysfsText {
public:
    SysfsText(int deviceNo, const char* attribute) {
        char path[kSysfsPathRoom];
        std::snprintf(path, sizeof path, "/sys/class/Kovar/Kovar_%d/device/%s", deviceNo,
                      attribute);
        const OpenFile file = OpenToRead(path);
        error_ = file ? 0 : errno;
        if (file) length_ = std::fread(text_, 1, sizeof text_, file.get());
    }

    /** Of opening the file; 0 when it could be read. */
    [[nodiscard]] int Error() const { return error_; }

    [[nodiscard]] bool BeginsWith(std::string_view wanted) const {
        return std::string_view(text_, length_).substr(0, wanted.size()) == wanted;
    }
    /** As much of the first line as there is room for; what no terminal should get becomes '?'. */
    template <std::size_t kRoom>
    void CopyFirstLine(char (&line)[kRoom]) const {
        std::size_t length = 0;
        for (; length < length_ && length < kRoom - 1 && text_[length] != '\n'; ++length) {
            const bool isPlain = text_[length] >= ' ' && text_[length] <= '~';
            line[length] = isPlain ? text_[length] : '?';
        }
        line[length] = '\0';
    }

private:
    int error_ = 0;
    char text_[kSysfsTextRoom];
    std::size_t length_ = 0;
};

/** The entry whose text the file begins with, or null. */
template <class Entry, std::size_t kCount>
const Entry* FindByText(const Entry (&entries)[kCount], const SysfsText& file) {
    for (const Entry& entry : entries) {
        if (file.BeginsWith(entry.text)) return &entry;
    }
    return nullptr;
}

int OpenDevice(int deviceNo) {
    char path[kDevicePathRoom];
    std::snprintf(path, sizeof path, "/dev/Kovar_%d", deviceNo);
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOCTTY;
    const int handle = open(path, kFlags);
    if (handle != 0) return handle;

    // A process without a standard input gets descriptor 0, which an open board never closes.
    const int higher = fcntl(handle, F_DUPFD_CLOEXEC, 1);
    const int error = errno;
    close(handle);
    errno = error;
    return higher;
}

/**
 * Keeps others, processes and objects, from detecting the EEPROM of the same board. Without it the
 * second of two first openings would go on with the part that the first one probes with.
 */
class NodeLock {
public:
    explicit NodeLock(int handle) : handle_(handle) {
        while (flock(handle_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    NodeLock(const NodeLock&) = delete;
    NodeLock& operator=(const NodeLock&) = delete;
    // Not left to closing: a child may have a copy of the descriptor.
    ~NodeLock() { flock(handle_, LOCK_UN); }

private:
    int handle_;
};

/** Opens one board on an object; why it failed goes into a report. */
class Opening {
public:
    Opening(MarvaneUSB& object, KBaseImplementation*& implementation, int number,
            OpeningReport& report)
        : object_(object), implementation_(implementation), number_(number), report_(report) {}

    int Run();
    int Fail(OpeningFailure failure) {
        failure.deviceNo = number_;
        report_.Add(failure);
        return 0;
    }
    /** An operation on the open board has failed. */
    int FailBeneath(OpeningFailure::Step step) {
        return Fail({.step = step, .beneath = LastFailure::Get()});
    }

private:
    using Step = OpeningFailure::Step;

    int FailAt(Step unreadable, Step unknown, const SysfsText& file);
    int DetectEeprom();

    MarvaneUSB& object_;
    KBaseImplementation*& implementation_;
    int number_;
    OpeningReport& report_;
};

int Opening::Run() {
    const SysfsText productText(number_, "product");
    const Product* product = FindByText(kProducts, productText);
    if (product == nullptr) return FailAt(Step::kProduct, Step::kOtherProduct, productText);
    const SysfsText speedText(number_, "speed");
    const Speed* speed = FindByText(kSpeeds, speedText);
    if (speed == nullptr) return FailAt(Step::kSpeed, Step::kOtherSpeed, speedText);

    object_.close();
    const int handle = OpenDevice(number_);
    if (handle < 0) return Fail({.step = Step::kNode, .systemError = errno});

    char name[] = "";
    implementation_ = product->create(&object_, handle, name, speed->code, number_);
    if (implementation_ == nullptr) {
        close(handle);
        return Fail({.step = Step::kMemory});
    }
    if (!object_.DownloadHiCode()) return FailBeneath(Step::kFirmware);

    const NodeLock oneAtATime(handle);
    if (KBaseImplementation::EEPROMConfigured(number_)) return 1;
    return DetectEeprom() || FailBeneath(Step::kEeprom);
}

int Opening::FailAt(Step unreadable, Step unknown, const SysfsText& file) {
    OpeningFailure failure = {.step = file.Error() != 0 ? unreadable : unknown,
                              .systemError = file.Error()};
    file.CopyFirstLine(failure.found);
    return Fail(failure);
}

int Opening::DetectEeprom() {
    K40EEPROM fitted;
    return implementation_->CheckEEPROM(&fitted) && implementation_->ConfigureEEPROM(&fitted);
}

/** What failed on the way to a board that opens is no failure of the call. */
int Succeed(const LastFailure::Mark& before) {
    LastFailure::GoBackTo(before);
    return 1;
}

/** Keeps, for DescribeFailure, why nothing was opened. */
int Refuse(const OpeningReport& report) {
    LastFailure::NoteOpening(report);
    return 0;
}

int CopyVersion(unsigned char* text) {
    if (text == nullptr) return KBaseImplementation::Fail(USB_ERR_NULL_POINTER);
    std::memcpy(text, kVersion, sizeof kVersion);
    return 1;
}

}  // namespace

MarvaneUSB::MarvaneUSB() : implementation(nullptr) {}

MarvaneUSB::MarvaneUSB(MarvaneUSB& other) : implementation(other.implementation) {
    if (implementation != nullptr) implementation->incrementReferenceCount();
}

MarvaneUSB& MarvaneUSB::operator=(MarvaneUSB& other) {
    if (this == &other) return *this;
    if (implementation != nullptr) implementation->decrementReferenceCount();
    implementation = other.implementation;
    if (implementation != nullptr) implementation->incrementReferenceCount();
    return *this;
}

MarvaneUSB::~MarvaneUSB() {
    close();
}

int MarvaneUSB::close() {
    if (implementation != nullptr) implementation->decrementReferenceCount();
    implementation = nullptr;
    return 1;
}

int MarvaneUSB::InitPort(int n) {
    if (n < 0 || n >= kDeviceCount) return KBaseImplementation::Fail(USB_ERR_OUT_OF_RANGE);

    OpeningReport report;
    return Opening(*this, implementation, n, report).Run() || Refuse(report);
}

int MarvaneUSB::init(int /*ignored*/) {
    const LastFailure::Mark before = LastFailure::GetMark();
    OpeningReport report;
    for (int n = 0; n < kDeviceCount; ++n) {
        KBaseImplementation::ClearErrors();
        if (Opening(*this, implementation, n, report).Run()) return Succeed(before);
    }
    return Refuse(report);
}

int MarvaneUSB::InitUSBBoard(unsigned char boardId) {
    if (boardId > kHighestBoardIdentity) return KBaseImplementation::Fail(USB_ERR_OUT_OF_RANGE);

    const LastFailure::Mark before = LastFailure::GetMark();
    OpeningReport report;
    report.SetIdentity(boardId);
    for (int n = 0; n < kIdentifiedDeviceCount; ++n) {
        Opening opening(*this, implementation, n, report);
        if (!opening.Run()) continue;
        usbInput inputs;
        if (!GetInputs(&inputs)) {
            opening.FailBeneath(OpeningFailure::Step::kInputs);
            continue;
        }
        const int identity = inputs.bytes[3] & kBoardIdentityMask;
        if (identity == boardId) return Succeed(before);
        opening.Fail({.step = OpeningFailure::Step::kOtherIdentity, .identity = identity});
        close();
    }
    return Refuse(report);
}

int MarvaneUSB::DownloadHiCode() {
    if (implementation == nullptr) return KBaseImplementation::FailWithoutBoard();

    Reply status;
    if (!implementation->Exchange(commands::kFirmwareStatus, status)) return 0;
    if (status.Byte(0) != kFirmwareRuns) {
        if (!implementation->Exchange(commands::kBeginDownload)) return 0;
        if (!implementation->DownloadHiCode()) return 0;
        if (!implementation->Exchange(commands::kEndDownload)) return 0;
    }
    implementation->hiCodeLoaded.store(true, std::memory_order_relaxed);
    return 1;
}

int MarvaneUSB::GetBoardSpeed(unsigned char* speed) {
    if (speed == nullptr) return KBaseImplementation::Fail(USB_ERR_NULL_POINTER);
    *speed = implementation == nullptr ? static_cast<unsigned char>(0)
                                       : static_cast<unsigned char>(implementation->boardSpeed);
    return 1;
}

int MarvaneUSB::GetProductVersion(unsigned char* text) {
    return CopyVersion(text);
}

int MarvaneUSB::GetDllVersion(unsigned char* text) {
    return CopyVersion(text);
}

int MarvaneUSB::GetLastError() {
    return KBaseImplementation::GetLastError();
}

int MarvaneUSB::ClearErrors() {
    LastFailure::Forget();
    return KBaseImplementation::ClearErrors();
}

const char* MarvaneUSB::ErrorText(int code) {
    if (const char* text = TextOfCode(code); text != nullptr) return text;

    // Several, so that a program may print two in one line.
    static constinit thread_local char texts[4][32];
    static constinit thread_local unsigned next = 0;
    char(&text)[32] = texts[next++ % 4];
    std::snprintf(text, sizeof text, "status %d of the board", code);
    return text;
}

unsigned long MarvaneUSB::DescribeFailure(char* text, unsigned long capacity) {
    TextLine line(text, text == nullptr ? 0 : capacity);
    LastFailure::Describe(line);
    return line.Wanted();
}
