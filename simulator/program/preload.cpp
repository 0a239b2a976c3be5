// Environment variables that lead the loader, the testbed's library and sanitizers.
#include "program/preload.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "program/simulations.h"

namespace simulator {
namespace {

constexpr char kTestbedLibrary[] = "libumockdev-preload.so.0";
constexpr char kTestbedVariable[] = "UMOCKDEV_DIR";
constexpr char kRestartedVariable[] = "MARVANE_SIM_RESTARTED";  // the process id, which exec keeps

std::string Variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool ListHas(const std::string& list, const std::string& entry) {
    return (":" + list + ":").find(":" + entry + ":") != std::string::npos;
}

}  // namespace

void PreloadTestbed() {
    const std::string callers = Variable("LD_PRELOAD");
    if (!ListHas(callers, kTestbedLibrary)) {
        const std::string list = kTestbedLibrary + (callers.empty() ? "" : ":" + callers);
        setenv("LD_PRELOAD", list.c_str(), 1);
    }

    // GCC's AddressSanitizer refuses to start unless it comes first; it works second, too.
    const std::string options = Variable("ASAN_OPTIONS");
    const std::string second = "verify_asan_link_order=0";
    if (!ListHas(options, second)) {
        setenv("ASAN_OPTIONS", (options.empty() ? second : options + ":" + second).c_str(), 1);
    }
}

void PointToTestbed(const std::filesystem::path& folder) {
    setenv(kTestbedVariable, folder.c_str(), 1);
    setenv(kControlVariable, (folder / kControlSocketName).c_str(), 1);
    unsetenv(kRestartedVariable);
}

std::string RestartBehindTestbed(char** arguments) {
    PreloadTestbed();
    unsetenv(kTestbedVariable);  // of a simulation around this one
    setenv(kRestartedVariable, std::to_string(getpid()).c_str(), 1);
    execv("/proc/self/exe", arguments);
    return std::string("/proc/self/exe: ") + std::strerror(errno);
}

bool WasRestarted() {
    return Variable(kRestartedVariable) == std::to_string(getpid());
}

}  // namespace simulator
