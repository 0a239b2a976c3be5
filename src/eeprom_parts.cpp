/**
 * @file eeprom_parts.cpp
 * @brief The EEPROM parts that a board may carry.
 */
#include "marvaneusb.h"

// clang-format off
//                       page  address  highest  bus
//                             bytes    address  address
const K40EEPROM E24LC01  {  8, 1,       0x007F,  0x50};
const K40EEPROM E24LC02  {  8, 1,       0x00FF,  0x50};
const K40EEPROM E24LC04  { 16, 1,       0x01FF,  0x50};
const K40EEPROM E24LC08  { 16, 1,       0x03FF,  0x50};
const K40EEPROM E24LC16  { 16, 1,       0x07FF,  0x50};
const K40EEPROM E24LC32  { 32, 2,       0x0FFF,  0x51};
const K40EEPROM E24LC64  { 32, 2,       0x1FFF,  0x51};
const K40EEPROM E24LC128 { 64, 2,       0x3FFF,  0x51};
const K40EEPROM E24LC256 { 64, 2,       0x7FFF,  0x51};
const K40EEPROM E24LC512 {128, 2,       0xFFFF,  0x51};
// clang-format on
