/**
 * @file memory_access.h
 * @brief Transfers of many chunks to and from the board's memories.
 */
#ifndef MEMORY_ACCESS_H
#define MEMORY_ACCESS_H

#include "board_limits.h"
#include "commands.h"
#include "marvaneusb.h"
#include "payload.h"

class KBaseImplementation;

/** One way into one of the memories. */
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

/** Checks that neither address nor address + length is above the limit, then the pointer. */
int CheckMemoryRange(unsigned long limit, _usbErrorCode beyond, unsigned long address,
                     const unsigned char* data, unsigned long length);
/** Chunk by chunk in ascending order; the first that fails ends it. */
int WriteMemory(KBaseImplementation& board, const MemoryAccess& access, unsigned long address,
                const unsigned char* data, unsigned long length);
int ReadMemory(KBaseImplementation& board, const MemoryAccess& access, unsigned long address,
               unsigned char* data, unsigned long length);

#endif  // MEMORY_ACCESS_H
