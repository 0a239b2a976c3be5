/**
 * @file header_cxx11.cpp
 * @brief The public header by itself, compiled as C++11, and the layout that it promises.
 */
#include "marvaneusb.h"

static_assert(sizeof(usbInput) == 5 && sizeof(usbOutput) == 5, "five bytes of bits");
static_assert(sizeof(usbMultiplexedInput) == 13, "lead byte and four groups of three");
static_assert(sizeof(usbRampTable) == 61, "length and 60 steps");
static_assert(sizeof(ReelStatusEx) == 18 && sizeof(usbReelStatus) == 12, "four arrays of three");
static_assert(sizeof(K40EEPROM) == 6, "five values and a padding byte");
static_assert(sizeof(MarvaneUSB) == sizeof(void*), "one pointer");
static_assert(static_cast<_usbSerialPort>(-1) < USB_SERIAL_PORT_0, "ports compare as signed");
static_assert(static_cast<_usbInputBitId>(-1) > USB_INPUT_32, "inputs compare as unsigned");
