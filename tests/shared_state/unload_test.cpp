/**
 * @file unload_test.cpp
 * @brief The shipped library: what it exports and calls, and its unloading.
 *
 * The environment sets MARVANE_UNLOADS, of rounds with a stopped inputs thread (300).
 */
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "thread_calls.h"

namespace {

using Symbols = std::set<std::string>;

/** Names that nm lists for the library, without versions. */
Symbols ListSymbols(const std::string& options) {
    const std::string command = "nm -D -P " + options + " " MARVANE_LIBRARY;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    Symbols symbols;
    char line[1024];
    while (pipe && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        const std::string text(line);
        symbols.insert(text.substr(0, text.find_first_of(" @")));
    }
    return symbols;
}

TEST(ShippedLibrary, ExportsTheFacadeAndTheEepromPartsOnly) {
    Symbols others;
    for (const std::string& symbol : ListSymbols("--defined-only"))
        if (!symbol.starts_with("_ZN10MarvaneUSB")) others.insert(symbol);
    EXPECT_EQ(others, Symbols({"E24LC01", "E24LC02", "E24LC04", "E24LC08", "E24LC16", "E24LC32",
                               "E24LC64", "E24LC128", "E24LC256", "E24LC512"}));
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
    for (const std::string& symbol : undefined)
        EXPECT_TRUE(covered.contains(symbol) || !std::regex_match(symbol, fileOrDevice)) << symbol;
}

bool IsMapped() {
    std::stringstream maps;
    maps << std::ifstream("/proc/self/maps").rdbuf();
    return maps.str().find("libmarvaneusb") != std::string::npos;
}

LoadedLibrary* libraryInCallback;
std::atomic<unsigned> callbacks = 0;

void SetLamp(usbInput*, usbInput*) {
    libraryInCallback->SetOutputBit(3, ++callbacks % 2);
}

class UnloadTest : public SharedStateTest {};

TEST_F(UnloadTest, MayFollowAtOnceWhenTheInputsThreadIsStopped) {
    const auto loadAndUnload = [](unsigned round) {
        LoadedLibrary library;
        libraryInCallback = &library;
        library.InitPort(0);
        const unsigned before = callbacks;
        ASSERT_EQ(library.ConfigureCallback(SetLamp), 1);
        ASSERT_TRUE(Await([&] { return callbacks != before; }));
        // Stopped by the application, or by the object's end.
        if (round % 2 == 1) return;
        ASSERT_EQ(library.ConfigureCallback(nullptr), 1);
        ASSERT_EQ(SemaphoreValues(), Semaphores(1));
        ASSERT_TRUE(IsMapped());
    };
    const auto whole = [&] {
        AddAcceptingBoard();
        InProcessDriver::Instance().AnswerWith(
            [](const Exchange&) { return DriverAnswer{.reply = Bytes(5, 0xFF)}; });
        ThreadCalls::Instance().sleepDivisor = 100;
        const unsigned rounds = FromEnvironment("MARVANE_UNLOADS", 300);
        std::ptrdiff_t files = 0;
        for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
            loadAndUnload(round);
            EXPECT_FALSE(IsMapped()) << "round " << round;
            ExpectNothingIsLeft();
            if (round == 0) files = OpenDescriptors();  // the driver keeps a file for the node
            EXPECT_EQ(OpenDescriptors(), files);
            InProcessDriver::Instance().ForgetSent();
        }
        return InProcessDriver::Instance().OpenDescriptors();
    };
    EXPECT_EQ(StatusOf(whole), 0);
}

}  // namespace
