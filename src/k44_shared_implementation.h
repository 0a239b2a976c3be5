/**
 * @file k44_shared_implementation.h
 * @brief What the K44 and the K50 have in common: the transfer record and the paged memory.
 */
#ifndef K44_SHARED_IMPLEMENTATION_H
#define K44_SHARED_IMPLEMENTATION_H

#include "memory_access.h"

class KBaseImplementation;

namespace k44_shared {

/** The whole of PerformUSBIO on a K44 or K50. */
int PerformUSBIO(const KBaseImplementation& board, unsigned char command, int channel,
                 unsigned char* in, unsigned long inLen, unsigned char* out, unsigned long* outLen);

/** While the program does not run, address 0 is its start, and so a download is a write. */
MemoryAccess WriteAccess(int boardSpeed, bool programRuns);
MemoryAccess ReadAccess(int boardSpeed);

}  // namespace k44_shared

#endif  // K44_SHARED_IMPLEMENTATION_H
