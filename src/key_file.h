/**
 * @file key_file.h
 * @brief The file that names a System V object, and the exclusion between processes that it gives.
 *
 * Finding or creating, initialising, registering and removing a semaphore set or a segment run
 * under an advisory lock (flock) on the object's key file. The kernel drops the lock when its
 * holder dies, at whatever instruction that is.
 *
 * A file that cannot be created or opened for writing (another user's, or one in a sticky
 * directory) is opened for reading, which is enough for flock and ftok. One that cannot be read
 * either gives no lock: a process then uses what it finds finished, and creates, allocates and
 * removes nothing. A symbolic link in the file's place is never followed to create its target.
 */
#ifndef KEY_FILE_H
#define KEY_FILE_H

#include <sys/types.h>

/** Holds the lock of one key file from construction to destruction. */
class KeyFileLock {
public:
    static constexpr int kPathRoom = 512;
    static constexpr key_t kNoKey = -1;

    /** Creates the file when it is missing and waits for its lock. */
    explicit KeyFileLock(const char* path);
    KeyFileLock(const KeyFileLock&) = delete;
    KeyFileLock& operator=(const KeyFileLock&) = delete;
    ~KeyFileLock();

    [[nodiscard]] bool Held() const { return descriptor_ >= 0; }
    /** ftok of the locked file, else of the path; kNoKey when there is no such file. */
    [[nodiscard]] key_t Key(int projectId) const;

private:
    enum class Outcome { kHeld, kReplaced, kNoLock };
    Outcome TryLock();
    void GiveBack();

    const char* path_;
    int descriptor_ = -1;
};

#endif  // KEY_FILE_H
