/**
 * @file open_file.h
 * @brief A file that is read and closed again.
 */
#ifndef OPEN_FILE_H
#define OPEN_FILE_H

#include <cstdio>
#include <memory>

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

/** Null, and errno, where it cannot be read. */
inline OpenFile OpenToRead(const char* path) {
    return OpenFile(std::fopen(path, "re"));
}

#endif  // OPEN_FILE_H
