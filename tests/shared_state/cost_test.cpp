/**
 * @file cost_test.cpp
 * @brief What an operation may cost: its exchange, two semops for each lock, and no more.
 *
 * Each operation runs in a process of its own in which any other system call is deadly.
 */
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

#include "allowed_system_calls.h"
#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

using Operation = std::function<int(LoadedLibrary&)>;

/** What a successful operation makes, or how the process ended. */
std::string CostOf(simulator::Model model, const Operation& operation) {
    struct Cost {
        std::size_t exchanges = 0;
        int calls = 0;
    };
    const InSharedMemory<Cost> cost;
    const int status = StatusOf([&] {
        AddAcceptingBoard();
        InProcessDriver& driver = InProcessDriver::Instance();
        driver.AddBoard(0, model);
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 1;
        // The first uses in a thread make room for its last error, and for what the driver notes.
        if (operation(library) + operation(library) != 2) return 2;
        driver.ForgetSent();
        system_calls::Watch(nullptr);
        if (!AllowOnly({SYS_semtimedop, SYS_exit_group})) return 3;
        const int result = operation(library);
        *cost = {driver.Sent().size(), system_calls::Made()};
        syscall(SYS_exit_group, result == 1 ? 0 : 4);
        return 5;
    });
    if (status != 0) return "ended with " + std::to_string(status);
    return std::to_string(cost->exchanges) + " ioctls, " + std::to_string(cost->calls) + " semops";
}

class CostTest : public SharedStateTest {};

TEST_F(CostTest, IsAnExchangeAndTwoSemopsForEachLock) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers make system calls of their own";
#endif
    usbInput inputs;
    const struct {
        const char* what;
        Operation operation;
        std::string cost;
    } cases[] = {
        // clang-format off
        {"no lock",   [&](auto& library) { return library.GetInputs(&inputs); },
         "1 ioctls, 0 semops"},
        {"EEPROM",    [](auto& library) { return library.ConfigureEeprom(); },
         "1 ioctls, 2 semops"},
        {"on-period", [](auto& library) { return library.SetOnPeriodBit(10, 1); },
         "1 ioctls, 2 semops"},
        {"both",      [](auto& library) { return library.SetOutputBit(12, 1); },
         "1 ioctls, 4 semops"},
        {"one too many", [&](auto& library) { getppid(); return library.GetInputs(&inputs); },
         "ended with " + std::to_string(128 + SIGSYS)},
        // clang-format on
    };
    for (const auto model :
         {simulator::Model::kK40, simulator::Model::kK44, simulator::Model::kK50}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + ", model " +
                         std::to_string(static_cast<int>(model)));
            EXPECT_EQ(CostOf(model, c.operation), c.cost);
            Sweep();  // what they leave behind
        }
    }
}

}  // namespace
