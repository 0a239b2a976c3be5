/**
 * @file why.h
 * @brief A failure in words.
 */
#ifndef WHY_H
#define WHY_H

#include <cstdio>
#include <string>

#include "marvaneusb.h"

/** Why the calling thread's last failed call failed, and what mends it; for people. */
inline std::string Why() {
    char text[1000];
    MarvaneUSB::DescribeFailure(text, sizeof text);
    return text;
}

/** Prints why a board could not be opened. */
inline void ComplainOfOpening() {
    std::fprintf(stderr, "The board could not be opened: %s\n", Why().c_str());
}

#endif  // WHY_H
