/**
 * @file forward.h
 * @brief How the facade hands an operation to the open board.
 */
#ifndef FORWARD_H
#define FORWARD_H

#include "kbase_implementation.h"

/** With no board open an operation yields 0 and leaves the last error alone. */
template <auto operation, class... Arguments>
int Forward(KBaseImplementation* board, Arguments... arguments) {
    return board == nullptr ? KBaseImplementation::FailWithoutBoard()
                            : (board->*operation)(arguments...);
}

#endif  // FORWARD_H
