/**
 * @file shared_state_growth.cpp
 * @brief How operations on shared state slow down with the number of processes, and what loading
 *   and unloading the library costs.
 *
 * Each process is a program of its own, started anew: this one, with other arguments.
 */
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kMeasuredTime = std::chrono::milliseconds(500);
constexpr int kLoads = 200;

/** MarvaneUSB by its linker names, for the library is loaded while the program runs. */
struct Library {
    Library() : handle(dlopen(MARVANE_LIBRARY, RTLD_NOW)) {
        if (handle == nullptr) std::exit(3);
        initPort = reinterpret_cast<int (*)(void*, int)>(Find("_ZN10MarvaneUSB8InitPortEi"));
        setOutputBit = reinterpret_cast<int (*)(void*, unsigned, unsigned)>(
            Find("_ZN10MarvaneUSB12SetOutputBitE15_usbOutputBitIdj"));
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { dlclose(handle); }

    void* Find(const char* name) const {
        void* found = dlsym(handle, name);
        if (found == nullptr) std::exit(3);
        return found;
    }

    void* handle;
    int (*initPort)(void* board, int number);
    int (*setOutputBit)(void* board, unsigned output, unsigned value);
};

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

/** Sets an output for a while from a common start on; prints how often. */
int WorkOn(int board, Clock::time_point start) {
    const Library library;
    void* object = nullptr;  // as its constructor leaves it
    if (!library.initPort(&object, board)) return 3;
    while (Clock::now() < start)
        usleep(100);
    long operations = 0;
    for (; Clock::now() < start + kMeasuredTime; ++operations) {
        if (!library.setOutputBit(&object, static_cast<unsigned>(board), operations & 1)) return 3;
    }
    std::printf("%ld\n", operations);
    return 0;
}

/** Loads and unloads the library; prints the time of each in microseconds. */
int LoadAndUnload() {
    Clock::duration loading{};
    Clock::duration unloading{};
    for (int i = 0; i < kLoads; ++i) {
        const auto begin = Clock::now();
        auto* library = new Library;
        const auto loaded = Clock::now();
        delete library;
        loading += loaded - begin;
        unloading += Clock::now() - loaded;
    }
    std::printf("%.1f %.1f\n", 1e6 * Seconds(loading) / kLoads, 1e6 * Seconds(unloading) / kLoads);
    return 0;
}

/** Keeps the library loaded until its standard input ends. */
int StayLoaded() {
    const Library library;
    std::puts("loaded");
    std::fflush(stdout);
    return std::getchar() == EOF ? 0 : 3;
}

std::FILE* StartProcess(const char* self, const std::string& arguments, const char* mode) {
    std::FILE* process = popen((std::string(self) + " " + arguments).c_str(), mode);
    if (process == nullptr) std::exit(3);
    return process;
}

void MeasureOperations(const char* self, int processes, bool sameBoard) {
    const auto start = Clock::now() + std::chrono::milliseconds(200);
    std::vector<std::FILE*> running;
    for (int i = 0; i < processes; ++i) {
        running.push_back(StartProcess(self,
                                       "work " + std::to_string(sameBoard ? 1 : i) + " " +
                                           std::to_string(start.time_since_epoch().count()),
                                       "r"));
    }
    long operations = 0;
    for (std::FILE* process : running) {
        long own = 0;
        if (std::fscanf(process, "%ld", &own) != 1) std::exit(3);
        operations += own;
        pclose(process);
    }
    const double perSecond = static_cast<double>(operations) / Seconds(kMeasuredTime);
    std::printf("%9d  %-16s %14.0f %22.2f\n", processes, sameBoard ? "the same" : "different",
                perSecond, 1e6 * processes / perSecond);
}

void MeasureLoading(const char* self, int others) {
    std::vector<std::FILE*> waiting;
    for (int i = 0; i < others; ++i) {
        waiting.push_back(StartProcess(self, "stay > /dev/null", "w"));
    }
    usleep(100'000 + 20'000 * static_cast<useconds_t>(others));
    std::FILE* process = StartProcess(self, "load", "r");
    double loading = 0;
    double unloading = 0;
    if (std::fscanf(process, "%lf %lf", &loading, &unloading) != 2) std::exit(3);
    pclose(process);
    for (std::FILE* other : waiting)
        pclose(other);
    std::printf("%16d %14.1f %14.1f\n", others, loading, unloading);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string task = argc > 1 ? argv[1] : "";
    if (task == "work" && argc == 4) {
        return WorkOn(std::atoi(argv[2]),
                      Clock::time_point(Clock::duration(std::strtoll(argv[3], nullptr, 10))));
    }
    if (task == "load") return LoadAndUnload();
    if (task == "stay") return StayLoaded();
    if (!task.empty()) return 2;

    std::printf("processes  boards           operations/s  us per operation each\n");
    for (const bool sameBoard : {true, false}) {
        for (const int processes : {1, 2, 4, 8})
            MeasureOperations(argv[0], processes, sameBoard);
    }
    std::printf("\nother processes   load, us    unload, us\n");
    for (const int others : {0, 1, 7, 31})
        MeasureLoading(argv[0], others);
    return 0;
}
