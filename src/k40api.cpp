/**
 * @file k40api.cpp
 * @brief The operations of MarvaneUSB that the open board performs: each hands its arguments on.
 *
 * With no board open an operation yields 0 and leaves the last error alone. Those of the serial
 * ports stand in k40api_serial.cpp.
 */
#include "kbase_implementation.h"
#include "marvaneusb.h"

int MarvaneUSB::GetFittedBoard(unsigned char* type) {
    return implementation == nullptr ? 0 : implementation->GetBoardType(type);
}

int MarvaneUSB::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                             unsigned long inLen, unsigned char* out, unsigned long* outLen) {
    return implementation == nullptr
               ? 0
               : implementation->PerformUSBIO(command, channel, in, inLen, out, outLen);
}

int MarvaneUSB::GetInputs(unsigned char* inputs) {
    return implementation == nullptr ? 0 : implementation->GetInputs(inputs);
}

int MarvaneUSB::GetInputs(usbInput* inputs) {
    return implementation == nullptr ? 0 : implementation->GetInputs(inputs);
}

int MarvaneUSB::GetInputBit(_usbInputBitId inputBit, unsigned int* value) {
    return implementation == nullptr ? 0 : implementation->GetInputBit(inputBit, value);
}

int MarvaneUSB::GetRawInputs(usbInput* inputs) {
    return implementation == nullptr ? 0 : implementation->GetRawInputs(inputs);
}

int MarvaneUSB::GetChangedInputs(usbInput* changed) {
    return implementation == nullptr ? 0 : implementation->GetChangedInputs(changed);
}

int MarvaneUSB::InputMultiplexing(usbInputMultiplexing mode) {
    return implementation == nullptr ? 0 : implementation->InputMultiplexing(mode);
}

int MarvaneUSB::GetMultiplexedInputs(usbMultiplexedInput* inputs) {
    return implementation == nullptr ? 0 : implementation->GetMultiplexedInputs(inputs);
}

int MarvaneUSB::ConfigureChangedInputsCallback(usbInput* mask, usbInput* selection,
                                               void (*callback)(usbInput* changed,
                                                                usbInput* current)) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigureChangedInputsCallback(mask, selection, callback);
}

int MarvaneUSB::SetOutputs(unsigned char* outputs) {
    return implementation == nullptr ? 0 : implementation->SetOutputs(outputs);
}

int MarvaneUSB::SetOutputBit(_usbOutputBitId outputBit, unsigned int value) {
    return implementation == nullptr ? 0 : implementation->SetOutputBit(outputBit, value);
}

int MarvaneUSB::ModifyOutputs(usbOutput* off, usbOutput* on) {
    return implementation == nullptr ? 0 : implementation->ModifyOutputs(off, on);
}

int MarvaneUSB::SetOnPeriodOutputs(usbOutput pattern) {
    return implementation == nullptr ? 0 : implementation->SetOnPeriodOutputs(pattern);
}

int MarvaneUSB::SetOffPeriodOutputs(usbOutput pattern) {
    return implementation == nullptr ? 0 : implementation->SetOffPeriodOutputs(pattern);
}

int MarvaneUSB::SetOnPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value) {
    return implementation == nullptr ? 0
                                     : implementation->SetOnPeriodOutputBit(outputByte, bit, value);
}

int MarvaneUSB::SetOffPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value) {
    return implementation == nullptr
               ? 0
               : implementation->SetOffPeriodOutputBit(outputByte, bit, value);
}

int MarvaneUSB::SetOutputBrightness(unsigned char level) {
    return implementation == nullptr ? 0 : implementation->SetOutputBrightness(level);
}

int MarvaneUSB::PulseOutput(unsigned char output, unsigned char pulseValue) {
    return implementation == nullptr ? 0 : implementation->PulseOutput(output, pulseValue);
}

int MarvaneUSB::PulseOffOutput(unsigned char output, unsigned char pulseValue) {
    return implementation == nullptr ? 0 : implementation->PulseOffOutput(output, pulseValue);
}

int MarvaneUSB::PulseOutputResult(unsigned char* result0, unsigned int* result1,
                                  unsigned int* result2) {
    return implementation == nullptr ? 0
                                     : implementation->PulseOutputResult(result0, result1, result2);
}

int MarvaneUSB::ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                                     ActiveState activeState) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigurePulsedInput(input, pulseParameter, activeState);
}

int MarvaneUSB::ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                                       unsigned char extendedPulseParameter,
                                       ActiveState activeState) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigurePulsedInputEx(input, pulseParameter,
                                                        extendedPulseParameter, activeState);
}

int MarvaneUSB::BeginPulsedInputCheck(_usbInputBitId input) {
    return implementation == nullptr ? 0 : implementation->BeginPulsedInputCheck(input);
}

int MarvaneUSB::EndPulsedInputCheck(_usbInputBitId input) {
    return implementation == nullptr ? 0 : implementation->EndPulsedInputCheck(input);
}

int MarvaneUSB::ResetPulsedInputCounter(_usbInputBitId input) {
    return implementation == nullptr ? 0 : implementation->ResetPulsedInputCounter(input);
}

int MarvaneUSB::DecrementPulsedInputCounter(_usbInputBitId input) {
    return implementation == nullptr ? 0 : implementation->DecrementPulsedInputCounter(input);
}

int MarvaneUSB::ReadPulsedInputCounter(_usbInputBitId input, unsigned char* count) {
    return implementation == nullptr ? 0 : implementation->ReadPulsedInputCounter(input, count);
}

int MarvaneUSB::GetPulsedInputStatus(_usbInputBitId input, unsigned int* status,
                                     unsigned char* count) {
    return implementation == nullptr ? 0
                                     : implementation->GetPulsedInputStatus(input, status, count);
}

int MarvaneUSB::ReleaseParallelHopperCoins(_usbInputBitId input, unsigned char pulseParameter,
                                           ActiveState activeState, _usbOutputBitId releaseOutput,
                                           unsigned short coinCount,
                                           unsigned char releaseParameter) {
    return implementation == nullptr ? 0
                                     : implementation->ReleaseParallelHopperCoins(
                                           input, pulseParameter, activeState, releaseOutput,
                                           coinCount, releaseParameter);
}

int MarvaneUSB::ReleaseParallelHopperCoinsEx(_usbInputBitId input, unsigned char pulseParameter,
                                             unsigned char extendedPulseParameter,
                                             ActiveState activeState, _usbOutputBitId releaseOutput,
                                             unsigned short coinCount,
                                             unsigned char releaseParameter) {
    return implementation == nullptr ? 0
                                     : implementation->ReleaseParallelHopperCoinsEx(
                                           input, pulseParameter, extendedPulseParameter,
                                           activeState, releaseOutput, coinCount, releaseParameter);
}

int MarvaneUSB::GetParallelHopperStatus(_usbInputBitId input, ReleaseHopperCoinsStatus* status,
                                        unsigned char* count) {
    return implementation == nullptr
               ? 0
               : implementation->GetParallelHopperStatus(input, status, count);
}

int MarvaneUSB::StopHopperCoinRelease(_usbInputBitId input) {
    return implementation == nullptr ? 0 : implementation->StopHopperCoinRelease(input);
}

int MarvaneUSB::ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                         unsigned short areaLength) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigureRecordingInputs(inputs, address, areaLength);
}

int MarvaneUSB::StartRecordingInputs(unsigned short recordingParameter) {
    return implementation == nullptr ? 0 : implementation->StartRecordingInputs(recordingParameter);
}

int MarvaneUSB::GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                                   unsigned short* secondValue) {
    return implementation == nullptr
               ? 0
               : implementation->GetRecordingStatus(status, firstValue, secondValue);
}

int MarvaneUSB::ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                                   unsigned char* reply, unsigned long* replyLength) {
    return implementation == nullptr
               ? 0
               : implementation->ReadDiagnosticData(request, requestLength, reply, replyLength);
}

int MarvaneUSB::WriteDiagnosticData(unsigned char* diagnosticData, unsigned long dataLength) {
    return implementation == nullptr
               ? 0
               : implementation->WriteDiagnosticData(diagnosticData, dataLength);
}

int MarvaneUSB::ConfigureReels(unsigned char reelCount, unsigned char configWord,
                               unsigned char configByte) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigureReelsEx(reelCount, configWord, configByte);
}

int MarvaneUSB::ConfigureReelsEx(unsigned char reelCount, unsigned short configWord,
                                 unsigned char configByte) {
    return implementation == nullptr
               ? 0
               : implementation->ConfigureReelsEx(reelCount, configWord, configByte);
}

int MarvaneUSB::SpinReels(unsigned char reel, unsigned char spinSetting, unsigned short spinValue) {
    return implementation == nullptr ? 0 : implementation->SpinReels(reel, spinSetting, spinValue);
}

int MarvaneUSB::SpinRampUp(unsigned char reel, usbRampTable table) {
    return implementation == nullptr ? 0 : implementation->SpinRampUp(reel, table);
}

int MarvaneUSB::SpinRampDown(unsigned char reel, usbRampTable table) {
    return implementation == nullptr ? 0 : implementation->SpinRampDown(reel, table);
}

int MarvaneUSB::SetDutyCycle(unsigned char duty1, unsigned char duty2, unsigned char duty3) {
    return implementation == nullptr ? 0 : implementation->SetDutyCycle(duty1, duty2, duty3);
}

int MarvaneUSB::GetReelStatus(usbReelStatus* status) {
    return implementation == nullptr ? 0 : implementation->GetReelStatus(status);
}

int MarvaneUSB::GetReelStatusEx(ReelStatusEx* status) {
    return implementation == nullptr ? 0 : implementation->GetReelStatusEx(status);
}

int MarvaneUSB::ReelSynchroniseEnable(unsigned char enable) {
    return implementation == nullptr ? 0 : implementation->ReelSynchroniseEnable(enable);
}

int MarvaneUSB::ConfigureEEPROM(K40EEPROM* eeprom) {
    return implementation == nullptr ? 0 : implementation->ConfigureEEPROM(eeprom);
}

int MarvaneUSB::CheckEEPROM(K40EEPROM* eeprom) {
    return implementation == nullptr ? 0 : implementation->CheckEEPROM(eeprom);
}

int MarvaneUSB::ReadEEPROM(unsigned short address, unsigned char* data, unsigned int length) {
    return implementation == nullptr ? 0 : implementation->ReadEEPROM(address, data, length);
}

int MarvaneUSB::WriteEEPROM(unsigned short address, unsigned char* data, unsigned int length) {
    return implementation == nullptr ? 0 : implementation->WriteEEPROM(address, data, length);
}

int MarvaneUSB::ReadSRAM(unsigned short address, unsigned char* data, unsigned int length) {
    return implementation == nullptr ? 0 : implementation->ReadSRAM(address, data, length);
}

int MarvaneUSB::WriteSRAM(unsigned short address, unsigned char* data, unsigned int length) {
    return implementation == nullptr ? 0 : implementation->WriteSRAM(address, data, length);
}

int MarvaneUSB::ReadLargeSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return implementation == nullptr ? 0 : implementation->ReadSRAM(address, data, length);
}

int MarvaneUSB::WriteLargeSRAM(unsigned long address, unsigned char* data, unsigned long length) {
    return implementation == nullptr
               ? 0
               : implementation->WriteSRAM(address, data, static_cast<unsigned int>(length));
}

int MarvaneUSB::SetClock(unsigned long time) {
    return implementation == nullptr ? 0 : implementation->SetClock(time);
}

int MarvaneUSB::GetClock(unsigned long* time) {
    return implementation == nullptr ? 0 : implementation->GetClock(time);
}

int MarvaneUSB::StartSecuritySwitchRead() {
    return implementation == nullptr ? 0 : implementation->StartSecuritySwitchRead();
}

int MarvaneUSB::NextSecuritySwitchRead(unsigned long* time, unsigned char* switches) {
    return implementation == nullptr ? 0 : implementation->NextSecuritySwitchRead(time, switches);
}

int MarvaneUSB::ClearSecuritySwitches() {
    return implementation == nullptr ? 0 : implementation->ClearSecuritySwitches();
}

int MarvaneUSB::ReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1) {
    return implementation == nullptr
               ? 0
               : implementation->ReadAndResetSecuritySwitchFlags(flags0, flags1);
}

int MarvaneUSB::CachedReadAndResetSecuritySwitchFlags(unsigned char* flags0,
                                                      unsigned char* flags1) {
    return implementation == nullptr
               ? 0
               : implementation->CachedReadAndResetSecuritySwitchFlags(flags0, flags1);
}

int MarvaneUSB::ReadAndResetBatteryFailFlag(unsigned char* flag) {
    return implementation == nullptr ? 0 : implementation->ReadAndResetBatteryFailFlag(flag);
}

int MarvaneUSB::ReadAndResetRTCFailure(unsigned char* flag) {
    return implementation == nullptr ? 0 : implementation->ReadAndResetRTCFailure(flag);
}

int MarvaneUSB::ReadClockAtBatteryFailure(unsigned long* time) {
    return implementation == nullptr ? 0 : implementation->ReadClockAtBatteryFailure(time);
}

int MarvaneUSB::Get8051Version(unsigned char* version) {
    return implementation == nullptr ? 0 : implementation->Get8051Version(version);
}

int MarvaneUSB::GetPICVersion(unsigned char* version) {
    return implementation == nullptr ? 0 : implementation->GetPICVersion(version);
}

int MarvaneUSB::GetPICSerialNumber(unsigned char* serial) {
    return implementation == nullptr ? 0 : implementation->GetPICSerialNumber(serial);
}

int MarvaneUSB::SetPICSerialNumber(unsigned char* serial) {
    return implementation == nullptr ? 0 : implementation->SetPICSerialNumber(serial);
}

int MarvaneUSB::GetDallasSerialNumber(unsigned char* serial, unsigned char* valid) {
    return implementation == nullptr ? 0 : implementation->GetDallasSerialNumber(serial, valid);
}

int MarvaneUSB::EnableRandomNumberGenerator(unsigned long argument) {
    return implementation == nullptr ? 0 : implementation->EnableRandomNumberGenerator(argument);
}

int MarvaneUSB::DisableRandomNumberGenerator() {
    return implementation == nullptr ? 0 : implementation->DisableRandomNumberGenerator();
}

int MarvaneUSB::GetRandomNumber(unsigned short* number) {
    return implementation == nullptr ? 0 : implementation->GetRandomNumber(number);
}

int MarvaneUSB::EnableSPI() {
    return implementation == nullptr ? 0 : implementation->EnableSPI();
}

int MarvaneUSB::DisableSPI() {
    return implementation == nullptr ? 0 : implementation->DisableSPI();
}

int MarvaneUSB::SendSPI(unsigned char sendBits, unsigned char* data, unsigned char control,
                        unsigned char receiveBits, unsigned char* reply) {
    return implementation == nullptr
               ? 0
               : implementation->SendSPI(sendBits, data, control, receiveBits, reply);
}

int MarvaneUSB::SendSEC(unsigned char header1, unsigned char header2, unsigned char length,
                        unsigned char* data, unsigned char control, unsigned char replyLength,
                        unsigned char* reply) {
    return implementation == nullptr ? 0
                                     : implementation->SendSEC(header1, header2, length, data,
                                                               control, replyLength, reply);
}
