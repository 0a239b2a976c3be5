/**
 * @file system_calls.h
 * @brief Watches the program's System V and flock calls.
 *
 * Linked into a program, it takes semget, semop, semctl, shmget, shmat, shmdt,
 * shmctl and flock, and passes them on.
 */
#ifndef SYSTEM_CALLS_H
#define SYSTEM_CALLS_H

#include <functional>
#include <string>

namespace system_calls {

/** Called after each call with its name and result; `number` is 1 at the first one. */
using Watcher = std::function<void(const std::string& name, long result, int number)>;

/** Replaces the watcher, which must not make such a call itself. Only while no thread works. */
void Watch(Watcher watcher);
/** Calls since then. */
int Made();

/** From now on sets and segments cannot be removed, as if they were somebody else's. */
void RefuseRemoval();

/** Segments are attached between pages that must not be touched. */
void AttachBetweenGuards();

}  // namespace system_calls

#endif  // SYSTEM_CALLS_H
