/**
 * @file k40api_serial.cpp
 * @brief The serial operations of MarvaneUSB that the open board performs.
 *
 * With no board open they yield 0 and leave the last error alone; only the SAS operations say that
 * there is nothing to support them.
 */
#include "kbase_implementation.h"
#include "marvaneusb.h"

int MarvaneUSB::SetConfig(_usbSerialPort port, _DCB* dcb, _usbPortType type) {
    return implementation == nullptr ? 0 : implementation->SetConfig(port, dcb, type);
}

int MarvaneUSB::Send(_usbSerialPort port, unsigned char* data, unsigned int length) {
    return implementation == nullptr ? 0 : implementation->Send(port, data, length);
}

int MarvaneUSB::Receive(_usbSerialPort port, unsigned char* buffer, unsigned long* length) {
    return implementation == nullptr ? 0 : implementation->Receive(port, buffer, length);
}

int MarvaneUSB::ReceiveEx(_usbSerialPort port, unsigned char* buffer, unsigned long capacity,
                          unsigned long* length) {
    return implementation == nullptr ? 0
                                     : implementation->ReceiveEx(port, buffer, capacity, length);
}

int MarvaneUSB::ReceiveByteWithTimestamp(_usbSerialPort port, unsigned char* data,
                                         unsigned char* timestamp, unsigned int* received) {
    return implementation == nullptr
               ? 0
               : implementation->ReceiveByteWithTimestamp(port, data, timestamp, received);
}

int MarvaneUSB::Send9BitData(_usbSerialPort port, unsigned short* words, unsigned int count) {
    return implementation == nullptr ? 0 : implementation->Send9BitData(port, words, count);
}

int MarvaneUSB::Receive9BitData(_usbSerialPort port, unsigned short* words, unsigned long* count) {
    return implementation == nullptr ? 0 : implementation->Receive9BitData(port, words, count);
}

int MarvaneUSB::Receive9BitDataEx(_usbSerialPort port, unsigned short* words,
                                  unsigned long capacity, unsigned long* count) {
    return implementation == nullptr
               ? 0
               : implementation->Receive9BitDataEx(port, words, capacity, count);
}

int MarvaneUSB::ReceiveByteWithTimestamp9BitData(_usbSerialPort port, unsigned short* data,
                                                 unsigned char* timestamp, unsigned int* received) {
    return implementation == nullptr
               ? 0
               : implementation->ReceiveByteWithTimestamp9BitData(port, data, timestamp, received);
}

int MarvaneUSB::GetParityErrors(_usbSerialPort port, unsigned short* count) {
    return implementation == nullptr ? 0 : implementation->GetParityErrors(port, count);
}

int MarvaneUSB::ConfigureCCTalkPort(_usbSerialPort port, CCTalkConfig* config) {
    return implementation == nullptr ? 0 : implementation->ConfigureCCTalkPort(port, config);
}

int MarvaneUSB::ConfigureRS232Poll(_usbSerialPort port, RS232PollConfig* config) {
    return implementation == nullptr ? 0 : implementation->ConfigureRS232Poll(port, config);
}

int MarvaneUSB::SetPolledHostTimeout(_usbSerialPort port, unsigned char index, double seconds) {
    return implementation == nullptr ? 0
                                     : implementation->SetPolledHostTimeout(port, index, seconds);
}

int MarvaneUSB::EmptyPolledBuffer(_usbSerialPort port, unsigned char index) {
    return implementation == nullptr ? 0 : implementation->EmptyPolledBuffer(port, index);
}

int MarvaneUSB::ReceivePolledMessage(_usbSerialPort port, unsigned char index,
                                     unsigned char* buffer, unsigned long* length,
                                     unsigned int* status) {
    return implementation == nullptr
               ? 0
               : implementation->ReceivePolledMessage(port, index, buffer, length, status);
}

int MarvaneUSB::ReceivePolledMessageEx(_usbSerialPort port, unsigned char index,
                                       unsigned char* buffer, unsigned long capacity,
                                       unsigned long* length, unsigned int* status) {
    return implementation == nullptr ? 0
                                     : implementation->ReceivePolledMessageEx(
                                           port, index, buffer, capacity, length, status);
}

int MarvaneUSB::DeletePolledMessage(_usbSerialPort port, unsigned char index) {
    return implementation == nullptr ? 0 : implementation->DeletePolledMessage(port, index);
}

int MarvaneUSB::SetTimeoutMessage(_usbSerialPort port, unsigned char* message, unsigned char length,
                                  float seconds) {
    return implementation == nullptr
               ? 0
               : implementation->SetTimeoutMessage(port, message, length, seconds);
}

int MarvaneUSB::SetSASMachineAddress(_usbSerialPort port, unsigned char address) {
    if (implementation == nullptr) return KBaseImplementation::Fail(USB_ERR_NOT_SUPPORTED_K40);
    return implementation->SetSASMachineAddress(port, address);
}

int MarvaneUSB::SetSASAutoReply(_usbSerialPort port, unsigned int mode, unsigned char value) {
    if (implementation == nullptr) return KBaseImplementation::Fail(USB_ERR_NOT_SUPPORTED_K40);
    return implementation->SetSASAutoReply(port, mode, value);
}

int MarvaneUSB::SetSASBusy(_usbSerialPort port, unsigned int mode) {
    if (implementation == nullptr) return KBaseImplementation::Fail(USB_ERR_NOT_SUPPORTED_K40);
    return implementation->SetSASBusy(port, mode);
}

int MarvaneUSB::GetSASMessageStatus(_usbSerialPort port, unsigned int* status) {
    if (implementation == nullptr) return KBaseImplementation::Fail(USB_ERR_NOT_SUPPORTED_K40);
    return implementation->GetSASMessageStatus(port, status);
}
