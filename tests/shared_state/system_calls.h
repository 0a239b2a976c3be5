/**
 * @file system_calls.h
 * @brief Counts the program's System V and flock calls, and may end it after any of them.
 *
 * Linked into a program, it takes semget, semop, semctl, shmget, shmat, shmdt, shmctl and flock,
 * and passes them on.
 */
#ifndef SYSTEM_CALLS_H
#define SYSTEM_CALLS_H

namespace system_calls {

/** Starts to count anew; the process is killed (SIGKILL) right after call `last`, 1 the first. */
void CountAndKillAfter(int last);
/** Starts to count anew. */
void Count();
int Made();
/** Waits for a semaphore that a signal has interrupted, since the start of the count. */
int Interrupted();

/** Called after every call with its name, while it is set; must not make such a call itself. */
void Watch(void (*watcher)(const char* name, long result));

/** Segments are attached between pages that must not be touched. */
void AttachBetweenGuards(bool guarded);

}  // namespace system_calls

#endif  // SYSTEM_CALLS_H
