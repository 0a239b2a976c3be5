/**
 * @file kbase_implementation_eeprom.cpp
 * @brief The board's EEPROM: which part it is, and reading and writing within it.
 *
 * What part each board carries stands in "K40EEPROMS", so that all processes agree on it.
 */
#include <atomic>
#include <cstdint>
#include <cstring>

#include "kbase_implementation.h"
#include "kbase_shared_implementation.h"
#include "memory_access.h"

namespace {

using EepromEntries = SharedProxy<EEPROM_MAP[kDeviceCount]>;

constexpr unsigned kReservedBytes = 8;  // at the start; never read or written for a caller
constexpr MemoryAccess kRead{commands::kReadEeprom, kEepromReadChunk, kFlatMemorySize,
                             AppendFlatPlace};
constexpr MemoryAccess kWrite{commands::kWriteEeprom, kEepromWriteChunk, kFlatMemorySize,
                              AppendFlatPlace};

/** How many bytes a detection compares. */
constexpr unsigned kSampleSize = 100;
using Sample = unsigned char[kSampleSize];

/** A class of parts: configured as `widest` they all answer, and wrap around at their size. */
struct PartClass {
    const K40EEPROM* widest;
    unsigned firstProbe;
    unsigned lastProbe;
};
constexpr PartClass kTwoAddressBytes{&E24LC256, 4096, 32768};
constexpr PartClass kOneAddressByte{&E24LC16, 128, 1024};

const K40EEPROM& PartOfSize(unsigned size) {
    const K40EEPROM* const parts[] = {&E24LC01, &E24LC02, &E24LC04,  &E24LC08, &E24LC16,
                                      &E24LC32, &E24LC64, &E24LC128, &E24LC256};
    for (const K40EEPROM* part : parts) {
        if (size == part->highestAddress + 1U) return *part;
    }
    return E24LC512;
}

/** One aligned store, for a process that is killed must not leave half an entry. */
void StoreEntry(EEPROM_MAP& entry, const K40EEPROM& part) {
    EEPROM_MAP whole = {};
    std::memcpy(&whole.eeprom, &part, sizeof whole.eeprom);
    whole.configured = 1;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &whole, sizeof bits);
    std::atomic_ref<std::uint64_t>(reinterpret_cast<std::uint64_t&>(entry)).store(bits);
}

int CheckEepromRange(const EEPROM_MAP* entry, unsigned short address, const unsigned char* data,
                     unsigned int length) {
    if (address < kReservedBytes) return Fail(USB_ERR_OUT_OF_RANGE);
    if (entry == nullptr) return FailWithout(SharedcurrentEEPROM);
    // In 64 bits, where the sum cannot wrap.
    if (std::uint64_t{address} + length > entry->eeprom.highestAddress) {
        return Fail(USB_ERR_OUT_OF_RANGE);
    }
    return data == nullptr ? Fail(USB_ERR_NULL_POINTER) : 1;
}

int ConfigureWidest(KBaseImplementation& board, const K40EEPROM* part) {
    K40EEPROM copy;
    std::memcpy(&copy, part, sizeof copy);
    return board.ConfigureEEPROM(&copy);
}

}  // namespace

int KBaseImplementation::ConfigureEEPROM(K40EEPROM* eeprom) {
    EepromEntries entries(SharedcurrentEEPROM);
    if (eeprom == nullptr) return Fail(USB_ERR_NULL_POINTER);
    EEPROM_MAP* entry = entries.Find(GetDeviceNo());
    if (entry == nullptr) return FailWithout(SharedcurrentEEPROM);

    StoreEntry(*entry, *eeprom);
    return Exchange(commands::kConfigureEeprom, Payload()
                                                    .Byte(eeprom->pageSize)
                                                    .Byte(eeprom->addressBytes)
                                                    .HighFirst(eeprom->highestAddress)
                                                    .Byte(eeprom->busAddress));
}

int KBaseImplementation::ReadEEPROM(unsigned short address, unsigned char* data,
                                    unsigned int length) {
    const EepromEntries entries(SharedcurrentEEPROM);
    return CheckEepromRange(entries.Find(GetDeviceNo()), address, data, length) &&
           ReadMemory(*this, kRead, address, data, length);
}

int KBaseImplementation::WriteEEPROM(unsigned short address, unsigned char* data,
                                     unsigned int length) {
    const EepromEntries entries(SharedcurrentEEPROM);
    return CheckEepromRange(entries.Find(GetDeviceNo()), address, data, length) &&
           WriteMemory(*this, kWrite, address, data, length);
}

int KBaseImplementation::UncheckedReadEEPROM(unsigned short address, unsigned char* data,
                                             unsigned int length) {
    const EepromEntries entries(SharedcurrentEEPROM);
    if (data == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (entries.Find(GetDeviceNo()) == nullptr) return FailWithout(SharedcurrentEEPROM);
    return ReadMemory(*this, kRead, address, data, length);
}

int KBaseImplementation::EEPROMConfigured(int number) {
    const EepromEntries entries(SharedcurrentEEPROM);
    const EEPROM_MAP* entry = entries.Find(number);
    return entry == nullptr ? 0 : entry->configured;
}

// Takes no lock of its own: its steps do, and the locks are not recursive.
int KBaseImplementation::CheckEEPROM(K40EEPROM* eeprom) {
    if (eeprom == nullptr) return Fail(USB_ERR_NULL_POINTER);

    const LastFailure::Mark before = LastFailure::GetMark();
    Sample reference;
    const PartClass* found = &kTwoAddressBytes;
    if (!ConfigureWidest(*this, kTwoAddressBytes.widest)) return 0;
    if (!UncheckedReadEEPROM(0, reference, kSampleSize)) {
        ClearErrors();
        LastFailure::GoBackTo(before);  // that this class does not answer is an answer
        found = &kOneAddressByte;
        if (!ConfigureWidest(*this, kOneAddressByte.widest)) return 0;
        if (!UncheckedReadEEPROM(0, reference, kSampleSize)) return 0;
    }

    unsigned size = found->firstProbe;
    for (; size <= found->lastProbe; size *= 2) {
        Sample sample;
        if (!UncheckedReadEEPROM(static_cast<unsigned short>(size), sample, kSampleSize)) return 0;
        if (std::memcmp(sample, reference, kSampleSize) == 0) break;
    }
    std::memcpy(eeprom, &PartOfSize(size), sizeof *eeprom);
    return 1;
}
