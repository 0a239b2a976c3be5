/**
 * @file memory_access.h
 * @brief One way into one of the board's memories: what a transfer of many chunks needs to know.
 */
#ifndef MEMORY_ACCESS_H
#define MEMORY_ACCESS_H

#include "board_limits.h"
#include "commands.h"
#include "payload.h"

struct MemoryAccess {
    Command command;
    unsigned long longestChunk;
    unsigned long pageSize;  // no chunk crosses a multiple of it
    void (*appendPlace)(Payload& payload, unsigned long address);
};

/** The place of a byte in a memory without pages. */
inline void AppendFlatPlace(Payload& payload, unsigned long address) {
    payload.LowFirst(static_cast<unsigned short>(address));
}

#endif  // MEMORY_ACCESS_H
