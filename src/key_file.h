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
 * either gives no lock, and neither does one that somebody holds for more than ten seconds, for
 * whoever may read it could hold up every process: a process then uses what it finds finished, and
 * creates, allocates and removes nothing. A file that kept a process waiting in vain is only tried
 * from then on, until it is free. A symbolic link in the file's place is never followed to create
 * its target.
 *
 * While a thread has a key file open no signal handler runs on it: one that forks would leave a
 * child with half of what the thread was about. While it waits, handlers run.
 */
#ifndef KEY_FILE_H
#define KEY_FILE_H

#include <sys/types.h>

#include <optional>

#include "signals_blocked.h"

/** The path of a key file. */
class KeyPath {
public:
    enum class Kind { kSet, kArena };

    static KeyPath OfSet(const char* name) { return {Kind::kSet, name}; }
    static KeyPath OfArena(const char* name) { return {Kind::kArena, name}; }

    [[nodiscard]] Kind Names() const { return kind_; }
    [[nodiscard]] const char* Text() const { return text_; }

private:
    KeyPath(Kind kind, const char* name);

    Kind kind_;
    char text_[512];
};

/** Why a key file gave no lock. */
struct KeyFileRefusal {
    int error = 0;     // of opening it; 0 when somebody holds it
    pid_t holder = 0;  // 0: nobody, or unknown
};

/** Holds the lock of one key file from construction to destruction. */
class KeyFileLock {
public:
    static constexpr key_t kNoKey = -1;

    /** Creates the file when it is missing and waits for its lock. */
    explicit KeyFileLock(const KeyPath& path);
    KeyFileLock(const KeyFileLock&) = delete;
    KeyFileLock& operator=(const KeyFileLock&) = delete;
    ~KeyFileLock();

    [[nodiscard]] bool Held() const { return descriptor_ >= 0; }
    [[nodiscard]] const KeyFileRefusal& Refusal() const { return refusal_; }
    /** ftok of the locked file, else of the path; kNoKey when there is no such file. */
    [[nodiscard]] key_t Key(int projectId) const;

private:
    enum class Outcome { kHeld, kReplaced, kTaken, kNoLock };
    Outcome TryLock();
    Outcome Refuse(int error);
    void GiveBack();

    KeyPath path_;
    KeyFileRefusal refusal_;
    std::optional<SignalsBlocked> signals_;  // while the file is open
    int descriptor_ = -1;
};

/**
 * The key files that this process has open. A lock belongs to the open file, which fork copies: a
 * child that kept its copy would keep the lock alive after its parent has died. No thread opens or
 * closes one while another one forks, for then the child would not know which to close.
 */
class OpenKeyFiles {
public:
    static int Open(const char* path);
    /** Gives the lock back and closes the file; nothing where it is the parent's. */
    static void Close(int descriptor);

    // At a fork
    static void HoldStill();
    static void GoOn();
    static void CloseInChild();
};

#endif  // KEY_FILE_H
