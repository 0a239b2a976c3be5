// Who the board is: versions of its two programs, and its serial numbers.
//
// What follows is the simulator's own choice, boards may differ:
// - A version is two bytes, major and minor: 1.2 of the 8051's program, 2.5 of the PIC's.
// - The PIC's serial number is 8 digits of text until one is set, and stays set without power.
// - The Dallas number is that of a plain serial-number chip (family 1).
#ifndef MARVANE_SIMULATOR_BOARD_IDENTITY_H
#define MARVANE_SIMULATOR_BOARD_IDENTITY_H

#include <array>

#include "terms/answer.h"

namespace simulator {

using SerialNumber = std::array<std::uint8_t, 8>;

class BoardIdentity {
public:
    /// The number, up to 99999999, tells this board's serial numbers from those of the others.
    explicit BoardIdentity(std::uint32_t number);

    Answer Report8051Version(Payload payload);
    Answer ReportPicVersion(Payload payload);
    Answer ReadPicSerial(Payload payload);
    Answer SetPicSerial(Payload payload);
    Answer ReadDallasNumber(Payload payload);

    /// Its last byte is the 1-Wire CRC of the others.
    const SerialNumber& DallasNumber() const { return dallasNumber; }
    const SerialNumber& PicSerial() const { return picSerial; }
    void Restore(const SerialNumber& newPicSerial) { picSerial = newPicSerial; }

private:
    SerialNumber dallasNumber;
    SerialNumber picSerial;
};

}  // namespace simulator

#endif
