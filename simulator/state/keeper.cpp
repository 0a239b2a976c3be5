// Compares the boards with their files now and then: no word or command need tell what it changes.
#include "state/keeper.h"

#include <chrono>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace simulator {
namespace {

constexpr std::chrono::seconds kSavePeriod{1};

}  // namespace

StateKeeper::StateKeeper(const StateDirectory& stateDirectory, DriverStandIn& standIn)
    : directory(stateDirectory), driver(standIn) {
    {
        const auto access = driver.Devices();
        for (auto& [number, device] : access.devices)
            Restore(device);
    }
    thread = std::thread([this] { Run(); });
}

StateKeeper::~StateKeeper() {
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    ended.notify_all();
    thread.join();
    SaveChanges();
}

void StateKeeper::Restore(Device& device) {
    const auto contents = directory.Load(device.Number());
    if (contents && !device.board.Restore(*contents)) {
        throw std::runtime_error(directory.FileOf(device.Number()).string() +
                                 " is of another board model or EEPROM part; it was left as it is");
    }
    saved[device.Number()] = device.board.Contents();
}

void StateKeeper::Run() {
    std::unique_lock lock(mutex);
    while (!ended.wait_for(lock, kSavePeriod, [this] { return ending; })) {
        lock.unlock();
        SaveChanges();
        lock.lock();
    }
}

void StateKeeper::SaveChanges() {
    for (const auto& [number, contents] : saved)
        Save(number);
}

void StateKeeper::Save(int number) try {
    BoardContents contents = ContentsOf(number);
    if (contents == saved[number]) return;
    directory.Save(number, contents);
    saved[number] = std::move(contents);
    failing.erase(number);
} catch (const std::exception& error) {
    if (failing.insert(number).second) {
        std::cerr << "marvane-sim: board " << number << " is not kept: " << error.what() << "\n";
    }
}

// One board at a time: exchanges wait only for the copying of one.
BoardContents StateKeeper::ContentsOf(int number) {
    const auto access = driver.Devices();
    Board& board = access.devices.at(number).board;
    board.Advance();
    return board.Contents();
}

}  // namespace simulator
