/**
 * @file unload_test.cpp
 * @brief The library as it ships: what it exports, what it calls, and that it can be unloaded.
 *
 * The environment sets MARVANE_UNLOADS, of cycles with a callback (1000).
 */
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "from_environment.h"
#include "in_process_driver.h"
#include "shared_entries.h"
#include "thread_calls.h"

namespace {

using Symbols = std::set<std::string>;

/** Names that nm lists for the library, without versions. */
Symbols ListSymbols(const std::string& options) {
    const std::string command = "nm -D -P " + options + " " MARVANE_LIBRARY;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    Symbols symbols;
    std::array<char, 1024> line{};
    while (pipe && std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
        const std::string text(line.data());
        symbols.insert(text.substr(0, text.find_first_of(" @")));
    }
    return symbols;
}

bool IsMapped() {
    std::ifstream maps("/proc/self/maps");
    std::stringstream text;
    text << maps.rdbuf();
    return text.str().find("libmarvaneusb") != std::string::npos;
}

TEST(ShippedLibrary, ExportsTheFacadeAndTheEepromPartsOnly) {
    Symbols parts;
    Symbols rest;
    for (const std::string& symbol : ListSymbols("--defined-only")) {
        if (symbol.starts_with("E24LC")) {
            parts.insert(symbol);
        } else if (!symbol.starts_with("_ZN10MarvaneUSB")) {
            rest.insert(symbol);
        }
    }
    EXPECT_EQ(parts, Symbols({"E24LC01", "E24LC02", "E24LC04", "E24LC08", "E24LC16", "E24LC32",
                              "E24LC64", "E24LC128", "E24LC256", "E24LC512"}));
    EXPECT_EQ(rest, Symbols());
}

TEST(ShippedLibrary, ReachesFilesDevicesAndKeysOnlyThroughCallsThatTheStandInTakes) {
    const std::regex fileOrDevice(
        "(__)?(open|openat|openat2|creat|fopen|freopen|fdopen|popen|opendir|ioctl|fcntl|close|dup|"
        "socket|connect|read|write|pread|pwrite|readv|writev|sendfile|mmap|mknod|syscall|mkstemp|"
        "mkostemp|rename|unlink|truncate|chmod|fchmod|link|symlink|l?stat|fstatat|statx|[lf]?xstat|"
        "access|euidaccess|faccess|readlink|realpath|ftok|chdir)[23]?(64)?(at)?(_2|_chk)?|"
        "_ZNSt.*(file|stream).*");
    const Symbols covered = {"open",  "open64", "__open_2", "__open64_2", "fopen",  "fopen64",
                             "ioctl", "fcntl",  "close",    "stat",       "stat64", "ftok"};
    const Symbols undefined = ListSymbols("--undefined-only");
    ASSERT_TRUE(undefined.contains("ioctl")) << "nm found no symbols";
    for (const std::string& symbol : undefined) {
        if (!std::regex_match(symbol, fileOrDevice)) continue;
        EXPECT_TRUE(covered.contains(symbol)) << symbol;
    }
}

/** The library, loaded at run time, and a board of its own, driven by linker names. */
class LoadedLibrary {
public:
    LoadedLibrary() : library_(dlopen(MARVANE_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(library_, nullptr) << dlerror();
        Call<void>("_ZN10MarvaneUSBC1Ev");
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() {
        Call<void>("_ZN10MarvaneUSBD1Ev");
        EXPECT_TRUE(IsMapped());
        EXPECT_EQ(dlclose(library_), 0);
    }

    int InitPort(int n) { return Call<int>("_ZN10MarvaneUSB8InitPortEi", n); }
    int SetOutputBit(unsigned output, unsigned value) {
        return Call<int>("_ZN10MarvaneUSB12SetOutputBitE15_usbOutputBitIdj", output, value);
    }
    int ConfigureCallback(void* mask, void* selection, void (*callback)(void*, void*)) {
        return Call<int>("_ZN10MarvaneUSB30ConfigureChangedInputsCallbackEP8usbInputS1_PFvS1_S1_E",
                         mask, selection, callback);
    }

private:
    template <class Result, class... Arguments>
    Result Call(const char* name, Arguments... arguments) {
        using Member = Result (*)(void*, Arguments...);
        auto* member = reinterpret_cast<Member>(dlsym(library_, name));
        EXPECT_NE(member, nullptr) << name;
        return member(&board_, arguments...);
    }

    void* library_;
    void* board_ = nullptr;  // the whole object
};

class Unloading : public ::testing::Test {
protected:
    Unloading() {
        driver.Reset();
        driver.AddBoard(0, simulator::Model::kK44);
    }
    void TearDown() override { EXPECT_EQ(driver.OpenDescriptors(), 0); }

    InProcessDriver& driver = InProcessDriver::Instance();
};

std::ptrdiff_t OpenFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

LoadedLibrary* libraryInCallback;
std::atomic<unsigned> callbacks = 0;

void SetLamp(void*, void*) {
    libraryInCallback->SetOutputBit(3, ++callbacks % 2);
}

TEST_F(Unloading, MayFollowAtOnceWhenTheInputsThreadIsStopped) {
    ThreadCalls::Instance().sleepDivisor = 100;
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{.reply = Bytes(5, 0xFF)}; });
    std::ptrdiff_t files = 0;
    const unsigned rounds = FromEnvironment("MARVANE_UNLOADS", 1000);
    for (unsigned round = 0; round < rounds; ++round) {
        {
            LoadedLibrary library;
            libraryInCallback = &library;
            library.InitPort(0);
            Bytes everything(5, 0xFF);
            const unsigned before = callbacks;
            ASSERT_EQ(library.ConfigureCallback(everything.data(), everything.data(), SetLamp), 1);
            while (callbacks == before)
                std::this_thread::yield();
            // Stopped by the application, or by the object's end.
            if (round % 2 == 0) {
                ASSERT_EQ(library.ConfigureCallback(nullptr, nullptr, nullptr), 1);
                for (int lock = 1; lock <= 5; ++lock)
                    ASSERT_EQ(SharedSemaphore(lock), 1) << "lock " << lock << " is held";
            }
        }
        ASSERT_FALSE(IsMapped()) << "round " << round;
        ASSERT_EQ(SharedSemaphore(0), -1) << "the set is left";
        ASSERT_EQ(shmget(ftok("/tmp/K40SharedMemory", 1), 0, 0), -1) << "the segment is left";
        if (round == 0) files = OpenFiles();  // the driver keeps a file for the node
        ASSERT_EQ(OpenFiles(), files);
        driver.ForgetSent();
    }
}

}  // namespace
