/**
 * @file k40_implementation.h
 * @brief The K40 board: a transport of its own, shorter request forms, and what it refuses.
 */
#ifndef K40_IMPLEMENTATION_H
#define K40_IMPLEMENTATION_H

#include "kbase_implementation.h"

class K40Implementation : public KBaseImplementation {
public:
    using KBaseImplementation::KBaseImplementation;

    int PerformUSBIO(unsigned char command, int channel, unsigned char* in, unsigned long inLen,
                     unsigned char* out, unsigned long* outLen) override;
    int GetBoardType(unsigned char* type) override;
    int DownloadHiCode() override;
    int WriteSRAM(unsigned long address, unsigned char* data, unsigned int length) override;
    int ReadSRAM(unsigned long address, unsigned char* data, unsigned long length) override;
    int ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                             ActiveState activeState) override;
    int ReleaseParallelHopperCoins(_usbInputBitId input, unsigned char pulseParameter,
                                   ActiveState activeState, _usbOutputBitId releaseOutput,
                                   unsigned short coinCount,
                                   unsigned char releaseParameter) override;

    // Refused: the board has nothing of the kind. Arguments are not looked at.

    int ReadClockAtBatteryFailure(unsigned long*) override { return Refuse(); }
    int ReadAndResetRTCFailure(unsigned char*) override { return Refuse(); }
    int ConfigurePulsedInputEx(_usbInputBitId, unsigned char, unsigned char, ActiveState) override {
        return Refuse();
    }
    int ReleaseParallelHopperCoinsEx(_usbInputBitId, unsigned char, unsigned char, ActiveState,
                                     _usbOutputBitId, unsigned short, unsigned char) override {
        return Refuse();
    }
    int StopHopperCoinRelease(_usbInputBitId) override { return Refuse(); }
    int ConfigureRecordingInputs(_usbInputBitId*, unsigned long, unsigned short) override {
        return Refuse();
    }
    int StartRecordingInputs(unsigned short) override { return Refuse(); }
    int GetRecordingStatus(RecordingStatus*, unsigned short*, unsigned short*) override {
        return Refuse();
    }
    int ReadDiagnosticData(unsigned char*, unsigned long, unsigned char*, unsigned long*) override {
        return Refuse();
    }
    int WriteDiagnosticData(unsigned char*, unsigned long) override { return Refuse(); }
    int GetDallasSerialNumber(unsigned char*, unsigned char*) override { return Refuse(); }
    int ReadAndResetBatteryFailFlag(unsigned char*) override { return Refuse(); }
    int SetSASMachineAddress(_usbSerialPort, unsigned char) override { return Refuse(); }
    int SetSASAutoReply(_usbSerialPort, unsigned int, unsigned char) override { return Refuse(); }
    int SetSASBusy(_usbSerialPort, unsigned int) override { return Refuse(); }
    int GetSASMessageStatus(_usbSerialPort, unsigned int*) override { return Refuse(); }

private:
    static int Refuse() { return Fail(USB_ERR_NOT_SUPPORTED_K40); }
};

#endif  // K40_IMPLEMENTATION_H
