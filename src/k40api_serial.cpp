/**
 * @file k40api_serial.cpp
 * @brief The serial operations of MarvaneUSB that the open board performs.
 *
 * With no board open they yield 0 and leave the last error alone; only the SAS operations say that
 * there is nothing to support them.
 */
#include "forward.h"
#include "marvaneusb.h"

namespace {

int FailWithoutSas() {
    return KBaseImplementation::Fail(
        {.kind = Failure::Kind::kNoBoard, .code = USB_ERR_NOT_SUPPORTED_K40});
}

}  // namespace

int MarvaneUSB::SetConfig(_usbSerialPort port, _DCB* dcb, _usbPortType type) {
    return Forward<&KBaseImplementation::SetConfig>(implementation, port, dcb, type);
}

int MarvaneUSB::Send(_usbSerialPort port, unsigned char* data, unsigned int length) {
    return Forward<&KBaseImplementation::Send>(implementation, port, data, length);
}

int MarvaneUSB::Receive(_usbSerialPort port, unsigned char* buffer, unsigned long* length) {
    return Forward<&KBaseImplementation::Receive>(implementation, port, buffer, length);
}

int MarvaneUSB::ReceiveEx(_usbSerialPort port, unsigned char* buffer, unsigned long capacity,
                          unsigned long* length) {
    return Forward<&KBaseImplementation::ReceiveEx>(implementation, port, buffer, capacity, length);
}

int MarvaneUSB::ReceiveByteWithTimestamp(_usbSerialPort port, unsigned char* data,
                                         unsigned char* timestamp, unsigned int* received) {
    return Forward<&KBaseImplementation::ReceiveByteWithTimestamp>(implementation, port, data,
                                                                   timestamp, received);
}

int MarvaneUSB::Send9BitData(_usbSerialPort port, unsigned short* words, unsigned int count) {
    return Forward<&KBaseImplementation::Send9BitData>(implementation, port, words, count);
}

int MarvaneUSB::Receive9BitData(_usbSerialPort port, unsigned short* words, unsigned long* count) {
    return Forward<&KBaseImplementation::Receive9BitData>(implementation, port, words, count);
}

int MarvaneUSB::Receive9BitDataEx(_usbSerialPort port, unsigned short* words,
                                  unsigned long capacity, unsigned long* count) {
    return Forward<&KBaseImplementation::Receive9BitDataEx>(implementation, port, words, capacity,
                                                            count);
}

int MarvaneUSB::ReceiveByteWithTimestamp9BitData(_usbSerialPort port, unsigned short* data,
                                                 unsigned char* timestamp, unsigned int* received) {
    return Forward<&KBaseImplementation::ReceiveByteWithTimestamp9BitData>(
        implementation, port, data, timestamp, received);
}

int MarvaneUSB::GetParityErrors(_usbSerialPort port, unsigned short* count) {
    return Forward<&KBaseImplementation::GetParityErrors>(implementation, port, count);
}

int MarvaneUSB::ConfigureCCTalkPort(_usbSerialPort port, CCTalkConfig* config) {
    return Forward<&KBaseImplementation::ConfigureCCTalkPort>(implementation, port, config);
}

int MarvaneUSB::ConfigureRS232Poll(_usbSerialPort port, RS232PollConfig* config) {
    return Forward<&KBaseImplementation::ConfigureRS232Poll>(implementation, port, config);
}

int MarvaneUSB::SetPolledHostTimeout(_usbSerialPort port, unsigned char index, double seconds) {
    return Forward<&KBaseImplementation::SetPolledHostTimeout>(implementation, port, index,
                                                               seconds);
}

int MarvaneUSB::EmptyPolledBuffer(_usbSerialPort port, unsigned char index) {
    return Forward<&KBaseImplementation::EmptyPolledBuffer>(implementation, port, index);
}

int MarvaneUSB::ReceivePolledMessage(_usbSerialPort port, unsigned char index,
                                     unsigned char* buffer, unsigned long* length,
                                     unsigned int* status) {
    return Forward<&KBaseImplementation::ReceivePolledMessage>(implementation, port, index, buffer,
                                                               length, status);
}

int MarvaneUSB::ReceivePolledMessageEx(_usbSerialPort port, unsigned char index,
                                       unsigned char* buffer, unsigned long capacity,
                                       unsigned long* length, unsigned int* status) {
    return Forward<&KBaseImplementation::ReceivePolledMessageEx>(implementation, port, index,
                                                                 buffer, capacity, length, status);
}

int MarvaneUSB::DeletePolledMessage(_usbSerialPort port, unsigned char index) {
    return Forward<&KBaseImplementation::DeletePolledMessage>(implementation, port, index);
}

int MarvaneUSB::SetTimeoutMessage(_usbSerialPort port, unsigned char* message, unsigned char length,
                                  float seconds) {
    return Forward<&KBaseImplementation::SetTimeoutMessage>(implementation, port, message, length,
                                                            seconds);
}

int MarvaneUSB::SetSASMachineAddress(_usbSerialPort port, unsigned char address) {
    if (implementation == nullptr) return FailWithoutSas();
    return implementation->SetSASMachineAddress(port, address);
}

int MarvaneUSB::SetSASAutoReply(_usbSerialPort port, unsigned int mode, unsigned char value) {
    if (implementation == nullptr) return FailWithoutSas();
    return implementation->SetSASAutoReply(port, mode, value);
}

int MarvaneUSB::SetSASBusy(_usbSerialPort port, unsigned int mode) {
    if (implementation == nullptr) return FailWithoutSas();
    return implementation->SetSASBusy(port, mode);
}

int MarvaneUSB::GetSASMessageStatus(_usbSerialPort port, unsigned int* status) {
    if (implementation == nullptr) return FailWithoutSas();
    return implementation->GetSASMessageStatus(port, status);
}
