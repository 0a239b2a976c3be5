/**
 * @file own_world.h
 * @brief Moves a test program away from the shared state of this machine, before anything is
 * loaded.
 *
 * Linked into a program, it gives it IPC objects and a /tmp of its own even before its shared
 * libraries are initialised, for the library under test joins the shared state at that moment. A
 * source or build folder under /tmp stays visible. What the program starts lives in the same world.
 */
#ifndef OWN_WORLD_H
#define OWN_WORLD_H

/** Null, or why the kernel refused; tests that touch shared state must not run then. */
const char* NoOwnWorld();

#endif  // OWN_WORLD_H
