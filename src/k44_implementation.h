/**
 * @file k44_implementation.h
 * @brief The K44 board.
 */
#ifndef K44_IMPLEMENTATION_H
#define K44_IMPLEMENTATION_H

#include "kbase_implementation.h"

class K44_Implementation : public KBaseImplementation {
public:
    using KBaseImplementation::KBaseImplementation;

    int PerformUSBIO(unsigned char command, int channel, unsigned char* in, unsigned long inLen,
                     unsigned char* out, unsigned long* outLen) override;
    int GetBoardType(unsigned char* type) override;
    int DownloadHiCode() override;
    int WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) override;
    int ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) override;

    // Refused: only the K50 can do it. Arguments are not looked at.

    int ReadAndResetRTCFailure(unsigned char*) override { return Refuse(); }
    int ReadClockAtBatteryFailure(unsigned long*) override { return Refuse(); }

private:
    static int Refuse() { return Fail(USB_ERR_NOT_SUPPORTED_K44); }
};

#endif  // K44_IMPLEMENTATION_H
