/**
 * @file led_key_files.h
 * @brief Gives a program key files, and with them System V objects, of its own.
 *
 * The library's processes meet in the objects whose keys it gets from ftok of two files in /tmp.
 * Linked into a program, this takes the program's calls of ftok and stat, and leads what they say
 * of the two files to a folder that only this program, what it forks and what it executes use.
 * Whoever takes the program's open and fopen leads their paths with Lead. No permission is needed,
 * and any number of such programs may run side by side.
 *
 * The keys are none that ftok itself ever yields for the library: whatever runs on this machine,
 * now or later, has other objects. When the last process of the program has ended, however it came,
 * a process that the first one has left behind removes objects and folder.
 *
 * A program that is executed learns of the folder from the environment: MARVANE_KEY_FILES.
 */
#ifndef LED_KEY_FILES_H
#define LED_KEY_FILES_H

#include <string>
#include <vector>

namespace led_key_files {

/** Where everybody may make files, as in /tmp. */
const std::string& Folder();
/** The path itself, or of a key file the one that stands for it. */
const char* Lead(const char* path);

/** By their ids. */
struct Objects {
    std::vector<int> sets, segments;
};
/** All that exists under keys that this program's key files have had. */
Objects FindObjects();
void RemoveObjects();

/** From now on this process gets no key. What it has joined stays. */
void WithholdKeys();

}  // namespace led_key_files

#endif  // LED_KEY_FILES_H
