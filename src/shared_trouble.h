/**
 * @file shared_trouble.h
 * @brief Why a process has no semaphore set, no segment, or not all of what is in it; for people.
 */
#ifndef SHARED_TROUBLE_H
#define SHARED_TROUBLE_H

#include <cerrno>
#include <cstdint>

#include "key_file.h"

class TextLine;

struct alignas(std::uint64_t) Trouble {
    enum class Kind : std::uint16_t {
        kNone,
        kKeyFile,      // cannot be opened
        kKeyFileHeld,  // by another process, for too long
        kRefused,      // the kernel refuses the object that is there
        kNotCreated,   // the kernel refuses to make it
        kStranger,     // what is there under our key is not ours
        kVanishing,    // it is removed again and again
    };

    /** What is not there, or not finished, cannot be made without the key file's lock. */
    static Trouble WithoutLock(const KeyFileLock& file) {
        if (file.Held()) return Of(Kind::kKeyFile, errno);  // it names no key
        const KeyFileRefusal& refusal = file.Refusal();
        return refusal.error != 0 ? Of(Kind::kKeyFile, refusal.error)
                                  : Trouble{Kind::kKeyFileHeld, 0, refusal.holder};
    }
    static Trouble Of(Kind kind, int error = 0) {
        return {kind, static_cast<std::uint16_t>(error), 0};
    }

    /** For the missing thing of that name and its key file. */
    void Describe(TextLine& line, const char* what, const KeyPath& keyFile) const;

    Kind kind = Kind::kNone;
    std::uint16_t error = 0;  // errno
    std::int32_t holder = 0;  // a process; 0: unknown
};

#endif  // SHARED_TROUBLE_H
