/**
 * @file k50_shared_implementation.cpp
 * @brief The memory of a K50: its storage, its program and the download.
 */
#include "firmware_images.h"
#include "k44_shared_implementation.h"
#include "k50_implementation.h"

// Without a size, so that an image of another size does not compile.
const unsigned char K50_Memory8051[] = {
#include "k50_firmware.inc"
};

int K50_Implementation::DownloadHiCode() {
    if (owner == nullptr) return 0;
    // WriteSRAM only reads its data. It reaches the program while none runs.
    return WriteSRAM(0, const_cast<unsigned char*>(K50_Memory8051), sizeof K50_Memory8051);
}

int K50_Implementation::WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) {
    return CheckMemoryRange(kK50MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           WriteMemory(
               *this,
               k44_shared::WriteAccess(boardSpeed, hiCodeLoaded.load(std::memory_order_relaxed)),
               address, data, length);
}

int K50_Implementation::ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return CheckMemoryRange(kK50MemoryLimit, USB_ERR_OUT_OF_RANGE, address, data, length) &&
           ReadMemory(*this, k44_shared::ReadAccess(boardSpeed), address, data, length);
}
