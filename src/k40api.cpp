/**
 * @file k40api.cpp
 * @brief The operations of MarvaneUSB that the open board performs: each hands its arguments on.
 *
 * With no board open an operation yields 0 and leaves the last error alone. Those of the serial
 * ports stand in k40api_serial.cpp.
 */
#include "forward.h"
#include "marvaneusb.h"

int MarvaneUSB::GetFittedBoard(unsigned char* type) {
    return Forward<&KBaseImplementation::GetBoardType>(implementation, type);
}

int MarvaneUSB::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                             unsigned long inLen, unsigned char* out, unsigned long* outLen) {
    return Forward<&KBaseImplementation::PerformUSBIO>(implementation, command, channel, in, inLen,
                                                       out, outLen);
}

int MarvaneUSB::GetInputs(unsigned char* inputs) {
    return implementation == nullptr ? KBaseImplementation::FailWithoutBoard()
                                     : implementation->GetInputs(inputs);
}

int MarvaneUSB::GetInputs(usbInput* inputs) {
    return implementation == nullptr ? KBaseImplementation::FailWithoutBoard()
                                     : implementation->GetInputs(inputs);
}

int MarvaneUSB::GetInputBit(_usbInputBitId inputBit, unsigned int* value) {
    return Forward<&KBaseImplementation::GetInputBit>(implementation, inputBit, value);
}

int MarvaneUSB::GetRawInputs(usbInput* inputs) {
    return Forward<&KBaseImplementation::GetRawInputs>(implementation, inputs);
}

int MarvaneUSB::GetChangedInputs(usbInput* changed) {
    return Forward<&KBaseImplementation::GetChangedInputs>(implementation, changed);
}

int MarvaneUSB::InputMultiplexing(usbInputMultiplexing mode) {
    return Forward<&KBaseImplementation::InputMultiplexing>(implementation, mode);
}

int MarvaneUSB::GetMultiplexedInputs(usbMultiplexedInput* inputs) {
    return Forward<&KBaseImplementation::GetMultiplexedInputs>(implementation, inputs);
}

int MarvaneUSB::ConfigureChangedInputsCallback(usbInput* mask, usbInput* selection,
                                               void (*callback)(usbInput* changed,
                                                                usbInput* current)) {
    return Forward<&KBaseImplementation::ConfigureChangedInputsCallback>(implementation, mask,
                                                                         selection, callback);
}

int MarvaneUSB::GetChangedInputsCallbackState(unsigned int* state) {
    return Forward<&KBaseImplementation::GetChangedInputsCallbackState>(implementation, state);
}

int MarvaneUSB::GetChangedInputsCallbackError(int* code) {
    return Forward<&KBaseImplementation::GetChangedInputsCallbackError>(implementation, code);
}

int MarvaneUSB::SetOutputs(unsigned char* outputs) {
    return Forward<&KBaseImplementation::SetOutputs>(implementation, outputs);
}

int MarvaneUSB::SetOutputBit(_usbOutputBitId outputBit, unsigned int value) {
    return Forward<&KBaseImplementation::SetOutputBit>(implementation, outputBit, value);
}

int MarvaneUSB::ModifyOutputs(usbOutput* off, usbOutput* on) {
    return Forward<&KBaseImplementation::ModifyOutputs>(implementation, off, on);
}

int MarvaneUSB::SetOnPeriodOutputs(usbOutput pattern) {
    return Forward<&KBaseImplementation::SetOnPeriodOutputs>(implementation, pattern);
}

int MarvaneUSB::SetOffPeriodOutputs(usbOutput pattern) {
    return Forward<&KBaseImplementation::SetOffPeriodOutputs>(implementation, pattern);
}

int MarvaneUSB::SetOnPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value) {
    return Forward<&KBaseImplementation::SetOnPeriodOutputBit>(implementation, outputByte, bit,
                                                               value);
}

int MarvaneUSB::SetOffPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value) {
    return Forward<&KBaseImplementation::SetOffPeriodOutputBit>(implementation, outputByte, bit,
                                                                value);
}

int MarvaneUSB::SetOutputBrightness(unsigned char level) {
    return Forward<&KBaseImplementation::SetOutputBrightness>(implementation, level);
}

int MarvaneUSB::PulseOutput(unsigned char output, unsigned char pulseValue) {
    return Forward<&KBaseImplementation::PulseOutput>(implementation, output, pulseValue);
}

int MarvaneUSB::PulseOffOutput(unsigned char output, unsigned char pulseValue) {
    return Forward<&KBaseImplementation::PulseOffOutput>(implementation, output, pulseValue);
}

int MarvaneUSB::PulseOutputResult(unsigned char* result0, unsigned int* result1,
                                  unsigned int* result2) {
    return Forward<&KBaseImplementation::PulseOutputResult>(implementation, result0, result1,
                                                            result2);
}

int MarvaneUSB::ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                                     ActiveState activeState) {
    return Forward<&KBaseImplementation::ConfigurePulsedInput>(implementation, input,
                                                               pulseParameter, activeState);
}

int MarvaneUSB::ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                                       unsigned char extendedPulseParameter,
                                       ActiveState activeState) {
    return Forward<&KBaseImplementation::ConfigurePulsedInputEx>(
        implementation, input, pulseParameter, extendedPulseParameter, activeState);
}

int MarvaneUSB::BeginPulsedInputCheck(_usbInputBitId input) {
    return Forward<&KBaseImplementation::BeginPulsedInputCheck>(implementation, input);
}

int MarvaneUSB::EndPulsedInputCheck(_usbInputBitId input) {
    return Forward<&KBaseImplementation::EndPulsedInputCheck>(implementation, input);
}

int MarvaneUSB::ResetPulsedInputCounter(_usbInputBitId input) {
    return Forward<&KBaseImplementation::ResetPulsedInputCounter>(implementation, input);
}

int MarvaneUSB::DecrementPulsedInputCounter(_usbInputBitId input) {
    return Forward<&KBaseImplementation::DecrementPulsedInputCounter>(implementation, input);
}

int MarvaneUSB::ReadPulsedInputCounter(_usbInputBitId input, unsigned char* count) {
    return Forward<&KBaseImplementation::ReadPulsedInputCounter>(implementation, input, count);
}

int MarvaneUSB::GetPulsedInputStatus(_usbInputBitId input, unsigned int* status,
                                     unsigned char* count) {
    return Forward<&KBaseImplementation::GetPulsedInputStatus>(implementation, input, status,
                                                               count);
}

int MarvaneUSB::ReleaseParallelHopperCoins(_usbInputBitId input, unsigned char pulseParameter,
                                           ActiveState activeState, _usbOutputBitId releaseOutput,
                                           unsigned short coinCount,
                                           unsigned char releaseParameter) {
    return Forward<&KBaseImplementation::ReleaseParallelHopperCoins>(
        implementation, input, pulseParameter, activeState, releaseOutput, coinCount,
        releaseParameter);
}

int MarvaneUSB::ReleaseParallelHopperCoinsEx(_usbInputBitId input, unsigned char pulseParameter,
                                             unsigned char extendedPulseParameter,
                                             ActiveState activeState, _usbOutputBitId releaseOutput,
                                             unsigned short coinCount,
                                             unsigned char releaseParameter) {
    return Forward<&KBaseImplementation::ReleaseParallelHopperCoinsEx>(
        implementation, input, pulseParameter, extendedPulseParameter, activeState, releaseOutput,
        coinCount, releaseParameter);
}

int MarvaneUSB::GetParallelHopperStatus(_usbInputBitId input, ReleaseHopperCoinsStatus* status,
                                        unsigned char* count) {
    return Forward<&KBaseImplementation::GetParallelHopperStatus>(implementation, input, status,
                                                                  count);
}

int MarvaneUSB::StopHopperCoinRelease(_usbInputBitId input) {
    return Forward<&KBaseImplementation::StopHopperCoinRelease>(implementation, input);
}

int MarvaneUSB::ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                         unsigned short areaLength) {
    return Forward<&KBaseImplementation::ConfigureRecordingInputs>(implementation, inputs, address,
                                                                   areaLength);
}

int MarvaneUSB::StartRecordingInputs(unsigned short recordingParameter) {
    return Forward<&KBaseImplementation::StartRecordingInputs>(implementation, recordingParameter);
}

int MarvaneUSB::GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                                   unsigned short* secondValue) {
    return Forward<&KBaseImplementation::GetRecordingStatus>(implementation, status, firstValue,
                                                             secondValue);
}

int MarvaneUSB::ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                                   unsigned char* reply, unsigned long* replyLength) {
    return Forward<&KBaseImplementation::ReadDiagnosticData>(implementation, request, requestLength,
                                                             reply, replyLength);
}

int MarvaneUSB::WriteDiagnosticData(unsigned char* diagnosticData, unsigned long dataLength) {
    return Forward<&KBaseImplementation::WriteDiagnosticData>(implementation, diagnosticData,
                                                              dataLength);
}

int MarvaneUSB::ConfigureReels(unsigned char reelCount, unsigned char configWord,
                               unsigned char configByte) {
    return Forward<&KBaseImplementation::ConfigureReelsEx>(implementation, reelCount, configWord,
                                                           configByte);
}

int MarvaneUSB::ConfigureReelsEx(unsigned char reelCount, unsigned short configWord,
                                 unsigned char configByte) {
    return Forward<&KBaseImplementation::ConfigureReelsEx>(implementation, reelCount, configWord,
                                                           configByte);
}

int MarvaneUSB::SpinReels(unsigned char reel, unsigned char spinSetting, unsigned short spinValue) {
    return Forward<&KBaseImplementation::SpinReels>(implementation, reel, spinSetting, spinValue);
}

int MarvaneUSB::SpinRampUp(unsigned char reel, usbRampTable table) {
    return Forward<&KBaseImplementation::SpinRampUp>(implementation, reel, table);
}

int MarvaneUSB::SpinRampDown(unsigned char reel, usbRampTable table) {
    return Forward<&KBaseImplementation::SpinRampDown>(implementation, reel, table);
}

int MarvaneUSB::SetDutyCycle(unsigned char duty1, unsigned char duty2, unsigned char duty3) {
    return Forward<&KBaseImplementation::SetDutyCycle>(implementation, duty1, duty2, duty3);
}

int MarvaneUSB::GetReelStatus(usbReelStatus* status) {
    return Forward<&KBaseImplementation::GetReelStatus>(implementation, status);
}

int MarvaneUSB::GetReelStatusEx(ReelStatusEx* status) {
    return Forward<&KBaseImplementation::GetReelStatusEx>(implementation, status);
}

int MarvaneUSB::ReelSynchroniseEnable(unsigned char enable) {
    return Forward<&KBaseImplementation::ReelSynchroniseEnable>(implementation, enable);
}

int MarvaneUSB::ConfigureEEPROM(K40EEPROM* eeprom) {
    return Forward<&KBaseImplementation::ConfigureEEPROM>(implementation, eeprom);
}

int MarvaneUSB::CheckEEPROM(K40EEPROM* eeprom) {
    return Forward<&KBaseImplementation::CheckEEPROM>(implementation, eeprom);
}

int MarvaneUSB::ReadEEPROM(unsigned short address, unsigned char* data, unsigned int length) {
    return Forward<&KBaseImplementation::ReadEEPROM>(implementation, address, data, length);
}

int MarvaneUSB::WriteEEPROM(unsigned short address, unsigned char* data, unsigned int length) {
    return Forward<&KBaseImplementation::WriteEEPROM>(implementation, address, data, length);
}

int MarvaneUSB::ReadSRAM(unsigned short address, unsigned char* data, unsigned int length) {
    return Forward<&KBaseImplementation::ReadSRAM>(implementation, address, data, length);
}

int MarvaneUSB::WriteSRAM(unsigned short address, unsigned char* data, unsigned int length) {
    return Forward<&KBaseImplementation::WriteSRAM>(implementation, address, data, length);
}

int MarvaneUSB::ReadLargeSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return Forward<&KBaseImplementation::ReadSRAM>(implementation, address, data, length);
}

int MarvaneUSB::WriteLargeSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return Forward<&KBaseImplementation::WriteSRAM>(implementation, address, data,
                                                    static_cast<unsigned int>(length));
}

int MarvaneUSB::SetClock(unsigned long time) {
    return Forward<&KBaseImplementation::SetClock>(implementation, time);
}

int MarvaneUSB::GetClock(unsigned long* time) {
    return Forward<&KBaseImplementation::GetClock>(implementation, time);
}

int MarvaneUSB::StartSecuritySwitchRead() {
    return Forward<&KBaseImplementation::StartSecuritySwitchRead>(implementation);
}

int MarvaneUSB::NextSecuritySwitchRead(unsigned long* time, unsigned char* switches) {
    return Forward<&KBaseImplementation::NextSecuritySwitchRead>(implementation, time, switches);
}

int MarvaneUSB::ClearSecuritySwitches() {
    return Forward<&KBaseImplementation::ClearSecuritySwitches>(implementation);
}

int MarvaneUSB::ReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1) {
    return Forward<&KBaseImplementation::ReadAndResetSecuritySwitchFlags>(implementation, flags0,
                                                                          flags1);
}

int MarvaneUSB::CachedReadAndResetSecuritySwitchFlags(unsigned char* flags0,
                                                      unsigned char* flags1) {
    return Forward<&KBaseImplementation::CachedReadAndResetSecuritySwitchFlags>(implementation,
                                                                                flags0, flags1);
}

int MarvaneUSB::ReadAndResetBatteryFailFlag(unsigned char* flag) {
    return Forward<&KBaseImplementation::ReadAndResetBatteryFailFlag>(implementation, flag);
}

int MarvaneUSB::ReadAndResetRTCFailure(unsigned char* flag) {
    return Forward<&KBaseImplementation::ReadAndResetRTCFailure>(implementation, flag);
}

int MarvaneUSB::ReadClockAtBatteryFailure(unsigned long* time) {
    return Forward<&KBaseImplementation::ReadClockAtBatteryFailure>(implementation, time);
}

int MarvaneUSB::Get8051Version(unsigned char* version) {
    return Forward<&KBaseImplementation::Get8051Version>(implementation, version);
}

int MarvaneUSB::GetPICVersion(unsigned char* version) {
    return Forward<&KBaseImplementation::GetPICVersion>(implementation, version);
}

int MarvaneUSB::GetPICSerialNumber(unsigned char* serial) {
    return Forward<&KBaseImplementation::GetPICSerialNumber>(implementation, serial);
}

int MarvaneUSB::SetPICSerialNumber(unsigned char* serial) {
    return Forward<&KBaseImplementation::SetPICSerialNumber>(implementation, serial);
}

int MarvaneUSB::GetDallasSerialNumber(unsigned char* serial, unsigned char* valid) {
    return Forward<&KBaseImplementation::GetDallasSerialNumber>(implementation, serial, valid);
}

int MarvaneUSB::EnableRandomNumberGenerator(unsigned long argument) {
    return Forward<&KBaseImplementation::EnableRandomNumberGenerator>(implementation, argument);
}

int MarvaneUSB::DisableRandomNumberGenerator() {
    return Forward<&KBaseImplementation::DisableRandomNumberGenerator>(implementation);
}

int MarvaneUSB::GetRandomNumber(unsigned short* number) {
    return Forward<&KBaseImplementation::GetRandomNumber>(implementation, number);
}

int MarvaneUSB::EnableSPI() {
    return Forward<&KBaseImplementation::EnableSPI>(implementation);
}

int MarvaneUSB::DisableSPI() {
    return Forward<&KBaseImplementation::DisableSPI>(implementation);
}

int MarvaneUSB::SendSPI(unsigned char sendBits, unsigned char* data, unsigned char control,
                        unsigned char receiveBits, unsigned char* reply) {
    return Forward<&KBaseImplementation::SendSPI>(implementation, sendBits, data, control,
                                                  receiveBits, reply);
}

int MarvaneUSB::SendSEC(unsigned char header1, unsigned char header2, unsigned char length,
                        unsigned char* data, unsigned char control, unsigned char replyLength,
                        unsigned char* reply) {
    return Forward<&KBaseImplementation::SendSEC>(implementation, header1, header2, length, data,
                                                  control, replyLength, reply);
}
