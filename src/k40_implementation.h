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

    int ReadClockAtBatteryFailure(unsigned long* time) override;
    int ReadAndResetRTCFailure(unsigned char* flag) override;
    int ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                               unsigned char extendedPulseParameter,
                               ActiveState activeState) override;
    int ReleaseParallelHopperCoinsEx(_usbInputBitId input, unsigned char pulseParameter,
                                     unsigned char extendedPulseParameter, ActiveState activeState,
                                     _usbOutputBitId releaseOutput, unsigned short coinCount,
                                     unsigned char releaseParameter) override;
    int StopHopperCoinRelease(_usbInputBitId input) override;
    int ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                 unsigned short areaLength) override;
    int StartRecordingInputs(unsigned short recordingParameter) override;
    int GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                           unsigned short* secondValue) override;
    int ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                           unsigned char* reply, unsigned long* replyLength) override;
    int WriteDiagnosticData(unsigned char* diagnosticData, unsigned long dataLength) override;
    int GetDallasSerialNumber(unsigned char* serial, unsigned char* valid) override;
    int ReadAndResetBatteryFailFlag(unsigned char* flag) override;
    int SetSASMachineAddress(_usbSerialPort port, unsigned char address) override;
    int SetSASAutoReply(_usbSerialPort port, unsigned int mode, unsigned char value) override;
    int SetSASBusy(_usbSerialPort port, unsigned int mode) override;
    int GetSASMessageStatus(_usbSerialPort port, unsigned int* status) override;

private:
    static int Refuse() { return Fail(USB_ERR_NOT_SUPPORTED_K40); }
};

#endif  // K40_IMPLEMENTATION_H
