/**
 * @file why.h
 * @brief A failure in words.
 */
#ifndef WHY_H
#define WHY_H

#include <string>

#include "marvaneusb.h"

/** Why the calling thread's last failed call failed, and what mends it; for people. */
inline std::string Why() {
    char text[1000];
    MarvaneUSB::DescribeFailure(text, sizeof text);
    return text;
}

#endif  // WHY_H
