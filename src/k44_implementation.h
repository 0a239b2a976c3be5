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
    int ReadAndResetRTCFailure(unsigned char* flag) override;
    int ReadClockAtBatteryFailure(unsigned long* time) override;
};

#endif  // K44_IMPLEMENTATION_H
