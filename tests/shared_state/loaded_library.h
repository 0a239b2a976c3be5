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
        return CallAt(setOutputBit, output, value);
    }
    int SetOnPeriodBit(unsigned output, unsigned value) {
        return Call("20SetOnPeriodOutputBitE12_usbOutputIdij", output / 8, output % 8, value);
    }
    int SetOffPeriodBit(unsigned output, unsigned value) {
        return Call("21SetOffPeriodOutputBitE12_usbOutputIdij", output / 8, output % 8, value);
    }
    int GetInputs(usbInput* inputs) { return Call("9GetInputsEP8usbInput", inputs); }
    /** A 24LC256. */
    int ConfigureEeprom() {
        static K40EEPROM part = {64, 2, 0x7FFF, 0x51};
        return Call("15ConfigureEEPROMEP9K40EEPROM", &part);
    }
    /** Of every change; null stops it. */
    int ConfigureCallback(void (*callback)(usbInput*, usbInput*)) {
        usbInput all = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
        return Call("30ConfigureChangedInputsCallbackEP8usbInputS1_PFvS1_S1_E", &all, &all,
                    callback);
    }
    int GetLastError() { return Call("12GetLastErrorEv"); }
    std::string DescribeFailure() const;

private:
    [[nodiscard]] void* Find(const char* name) const;
    template <class... Arguments>
    int CallAt(void* function, Arguments... arguments) {
        return reinterpret_cast<int (*)(void*, Arguments...)>(function)(&board, arguments...);
    }
    template <class... Arguments>
    int Call(const char* name, Arguments... arguments) {
        return CallAt(Find(name), arguments...);
    }

    void* library;
    void* setOutputBit;     // looked up once: threads call it without pause
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
void AddAcceptingBoard(
    int deviceNo = 0, const std::function<void()>& beforeAnswer = [] {});

/** Acts in a process with the library loaded and that board open; expects this exit status. */
void RunLoaded(int status, const std::function<void(LoadedLibrary&)>& act);
inline void RunLoaded(const std::function<void(LoadedLibrary&)>& act) {
    RunLoaded(0, act);
}

// What a process can be served with.
constexpr int kOnCopies = 1, kOffCopies = 2, kBothCopies = 4, kEeproms = 8, kAll = 15;

/**
 * Loads the library, uses every shared object but the serial one with board 1, and unloads it.
 * Yields what was served; an expectation fails (102) where a refusal is not one, or where what is
 * served cannot be seen in the segment. Alone, it also expects that no lock is taken, and sound
 * headers.
 */
int UseEverything(bool alone = true);
/** The same in a child, after `prepare`. */
int ServedToAnother(
    bool alone = true, const std::function<void()>& prepare = [] {});

#endif  // LOADED_LIBRARY_H
