/**
 * @file k40_shared_implementation.cpp
 * @brief The 64 KB memory of a K40, which the application's data and the board's program share.
 */
#include "firmware_images.h"
#include "k40_implementation.h"
#include "memory_access.h"

// Without a size, so that an image of another size does not compile.
const unsigned char Memory8051[] = {
#include "k40_firmware.inc"
};

namespace {

MemoryAccess WriteAccess(int boardSpeed) {
    return {commands::kWriteFlatMemory, kFlatWriteChunk.At(boardSpeed), kFlatMemorySize,
            AppendFlatPlace};
}

MemoryAccess ReadAccess(int boardSpeed) {
    return {commands::kReadFlatMemory, kFlatReadChunk.At(boardSpeed), kFlatMemorySize,
            AppendFlatPlace};
}

}  // namespace

int K40Implementation::DownloadHiCode() {
    // WriteSRAM only reads its data.
    return WriteSRAM(0, const_cast<unsigned char*>(Memory8051), sizeof Memory8051);
}

int K40Implementation::WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) {
    return CheckMemoryRange(kK40MemoryLimit, USB_ERR_NOT_SUPPORTED_K40, address, data, length) &&
           WriteMemory(*this, WriteAccess(boardSpeed), address, data, length);
}

int K40Implementation::ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return CheckMemoryRange(kK40MemoryLimit, USB_ERR_NOT_SUPPORTED_K40, address, data, length) &&
           ReadMemory(*this, ReadAccess(boardSpeed), address, data, length);
}
