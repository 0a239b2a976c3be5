// Keeps what the boards keep without power in a folder while they are simulated.
#ifndef MARVANE_SIMULATOR_STATE_KEEPER_H
#define MARVANE_SIMULATOR_STATE_KEEPER_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "driver/driver_stand_in.h"
#include "state/directory.h"

namespace simulator {

/// Saves what has changed every second, on a thread of its own, and in the end. A failure to save
/// is said once for each board on the standard error, and tried again.
class StateKeeper {
public:
    /// Gives the boards what the folder holds for them. Throws std::runtime_error with a message
    /// for the user where a file holds nothing for its board.
    StateKeeper(const StateDirectory& stateDirectory, DriverStandIn& standIn);
    ~StateKeeper();
    StateKeeper(const StateKeeper&) = delete;
    StateKeeper& operator=(const StateKeeper&) = delete;

private:
    void Restore(Device& device);
    void Run();
    void SaveChanges();
    void Save(int number);
    BoardContents ContentsOf(int number);

    const StateDirectory& directory;
    DriverStandIn& driver;
    std::map<int, BoardContents> saved;  // as the files hold them, or as the boards began
    std::set<int> failing;

    std::mutex mutex;  // guards ending
    std::condition_variable ended;
    bool ending = false;
    std::thread thread;
};

}  // namespace simulator

#endif
