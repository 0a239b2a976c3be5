/**
 * @file kbase_implementation_pending.cpp
 * @brief Operations that no unit performs yet: they fail and leave the last error alone.
 */
#include "k40_implementation.h"
#include "k44_implementation.h"
#include "k50_implementation.h"
#include "kbase_implementation.h"

int KBaseImplementation::SetSASMachineAddress(_usbSerialPort /*port*/, unsigned char /*address*/) {
    return 0;
}

int KBaseImplementation::SetConfig(_usbSerialPort /*port*/, _DCB* /*dcb*/, _usbPortType /*type*/) {
    return 0;
}

int KBaseImplementation::SetSASAutoReply(_usbSerialPort /*port*/, unsigned int /*mode*/,
                                         unsigned char /*value*/) {
    return 0;
}

int KBaseImplementation::SetSASBusy(_usbSerialPort /*port*/, unsigned int /*mode*/) {
    return 0;
}

int KBaseImplementation::GetSASMessageStatus(_usbSerialPort /*port*/, unsigned int* /*status*/) {
    return 0;
}

int KBaseImplementation::Send(_usbSerialPort /*port*/, unsigned char* /*data*/,
                              unsigned int /*length*/) {
    return 0;
}

int KBaseImplementation::Receive(_usbSerialPort /*port*/, unsigned char* /*buffer*/,
                                 unsigned long* /*length*/) {
    return 0;
}

int KBaseImplementation::ReceiveByteWithTimestamp(_usbSerialPort /*port*/, unsigned char* /*data*/,
                                                  unsigned char* /*timestamp*/,
                                                  unsigned int* /*received*/) {
    return 0;
}

int KBaseImplementation::Send9BitData(_usbSerialPort /*port*/, unsigned short* /*words*/,
                                      unsigned int /*count*/) {
    return 0;
}

int KBaseImplementation::Receive9BitData(_usbSerialPort /*port*/, unsigned short* /*words*/,
                                         unsigned long* /*count*/) {
    return 0;
}

int KBaseImplementation::ReceiveByteWithTimestamp9BitData(_usbSerialPort /*port*/,
                                                          unsigned short* /*data*/,
                                                          unsigned char* /*timestamp*/,
                                                          unsigned int* /*received*/) {
    return 0;
}

int KBaseImplementation::SetTimeoutMessage(_usbSerialPort /*port*/, unsigned char* /*message*/,
                                           unsigned char /*length*/, float /*seconds*/) {
    return 0;
}

int KBaseImplementation::GetParityErrors(_usbSerialPort /*port*/, unsigned short* /*count*/) {
    return 0;
}

int KBaseImplementation::ConfigureCCTalkPort(_usbSerialPort /*port*/, CCTalkConfig* /*config*/) {
    return 0;
}

int KBaseImplementation::ConfigureRS232Poll(_usbSerialPort /*port*/, RS232PollConfig* /*config*/) {
    return 0;
}

int KBaseImplementation::SetPolledHostTimeout(_usbSerialPort /*port*/, unsigned char /*index*/,
                                              double /*seconds*/) {
    return 0;
}

int KBaseImplementation::EmptyPolledBuffer(_usbSerialPort /*port*/, unsigned char /*index*/) {
    return 0;
}

int KBaseImplementation::ReceivePolledMessage(_usbSerialPort /*port*/, unsigned char /*index*/,
                                              unsigned char* /*buffer*/, unsigned long* /*length*/,
                                              unsigned int* /*status*/) {
    return 0;
}

int KBaseImplementation::DeletePolledMessage(_usbSerialPort /*port*/, unsigned char /*index*/) {
    return 0;
}

int KBaseImplementation::ReceiveEx(_usbSerialPort /*port*/, unsigned char* /*buffer*/,
                                   unsigned long /*capacity*/, unsigned long* /*length*/) {
    return 0;
}

int KBaseImplementation::Receive9BitDataEx(_usbSerialPort /*port*/, unsigned short* /*words*/,
                                           unsigned long /*capacity*/, unsigned long* /*count*/) {
    return 0;
}

int KBaseImplementation::ReceivePolledMessageEx(_usbSerialPort /*port*/, unsigned char /*index*/,
                                                unsigned char* /*buffer*/,
                                                unsigned long /*capacity*/,
                                                unsigned long* /*length*/,
                                                unsigned int* /*status*/) {
    return 0;
}

int KBaseImplementation::SendChunks(_usbSerialPort /*port*/, unsigned long /*bytes*/,
                                    const SerialSource& /*source*/) {
    return 0;
}

int KBaseImplementation::FetchReceived(_usbSerialPort /*port*/, Reply& /*reply*/) {
    return 0;
}

int KBaseImplementation::FetchTimestamped(_usbSerialPort /*port*/, K40BUFFER& /*entry*/) {
    return 0;
}

int KBaseImplementation::ReceiveTimestamped(_usbSerialPort /*port*/, Data* /*data*/,
                                            unsigned char* /*timestamp*/,
                                            unsigned int* /*received*/) {
    return 0;
}

int KBaseImplementation::ConfigurePoll(_usbSerialPort /*port*/, Config* /*config*/) {
    return 0;
}

int KBaseImplementation::SendPolledIndex(_usbSerialPort /*port*/, unsigned char /*command*/,
                                         unsigned char /*index*/) {
    return 0;
}
