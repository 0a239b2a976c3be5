/**
 * @file loaded_library.cpp
 * @brief The shipped library, loaded and unloaded at run time.
 */
#include "loaded_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "outside_view.h"

LoadedLibrary::LoadedLibrary() : library(dlopen(MARVANE_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    if (library == nullptr) throw std::runtime_error(dlerror());
    setOutputBit = Find("12SetOutputBitE15_usbOutputBitIdj");
    Call("C1Ev");
}

void LoadedLibrary::Unload() {
    if (library == nullptr) return;
    Call("D1Ev");
    dlclose(library);
    library = nullptr;
}

void* LoadedLibrary::Find(const char* name) const {
    void* function = dlsym(library, (std::string("_ZN10MarvaneUSB") + name).c_str());
    if (function == nullptr) throw std::runtime_error(dlerror());
    return function;
}

std::string LoadedLibrary::DescribeFailure() const {
    char text[1000];
    reinterpret_cast<unsigned long (*)(char*, unsigned long)>(Find("15DescribeFailureEPcm"))(
        text, sizeof text);
    return text;
}

LoadedProcess::LoadedProcess()
    : child([this] {
          LoadedLibrary library;
          for (*loaded = true; !*leaves;)
              usleep(100);
          return 0;
      }) {
    EXPECT_TRUE(Await([this] { return loaded->load(); }));
}

void LoadedProcess::Leave() {
    *leaves = true;
    EXPECT_EQ(child.Wait(), 0);
}

void AddAcceptingBoard(int deviceNo, const std::function<void()>& beforeAnswer) {
    InProcessDriver& driver = InProcessDriver::Instance();
    driver.Reset();
    driver.AddBoard(deviceNo, simulator::Model::kK44);
    // The firmware runs, and an EEPROM read brings as many bytes as it asks for.
    driver.AnswerWith([beforeAnswer](const Exchange& exchange) -> DriverAnswer {
        beforeAnswer();
        if (exchange.command == 74) return {.reply = {1}};
        if (exchange.command == 5) return {.reply = Bytes(exchange.payload.at(0), 7)};
        return {};
    });
}

void RunLoaded(int status, const std::function<void(LoadedLibrary&)>& act) {
    const auto whole = [&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        EXPECT_EQ(library.InitPort(0), 1);
        act(library);
        return 0;
    };
    EXPECT_EQ(StatusOf(whole), status);
}

int UseEverything(bool alone) {
    AddAcceptingBoard(1);
    InProcessDriver& driver = InProcessDriver::Instance();
    LoadedLibrary library;
    library.InitPort(1);
    driver.ForgetSent();
    const auto served = [&](int what, int result) {
        const bool refused = result == 0 && library.GetLastError() == 38 && driver.Sent().empty();
        EXPECT_TRUE(result == 1 || refused) << what << ": error " << library.GetLastError();
        driver.ForgetSent();
        return result == 1 ? what : 0;
    };
    const int all = served(kBothCopies, library.SetOutputBit(37, 1)) |
                    served(kOnCopies, library.SetOnPeriodBit(8, 1)) |
                    served(kOffCopies, library.SetOffPeriodBit(17, 1)) |
                    served(kEeproms, library.ConfigureEeprom());
    if (all != kAll) return all;
    EXPECT_EQ(OnCopy(1), ByteString({0, 1, 0, 0, 32}));
    EXPECT_EQ(OffCopy(1), ByteString({0, 0, 2, 0, 32}));
    EXPECT_EQ(EepromEntry(1), ByteString({64, 2, 0xFF, 0x7F, 0x51, 0, 1, 0}));
    if (alone) {
        EXPECT_EQ(HeaderDifference(), "");
        EXPECT_EQ(SemaphoreValues(), Semaphores(SharedSemaphore(0)));
    }
    return all;
}

int ServedToAnother(bool alone, const std::function<void()>& prepare) {
    return StatusOf([&] {
        prepare();
        return UseEverything(alone);
    });
}

#if defined(__SANITIZE_ADDRESS__)
// The search for leaks at exit stops all threads, and cannot where several processes share memory
// or a process ends beside threads at work. Other errors are still reported.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}
#endif

#if defined(__SANITIZE_THREAD__)
// The children have no threads left that are worth a second's wait.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}
#endif
