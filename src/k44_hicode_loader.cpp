/**
 * @file k44_hicode_loader.cpp
 * @brief The program of a K44, and its download.
 */
#include "firmware_images.h"
#include "k44_implementation.h"
#include "k44_shared_implementation.h"

// Without a size, so that an image of another size does not compile.
const unsigned char K44_Memory8051[] = {
#include "k44_firmware.inc"
};

int K44_Implementation::DownloadHiCode() {
    if (owner == nullptr) return 0;
    // WriteSRAM only reads its data. It reaches the program while none runs.
    return WriteSRAM(0, const_cast<unsigned char*>(K44_Memory8051), sizeof K44_Memory8051);
}
