/**
 * @file board_error.h
 * @brief Turns a failed operation into an exception, so that the machine's code can go straight on.
 */
#ifndef BOARD_ERROR_H
#define BOARD_ERROR_H

#include <stdexcept>
#include <string>

#include "why.h"

class BoardError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** For the result of an operation, on the thread that called it: throws unless it succeeded. */
inline void Require(int result, const char* what) {
    if (result == 0) throw BoardError(std::string(what) + " failed: " + Why());
}

#endif  // BOARD_ERROR_H
