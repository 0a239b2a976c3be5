// A folder with one file for each board, which outlives the simulation.
#ifndef MARVANE_SIMULATOR_STATE_DIRECTORY_H
#define MARVANE_SIMULATOR_STATE_DIRECTORY_H

#include <filesystem>
#include <optional>

#include "board/contents.h"
#include "driver/descriptor.h"

namespace simulator {

/// Belongs to this object, and to nobody else who goes through one, until its end or that of the
/// process, however it ends. The functions throw std::runtime_error with a message for the user.
class StateDirectory {
public:
    /// Makes the folder where it is missing.
    explicit StateDirectory(const std::filesystem::path& folder);
    StateDirectory(const StateDirectory&) = delete;
    StateDirectory& operator=(const StateDirectory&) = delete;

    /// What Save wrote last, also when a process was killed in the middle of a later Save. Nothing
    /// where the board has no file.
    std::optional<BoardContents> Load(int board) const;
    void Save(int board, const BoardContents& contents) const;

    /// The board's file, for messages.
    std::filesystem::path FileOf(int board) const;

private:
    std::filesystem::path folder;
    Descriptor descriptor;
};

}  // namespace simulator

#endif
