/**
 * @file loaded_library.h
 * @brief The shipped library, loaded and unloaded at run time, with one board object.
 *
 * A test program that forks before it loads has children that start without any shared state.
 */
#ifndef LOADED_LIBRARY_H
#define LOADED_LIBRARY_H

#include <functional>
#include <string>

#include "children.h"
#include "in_process_driver.h"
#include "marvaneusb.h"

class LoadedLibrary {
public:
    LoadedLibrary();
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    /** Closes the board and unloads the library, unless Unload has done so. */
    ~LoadedLibrary() { Unload(); }
    void Unload();

    int InitPort(int deviceNo) { return Call("8InitPortEi", deviceNo); }
    int SetOutputBit(unsigned output, unsigned value) {
        return Call("12SetOutputBitE15_usbOutputBitIdj", output, value);
    }
    /** SetOutputBit for threads that call without pause: looked up once. */
    std::function<int(unsigned, unsigned)> FindSetOutputBit() {
        auto* call = reinterpret_cast<int (*)(void*, unsigned, unsigned)>(
            Find("12SetOutputBitE15_usbOutputBitIdj"));
        return
            [this, call](unsigned output, unsigned value) { return call(&board, output, value); };
    }
    int SetOnPeriodBit(unsigned output, unsigned value) {
        return Call("20SetOnPeriodOutputBitE12_usbOutputIdij", output / 8, output % 8, value);
    }
    int SetOffPeriodBit(unsigned output, unsigned value) {
        return Call("21SetOffPeriodOutputBitE12_usbOutputIdij", output / 8, output % 8, value);
    }
    /** A 24LC256. */
    int ConfigureEeprom() {
        static K40EEPROM part = {64, 2, 0x7FFF, 0x51};
        return Call("15ConfigureEEPROMEP9K40EEPROM", &part);
    }
    int GetLastError() { return Call("12GetLastErrorEv"); }
    std::string DescribeFailure() const;

private:
    void* Find(const char* name) const;
    template <class... Arguments>
    int Call(const char* name, Arguments... arguments) {
        return reinterpret_cast<int (*)(void*, Arguments...)>(Find(name))(&board, arguments...);
    }

    void* library;
    void* board = nullptr;  // MarvaneUSB is one pointer
};

/** A process that has the library loaded until it is told to leave. */
class LoadedProcess {
public:
    LoadedProcess();
    void Leave();

private:
    InSharedMemory<std::atomic<bool>> loaded, leaves;
    Child child;
};

/** Adds a K44 as board 0, and every later exchange is accepted, without reply. */
void AddAcceptingBoard(int deviceNo = 0);

/** A process with the library loaded and that board open; `act` yields its exit status. */
int StatusOfLoaded(const std::function<int(LoadedLibrary&)>& act, int deviceNo = 0);

// What a process can be served with.
constexpr int kOnCopies = 1, kOffCopies = 2, kBothCopies = 4, kEeproms = 8, kAll = 15;

/**
 * Loads the library, uses every shared object but the serial one with board 1, and unloads it.
 * Yields what was served; an expectation fails where a refusal is not one, or where what is served
 * cannot be seen in the segment. Alone, it also expects that no lock is taken, and sound headers.
 */
int UseEverything(bool alone = true);

#endif  // LOADED_LIBRARY_H
