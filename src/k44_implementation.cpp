/**
 * @file k44_implementation.cpp
 * @brief The K44 board: its transport and its type.
 */
#include "k44_implementation.h"

#include "k44_shared_implementation.h"

int K44_Implementation::PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                                     unsigned long inLen, unsigned char* out,
                                     unsigned long* outLen) {
    return k44_shared::PerformUSBIO(*this, command, channel, in, inLen, out, outLen);
}

int K44_Implementation::GetBoardType(unsigned char* type) {
    return AnswerBoardType(BoardType::kK44, type);
}
