/**
 * @file from_environment.h
 * @brief Numbers that whoever runs a test may set.
 */
#ifndef FROM_ENVIRONMENT_H
#define FROM_ENVIRONMENT_H

#include <cstdlib>

inline unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 0));
}

#endif  // FROM_ENVIRONMENT_H
