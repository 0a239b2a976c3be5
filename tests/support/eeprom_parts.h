/**
 * @file eeprom_parts.h
 * @brief The EEPROM parts as they are recorded and told to a board, for the EEPROM's tests.
 */
#ifndef EEPROM_PARTS_H
#define EEPROM_PARTS_H

#include "board_eeprom.h"
#include "board_test.h"
#include "shared_entries.h"

struct Part {
    const char* name;
    const K40EEPROM& descriptor;
    simulator::EepromPart fitted;
    Bytes record;  // what stands in the shared entry
    Bytes told;    // what the board is told
};

// clang-format off
inline const Part kParts[] = {
    {"24LC01",  E24LC01,  simulator::EepromPart::k24LC01,  {  8, 1, 0x7F, 0x00, 0x50, 0}, {  8, 1, 0x00, 0x7F, 0x50}},
    {"24LC02",  E24LC02,  simulator::EepromPart::k24LC02,  {  8, 1, 0xFF, 0x00, 0x50, 0}, {  8, 1, 0x00, 0xFF, 0x50}},
    {"24LC04",  E24LC04,  simulator::EepromPart::k24LC04,  { 16, 1, 0xFF, 0x01, 0x50, 0}, { 16, 1, 0x01, 0xFF, 0x50}},
    {"24LC08",  E24LC08,  simulator::EepromPart::k24LC08,  { 16, 1, 0xFF, 0x03, 0x50, 0}, { 16, 1, 0x03, 0xFF, 0x50}},
    {"24LC16",  E24LC16,  simulator::EepromPart::k24LC16,  { 16, 1, 0xFF, 0x07, 0x50, 0}, { 16, 1, 0x07, 0xFF, 0x50}},
    {"24LC32",  E24LC32,  simulator::EepromPart::k24LC32,  { 32, 2, 0xFF, 0x0F, 0x51, 0}, { 32, 2, 0x0F, 0xFF, 0x51}},
    {"24LC64",  E24LC64,  simulator::EepromPart::k24LC64,  { 32, 2, 0xFF, 0x1F, 0x51, 0}, { 32, 2, 0x1F, 0xFF, 0x51}},
    {"24LC128", E24LC128, simulator::EepromPart::k24LC128, { 64, 2, 0xFF, 0x3F, 0x51, 0}, { 64, 2, 0x3F, 0xFF, 0x51}},
    {"24LC256", E24LC256, simulator::EepromPart::k24LC256, { 64, 2, 0xFF, 0x7F, 0x51, 0}, { 64, 2, 0x7F, 0xFF, 0x51}},
    {"24LC512", E24LC512, simulator::EepromPart::k24LC512, {128, 2, 0xFF, 0xFF, 0x51, 0}, {128, 2, 0xFF, 0xFF, 0x51}},
};
// clang-format on

inline const Exchange kTellE24LC16 = {3, 2, {16, 1, 0x07, 0xFF, 0x50}};
inline const Exchange kTellE24LC256 = {3, 2, {64, 2, 0x7F, 0xFF, 0x51}};
inline const Bytes kHoldsE24LC16 = {16, 1, 0xFF, 0x07, 0x50, 0, 1, 0};
inline const Bytes kHoldsE24LC256 = {64, 2, 0xFF, 0x7F, 0x51, 0, 1, 0};
inline const Bytes kHoldsNothing(8);

/** The descriptors are constants, and the library only reads what it is told. */
inline K40EEPROM* Told(const K40EEPROM& part) {
    return const_cast<K40EEPROM*>(&part);
}

class EepromBoardTest : public BoardTest {
protected:
    ~EepromBoardTest() override { entries.Clear(); }

    SharedEntries entries = SharedEntries::OfEeproms();
};

#endif  // EEPROM_PARTS_H
