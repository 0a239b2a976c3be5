/**
 * @file kbase_shared_serial_impl.h
 * @brief The shared buffers of bytes that were received with timestamps.
 */
#ifndef KBASE_SHARED_SERIAL_IMPL_H
#define KBASE_SHARED_SERIAL_IMPL_H

#include "kbase_shared_implementation.h"

/** What "K40BUFFERS" holds of a board: the bytes of the last fetch, for both of its ports. */
struct K40BUFFER {
    std::uint16_t count;      // bytes that the last fetch delivered
    std::uint16_t readIndex;  // next byte to hand out; the entry is empty when it equals count
    unsigned char bytes[256];
};
static_assert(sizeof(K40BUFFER) == 260);

extern Shared<K40BUFFER[kDeviceCount]> SharedserialRxBuffer;

#endif  // KBASE_SHARED_SERIAL_IMPL_H
