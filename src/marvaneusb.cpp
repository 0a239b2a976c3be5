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
#include <memory>
#include <new>
#include <string_view>

#include "k40_implementation.h"
#include "k44_implementation.h"
#include "k50_implementation.h"
#include "kbase_implementation.h"

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
        const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "re"));
        if (file) length_ = std::fread(text_, 1, sizeof text_, file.get());
    }

    [[nodiscard]] bool BeginsWith(std::string_view wanted) const {
        return std::string_view(text_, length_).substr(0, wanted.size()) == wanted;
    }

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

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
    const int higher = open(path, kFlags);
    close(handle);
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

    const Product* product = FindByText(kProducts, SysfsText(n, "product"));
    if (product == nullptr) return 0;
    const Speed* speed = FindByText(kSpeeds, SysfsText(n, "speed"));
    if (speed == nullptr) return 0;

    close();
    const int handle = OpenDevice(n);
    if (handle < 0) return 0;

    char name[] = "";
    implementation = product->create(this, handle, name, speed->code, n);
    if (implementation == nullptr) {
        ::close(handle);
        return 0;
    }
    if (!DownloadHiCode()) return 0;

    const NodeLock oneAtATime(handle);
    if (KBaseImplementation::EEPROMConfigured(n)) return 1;
    K40EEPROM fitted;
    return implementation->CheckEEPROM(&fitted) && implementation->ConfigureEEPROM(&fitted);
}

int MarvaneUSB::init(int /*ignored*/) {
    for (int n = 0; n < kDeviceCount; ++n) {
        ClearErrors();
        if (const int result = InitPort(n); result != 0) return result;
    }
    return 0;
}

int MarvaneUSB::InitUSBBoard(unsigned char boardId) {
    if (boardId > kHighestBoardIdentity) return KBaseImplementation::Fail(USB_ERR_OUT_OF_RANGE);

    for (int n = 0; n < kIdentifiedDeviceCount; ++n) {
        if (!InitPort(n)) continue;
        usbInput inputs;
        if (!GetInputs(&inputs)) continue;
        if ((inputs.bytes[3] & kBoardIdentityMask) == boardId) return 1;
        close();
    }
    return 0;
}

int MarvaneUSB::DownloadHiCode() {
    if (implementation == nullptr) return 0;

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
    return KBaseImplementation::ClearErrors();
}
