// Who the board is: versions of its two programs, and its serial numbers.
// What it does where boards may differ: docs/simulator.md, "Identity".
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

    Answer Report8051Version(ByteView payload);
    Answer ReportPicVersion(ByteView payload);
    Answer ReadPicSerial(ByteView payload);
    Answer SetPicSerial(ByteView payload);
    Answer ReadDallasNumber(ByteView payload);

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
