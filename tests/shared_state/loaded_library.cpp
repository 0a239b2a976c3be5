/**
 * @file loaded_library.cpp
 * @brief The shipped library, loaded and unloaded at run time.
 */
#include "loaded_library.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace {

template <class Function>
Function* Find(void* library, const char* name) {
    const std::string symbol = std::string("_ZN10MarvaneUSB") + name;
    auto* function = reinterpret_cast<Function*>(dlsym(library, symbol.c_str()));
    if (function == nullptr) throw std::runtime_error(dlerror());
    return function;
}

}  // namespace

LoadedLibrary::LoadedLibrary() : library(dlopen(MARVANE_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    if (library == nullptr) throw std::runtime_error(dlerror());
    Find<void(void*)>(library, "C1Ev")(&board);
}

LoadedLibrary::~LoadedLibrary() {
    Unload();
}

void LoadedLibrary::Unload() {
    if (library == nullptr) return;
    Find<void(void*)>(library, "D1Ev")(&board);
    dlclose(library);
    library = nullptr;
}

template <class... Arguments>
int LoadedLibrary::Call(const char* name, Arguments... arguments) {
    return Find<int(void*, Arguments...)>(library, name)(&board, arguments...);
}

int LoadedLibrary::InitPort(int deviceNo) {
    return Call("8InitPortEi", deviceNo);
}

int LoadedLibrary::SetOutputBit(unsigned output, unsigned value) {
    return Call("12SetOutputBitE15_usbOutputBitIdj", output, value);
}

int LoadedLibrary::SetOutputs(unsigned char* outputs) {
    return Call("10SetOutputsEPh", outputs);
}

int LoadedLibrary::ModifyOutputs(usbOutput* off, usbOutput* on) {
    return Call("13ModifyOutputsEP9usbOutputS1_", off, on);
}

int LoadedLibrary::SetOnPeriodOutputs(usbOutput pattern) {
    return Call("18SetOnPeriodOutputsE9usbOutput", pattern);
}

int LoadedLibrary::SetOnPeriodOutputBit(unsigned outputByte, int bit, unsigned value) {
    return Call("20SetOnPeriodOutputBitE12_usbOutputIdij", outputByte, bit, value);
}

int LoadedLibrary::SetOffPeriodOutputBit(unsigned outputByte, int bit, unsigned value) {
    return Call("21SetOffPeriodOutputBitE12_usbOutputIdij", outputByte, bit, value);
}

int LoadedLibrary::ConfigureEEPROM(K40EEPROM* part) {
    return Call("15ConfigureEEPROMEP9K40EEPROM", part);
}

int LoadedLibrary::ReadEEPROM(unsigned short address, unsigned char* data, unsigned length) {
    return Call("10ReadEEPROMEtPhj", address, data, length);
}

int LoadedLibrary::WriteEEPROM(unsigned short address, unsigned char* data, unsigned length) {
    return Call("11WriteEEPROMEtPhj", address, data, length);
}

int LoadedLibrary::GetLastError() {
    return Call("12GetLastErrorEv");
}

void LoadedLibrary::ClearErrors() {
    Call("11ClearErrorsEv");
}

void AddAcceptingBoard(int deviceNo) {
    InProcessDriver& driver = InProcessDriver::Instance();
    driver.Reset();
    driver.AddBoard(deviceNo, simulator::Model::kK44);
    // The firmware runs, and an EEPROM read brings as many bytes as it asks for.
    driver.AnswerWith([](const Exchange& exchange) -> DriverAnswer {
        if (exchange.command == 74) return {.reply = {1}};
        if (exchange.command == 5) return {.reply = Bytes(exchange.payload.at(0), 7)};
        return {};
    });
}

K40EEPROM UsualEeprom() {
    return {64, 2, 0x7FFF, 0x51};
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
