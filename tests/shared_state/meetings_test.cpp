/**
 * @file meetings_test.cpp
 * @brief One process stops after each of its System V calls in turn while another one loads the
 * library: whatever they meet in, both are served.
 */
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

struct Meeting {
    std::atomic<bool> stopped = false;  // the first process, after its call
    std::atomic<bool> goOn = false;
    std::atomic<bool> served = false;  // the second process
    std::atomic<int> calls = 0;        // that the first process has made
    Barrier barrier;
};

// The watcher of the first process is a plain function.
Meeting* meeting = nullptr;
int stopAfter = 0;

void StopThere(const char*, long) {
    if (++meeting->calls != stopAfter) return;
    meeting->stopped = true;
    Await([] { return meeting->goOn.load(); });
}

void StopAfter(Meeting& shared, int call) {
    meeting = &shared;
    stopAfter = call;
    system_calls::Watch(StopThere);
}

int Use(LoadedLibrary& library) {
    return library.InitPort(0) == 1 && library.SetOutputBit(7, 1) == 1 && OnCopy(0)[0] == 128 ? 0
                                                                                              : 1;
}

class MeetingsTest : public SharedStateTest {
protected:
    /**
     * The first process loads (or unloads), and stops after a call; the second one loads as far as
     * it can; then the first one goes on. Yields how many calls the first one made.
     */
    int Meet(bool firstUnloads, int call) {
        const InSharedMemory<Meeting> shared;
        Child first([&] {
            AddAcceptingBoard();
            if (!firstUnloads) StopAfter(*shared, call);
            LoadedLibrary library;
            system_calls::Watch(nullptr);
            const int failed = Use(library);
            if (firstUnloads) {
                StopAfter(*shared, call);
                library.Unload();
                system_calls::Watch(nullptr);
            }
            shared->stopped = true;
            shared->barrier.Arrive(2);
            shared->barrier.Arrive(2);
            return failed;
        });
        EXPECT_TRUE(Await([&] { return shared->stopped.load(); }));
        Child second([&] {
            AddAcceptingBoard();
            LoadedLibrary library;
            const int failed = Use(library);
            shared->served = true;
            shared->barrier.Arrive(2);
            const int users = firstUnloads ? 1 : 2;
            EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(users));
            EXPECT_EQ(ObjectsTwiceOrMissing(), "");
            shared->barrier.Arrive(2);
            return HasFailure() ? 2 : failed;
        });
        EXPECT_TRUE(Await([&] { return shared->served || WaitsForAnother(second); }));
        shared->goOn = true;
        EXPECT_EQ(second.Wait(), 0);
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(FindSet(), -1);
        EXPECT_EQ(FindSegment(), -1);
        return shared->calls;
    }

    void MeetAfterEachCall(bool firstUnloads, int fewestCalls) {
        constexpr int kNever = -1;
        const int calls = Meet(firstUnloads, kNever);
        ASSERT_GE(calls, fewestCalls) << "the calls are not seen";
        for (int call = 1; call <= calls && !HasFailure(); ++call) {
            SCOPED_TRACE("the first stopped after call " + std::to_string(call));
            Meet(firstUnloads, call);
        }
    }

private:
    static bool WaitsForAnother(const Child& process) {
        const auto waits = [&] {
            return process.WaitsIn(SYS_flock) || process.WaitsIn(SYS_semtimedop);
        };
        if (!waits()) return false;
        usleep(300);
        return waits();
    }
};

TEST_F(MeetingsTest, WhoLoadsMeetsWhoLoads) {
    MeetAfterEachCall(false, 38);
}

TEST_F(MeetingsTest, WhoLoadsMeetsWhoLeaves) {
    MeetAfterEachCall(true, 17);
}

}  // namespace
