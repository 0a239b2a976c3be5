/**
 * @file loaded_library.h
 * @brief The shipped library, loaded and unloaded at run time, with one board object.
 *
 * A test program that forks before it loads has children that start without any shared state.
 */
#ifndef LOADED_LIBRARY_H
#define LOADED_LIBRARY_H

#include "in_process_driver.h"
#include "marvaneusb.h"

class LoadedLibrary {
public:
    LoadedLibrary();
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    /** Closes the board and unloads the library, unless Unload has done so. */
    ~LoadedLibrary();
    void Unload();

    int InitPort(int deviceNo);
    int SetOutputBit(unsigned output, unsigned value);
    int SetOutputs(unsigned char* outputs);
    int ModifyOutputs(usbOutput* off, usbOutput* on);
    int SetOnPeriodOutputs(usbOutput pattern);
    int SetOnPeriodOutputBit(unsigned outputByte, int bit, unsigned value);
    int SetOffPeriodOutputBit(unsigned outputByte, int bit, unsigned value);
    int ConfigureEEPROM(K40EEPROM* part);
    int ReadEEPROM(unsigned short address, unsigned char* data, unsigned length);
    int WriteEEPROM(unsigned short address, unsigned char* data, unsigned length);
    int GetLastError();
    void ClearErrors();

private:
    template <class... Arguments>
    int Call(const char* name, Arguments... arguments);

    void* library;
    void* board = nullptr;  // MarvaneUSB is one pointer
};

/** Adds a K44 as board 0, and every later exchange is accepted, without reply. */
void AddAcceptingBoard(int deviceNo = 0);

/** 24LC256, and how an entry for it looks in the segment. */
K40EEPROM UsualEeprom();

#endif  // LOADED_LIBRARY_H
