// Reads and replaces the files of the boards' contents. All of it goes through the descriptor of
// the folder: the testbed leads some paths elsewhere.
#include "state/directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <system_error>

#include "state/contents_bytes.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kFileMode = 0666;
constexpr mode_t kFolderMode = 0777;
constexpr off_t kLargestFile = 4 * 1024 * 1024;  // no board holds more than half of that

[[noreturn]] void Fail(const fs::path& path) {
    throw std::system_error(errno, std::generic_category(), path.string());
}

// Makes the folder where it is missing.
Descriptor OpenFolder(const fs::path& folder) {
    if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) Fail(folder);
    Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.IsOpen()) Fail(folder);
    return opened;
}

class File : public Descriptor {
public:
    using Descriptor::Descriptor;

    bool IsPlainAndSmall() const {
        struct stat entry {};
        return fstat(Number(), &entry) == 0 && S_ISREG(entry.st_mode) &&
               entry.st_size <= kLargestFile;
    }

    // False where it cannot be read, or has grown meanwhile.
    bool ReadAll(std::vector<std::uint8_t>& bytes) const {
        std::array<std::uint8_t, 65536> buffer{};
        while (bytes.size() <= static_cast<std::size_t>(kLargestFile)) {
            const ssize_t count = read(Number(), buffer.data(), buffer.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return count == 0;
            bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + count);
        }
        return false;
    }

    bool WriteAll(ByteView bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = write(Number(), bytes.data(), bytes.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return false;
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        }
        return fsync(Number()) == 0;
    }
};

std::string NameOf(int board) {
    return "board-" + std::to_string(board);
}

}  // namespace

StateDirectory::StateDirectory(const fs::path& stateFolder)
    : folder(stateFolder), descriptor(OpenFolder(stateFolder)) {
    if (faccessat(descriptor.Number(), ".", W_OK | X_OK, AT_EACCESS) == 0 &&
        flock(descriptor.Number(), LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    if (errno == EWOULDBLOCK) {
        throw std::runtime_error(folder.string() + " is in use by another simulation");
    }
    Fail(folder);
}

std::optional<BoardContents> StateDirectory::Load(int board) const {
    // A pipe or a device in the file's place must not hold us up.
    const File file(
        openat(descriptor.Number(), NameOf(board).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen() && errno == ENOENT) return std::nullopt;
    if (!file.IsOpen()) Fail(FileOf(board));

    std::vector<std::uint8_t> bytes;
    if (file.IsPlainAndSmall() && file.ReadAll(bytes)) {
        if (auto contents = ContentsIn(bytes)) return contents;
    }
    throw std::runtime_error(FileOf(board).string() +
                             " is damaged or no board's contents; it was left as it is");
}

// Until the new file is whole and on the disk, the name leads to the old one.
void StateDirectory::Save(int board, const BoardContents& contents) const {
    const std::string name = NameOf(board);
    const std::string newName = name + ".new";
    // Of a process that was killed, or anything else that lies there.
    if (unlinkat(descriptor.Number(), newName.c_str(), 0) != 0 && errno != ENOENT)
        Fail(folder / newName);

    const File file(openat(descriptor.Number(), newName.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
    if (!file.IsOpen() || !file.WriteAll(AsBytes(contents)) ||
        renameat(descriptor.Number(), newName.c_str(), descriptor.Number(), name.c_str()) != 0 ||
        fsync(descriptor.Number()) != 0) {
        Fail(FileOf(board));
    }
}

fs::path StateDirectory::FileOf(int board) const {
    return folder / NameOf(board);
}

}  // namespace simulator
