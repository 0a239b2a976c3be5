/**
 * @file kbase_implementation_memory.cpp
 * @brief Transfers to and from the board's memories, cut into chunks that fit one command.
 */
#include <algorithm>

#include "kbase_implementation.h"
#include "memory_access.h"

namespace {

/** Begins the payload of a chunk, and yields how many bytes the chunk holds. */
unsigned long BeginChunk(const MemoryAccess& access, unsigned long address, unsigned long remaining,
                         Payload& payload) {
    const unsigned long restOfPage = access.pageSize - address % access.pageSize;
    const unsigned long length = std::min({remaining, access.longestChunk, restOfPage});
    payload.Byte(length);
    access.appendPlace(payload, address);
    return length;
}

}  // namespace

int CheckMemoryRange(unsigned long limit, _usbErrorCode beyond, unsigned long address,
                     const unsigned char* data, unsigned long length) {
    // The sum of the application's two numbers could wrap; this difference cannot.
    if (address > limit || length > limit - address) return Fail(beyond);
    if (data == nullptr) return Fail(USB_ERR_NULL_POINTER);
    return 1;
}

int WriteMemory(KBaseImplementation& board, const MemoryAccess& access, unsigned long address,
                const unsigned char* data, unsigned long length) {
    for (unsigned long done = 0; done < length;) {
        Payload payload;
        const unsigned long chunk = BeginChunk(access, address + done, length - done, payload);
        if (!board.Exchange(access.command, payload.Bytes(data + done, chunk))) return 0;
        done += chunk;
    }
    return 1;
}

int ReadMemory(KBaseImplementation& board, const MemoryAccess& access, unsigned long address,
               unsigned char* data, unsigned long length) {
    for (unsigned long done = 0; done < length;) {
        Payload payload;
        const unsigned long chunk = BeginChunk(access, address + done, length - done, payload);
        CopiedReply reply = CopiedReply::UpTo(chunk);
        if (!board.Exchange(access.command, payload, reply)) return 0;

        // A short reply is asked on from where it ended; an empty one would be asked for ever.
        if (reply.Length() == 0) return Fail(USB_ERR_TRANSFER_FAILED);
        if (reply.Length() > chunk) return Fail(USB_ERR_DATA_TOO_LONG);
        done += reply.CopyTo(data + done, chunk);
    }
    return 1;
}
