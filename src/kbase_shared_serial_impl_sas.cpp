/**
 * @file kbase_shared_serial_impl_sas.cpp
 * @brief The board as a machine on a SAS host's line.
 */
#include "kbase_implementation.h"

namespace {

constexpr unsigned char kHighestMachineAddress = 127;

}  // namespace

int KBaseImplementation::SetSASMachineAddress(_usbSerialPort port, unsigned char address) {
    if (address > kHighestMachineAddress) return Fail(USB_ERR_OUT_OF_RANGE);
    return CheckPort(port) &&
           ExchangeWithPort(port, serial_commands::kSasMachineAddress, Payload().Byte(address));
}

int KBaseImplementation::SetSASAutoReply(_usbSerialPort port, unsigned int mode,
                                         unsigned char value) {
    return CheckPort(port) &&
           ExchangeWithPort(port, serial_commands::kSasAutoReply, Payload().Byte(mode).Byte(value));
}

int KBaseImplementation::SetSASBusy(_usbSerialPort port, unsigned int mode) {
    return CheckPort(port) && SetSASAutoReply(port, mode, 0);
}

int KBaseImplementation::GetSASMessageStatus(_usbSerialPort port, unsigned int* status) {
    if (status == nullptr) return Fail(USB_ERR_NULL_POINTER);
    if (!CheckPort(port)) return 0;

    Reply reply;
    if (!ExchangeWithPort(port, serial_commands::kSasMessageStatus, reply)) return 0;

    *status = reply.Byte(0);
    return 1;
}
