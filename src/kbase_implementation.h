/**
 * @file kbase_implementation.h
 * @brief An open board: its state, and the operations that all models have in common.
 *
 * A model derives from KBaseImplementation, brings its transport (PerformUSBIO) and overrides what
 * differs. The operations stand in one unit per family, kbase_implementation_*.cpp, and
 * kbase_shared_serial_impl_*.cpp for the serial ports.
 */
#ifndef KBASE_IMPLEMENTATION_H
#define KBASE_IMPLEMENTATION_H

#include <pthread.h>

#include <algorithm>
#include <atomic>

#include "board_limits.h"
#include "commands.h"
#include "failure.h"
#include "marvaneusb.h"
#include "payload.h"

class SharedObject;

/** What GetFittedBoard and GetBoardType answer. */
enum class BoardType : unsigned char { kUnknown = 0, kK40 = 1, kK44 = 2, kK50 = 3 };

class KBaseImplementation {
public:
    /** Takes over the handle, an open device node; the name is not used. */
    KBaseImplementation(MarvaneUSB* facade, int handle, char* name, int speed, int number);
    KBaseImplementation(const KBaseImplementation&) = delete;
    KBaseImplementation& operator=(const KBaseImplementation&) = delete;

    // The order of the virtual operations is the order of the slots: append nothing in between.

    /** Closes the device; the changed-inputs thread has been stopped before. */
    virtual ~KBaseImplementation();

    virtual void incrementReferenceCount();
    /**
     * Stops the changed-inputs thread and destroys the object when its last holder lets go; it
     * must not be used after that.
     */
    virtual void decrementReferenceCount();

    /**
     * Exchanges one command with the board in one ioctl. `in` may be null when inLen is 0; `out`
     * must have room for the longest reply of the command.
     */
    virtual int PerformUSBIO(unsigned char command, int channel, unsigned char* in,
                             unsigned long inLen, unsigned char* out, unsigned long* outLen);
    virtual int GetBoardType(unsigned char* type);
    virtual int GetBoardSpeed(unsigned char* speed);

    virtual int ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                                     ActiveState activeState);
    virtual int ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                                       unsigned char extendedPulseParameter,
                                       ActiveState activeState);
    virtual int ReleaseParallelHopperCoins(_usbInputBitId input, unsigned char pulseParameter,
                                           ActiveState activeState, _usbOutputBitId releaseOutput,
                                           unsigned short coinCount,
                                           unsigned char releaseParameter);
    virtual int ReleaseParallelHopperCoinsEx(_usbInputBitId input, unsigned char pulseParameter,
                                             unsigned char extendedPulseParameter,
                                             ActiveState activeState, _usbOutputBitId releaseOutput,
                                             unsigned short coinCount,
                                             unsigned char releaseParameter);
    virtual int StopHopperCoinRelease(_usbInputBitId input);

    virtual int GetInputBit(_usbInputBitId inputBit, unsigned int* value);
    virtual int GetInputs(unsigned char* inputs);
    virtual int SetOutputBit(_usbOutputBitId outputBit, unsigned int value);
    virtual int SetOutputs(unsigned char* outputs);
    virtual int GetInputs(usbInput* inputs);
    virtual int InputMultiplexing(usbInputMultiplexing mode);
    virtual int GetMultiplexedInputs(usbMultiplexedInput* inputs);
    virtual int GetChangedInputs(usbInput* changed);
    virtual int ConfigureChangedInputsCallback(usbInput* mask, usbInput* selection,
                                               void (*callback)(usbInput* changed,
                                                                usbInput* current));
    virtual int GetRawInputs(usbInput* inputs);

    virtual int ModifyOutputs(usbOutput* off, usbOutput* on);
    virtual int SetOnPeriodOutputs(usbOutput pattern);
    virtual int SetOffPeriodOutputs(usbOutput pattern);
    virtual int SetOnPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value);
    virtual int SetOffPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value);
    virtual int SetOutputBrightness(unsigned char level);
    virtual int PulseOutput(unsigned char output, unsigned char pulseValue);
    virtual int PulseOffOutput(unsigned char output, unsigned char pulseValue);
    virtual int PulseOutputResult(unsigned char* result0, unsigned int* result1,
                                  unsigned int* result2);

    virtual int BeginPulsedInputCheck(_usbInputBitId input);
    virtual int EndPulsedInputCheck(_usbInputBitId input);
    virtual int ResetPulsedInputCounter(_usbInputBitId input);
    virtual int DecrementPulsedInputCounter(_usbInputBitId input);
    virtual int ReadPulsedInputCounter(_usbInputBitId input, unsigned char* count);
    virtual int GetPulsedInputStatus(_usbInputBitId input, unsigned int* status,
                                     unsigned char* count);
    virtual int GetParallelHopperStatus(_usbInputBitId input, ReleaseHopperCoinsStatus* status,
                                        unsigned char* count);

    virtual int ConfigureReelsEx(unsigned char reelCount, unsigned short configWord,
                                 unsigned char configByte);
    virtual int SpinReels(unsigned char reel, unsigned char spinSetting, unsigned short spinValue);
    virtual int SpinRampUp(unsigned char reel, usbRampTable table);
    virtual int SpinRampDown(unsigned char reel, usbRampTable table);
    virtual int SetDutyCycle(unsigned char duty1, unsigned char duty2, unsigned char duty3);
    virtual int GetReelStatus(usbReelStatus* status);
    virtual int GetReelStatusEx(ReelStatusEx* status);
    virtual int ReelSynchroniseEnable(unsigned char enable);

    virtual int ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                         unsigned short areaLength);
    virtual int StartRecordingInputs(unsigned short recordingParameter);
    virtual int GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                                   unsigned short* secondValue);
    virtual int ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                                   unsigned char* reply, unsigned long* replyLength);
    virtual int WriteDiagnosticData(unsigned char* diagnosticData, unsigned long dataLength);

    virtual int DownloadHiCode();
    virtual int WriteSRAM(unsigned long address, unsigned char* data, unsigned int length);
    virtual int ReadSRAM(unsigned long address, unsigned char* data, unsigned long length);
    virtual int ConfigureEEPROM(K40EEPROM* eeprom);
    virtual int CheckEEPROM(K40EEPROM* eeprom);
    virtual int ReadEEPROM(unsigned short address, unsigned char* data, unsigned int length);
    virtual int WriteEEPROM(unsigned short address, unsigned char* data, unsigned int length);

    virtual int GetPICVersion(unsigned char* version);
    virtual int GetPICSerialNumber(unsigned char* serial);
    virtual int SetPICSerialNumber(unsigned char* serial);
    virtual int GetDallasSerialNumber(unsigned char* serial, unsigned char* valid);
    virtual int GetRandomNumber(unsigned short* number);
    virtual int EnableRandomNumberGenerator(unsigned long argument);
    virtual int DisableRandomNumberGenerator();

    virtual int ReadAndResetRTCFailure(unsigned char* flag);
    virtual int ReadClockAtBatteryFailure(unsigned long* time);
    virtual int SetClock(unsigned long time);
    virtual int GetClock(unsigned long* time);
    virtual int NextSecuritySwitchRead(unsigned long* time, unsigned char* switches);
    virtual int StartSecuritySwitchRead();
    virtual int ClearSecuritySwitches();
    virtual int ReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1);
    virtual int ReadAndResetBatteryFailFlag(unsigned char* flag);
    virtual int CachedReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1);

    virtual int EnableSPI();
    virtual int DisableSPI();
    virtual int SendSPI(unsigned char sendBits, unsigned char* data, unsigned char control,
                        unsigned char receiveBits, unsigned char* reply);
    virtual int SendSEC(unsigned char header1, unsigned char header2, unsigned char length,
                        unsigned char* data, unsigned char control, unsigned char replyLength,
                        unsigned char* reply);

    virtual int SetSASMachineAddress(_usbSerialPort port, unsigned char address);
    virtual int SetConfig(_usbSerialPort port, _DCB* dcb, _usbPortType type);
    virtual int SetSASAutoReply(_usbSerialPort port, unsigned int mode, unsigned char value);
    virtual int SetSASBusy(_usbSerialPort port, unsigned int mode);
    virtual int GetSASMessageStatus(_usbSerialPort port, unsigned int* status);

    virtual int Send(_usbSerialPort port, unsigned char* data, unsigned int length);
    virtual int Receive(_usbSerialPort port, unsigned char* buffer, unsigned long* length);
    virtual int ReceiveByteWithTimestamp(_usbSerialPort port, unsigned char* data,
                                         unsigned char* timestamp, unsigned int* received);
    virtual int Send9BitData(_usbSerialPort port, unsigned short* words, unsigned int count);
    virtual int Receive9BitData(_usbSerialPort port, unsigned short* words, unsigned long* count);
    virtual int ReceiveByteWithTimestamp9BitData(_usbSerialPort port, unsigned short* data,
                                                 unsigned char* timestamp, unsigned int* received);
    virtual int SetTimeoutMessage(_usbSerialPort port, unsigned char* message, unsigned char length,
                                  float seconds);
    virtual int GetParityErrors(_usbSerialPort port, unsigned short* count);
    virtual int ConfigureCCTalkPort(_usbSerialPort port, CCTalkConfig* config);
    virtual int ConfigureRS232Poll(_usbSerialPort port, RS232PollConfig* config);
    virtual int SetPolledHostTimeout(_usbSerialPort port, unsigned char index, double seconds);
    virtual int EmptyPolledBuffer(_usbSerialPort port, unsigned char index);
    virtual int ReceivePolledMessage(_usbSerialPort port, unsigned char index,
                                     unsigned char* buffer, unsigned long* length,
                                     unsigned int* status);
    virtual int DeletePolledMessage(_usbSerialPort port, unsigned char index);

    // Not virtual, so that the slots stay where they are

    int Get8051Version(unsigned char* version);
    /** Reads at any address; for the detection of the part. */
    int UncheckedReadEEPROM(unsigned short address, unsigned char* data, unsigned int length);
    /** 1 once the EEPROM of this device number, not of this object's, has been configured. */
    static int EEPROMConfigured(int number);
    int ReceiveEx(_usbSerialPort port, unsigned char* buffer, unsigned long capacity,
                  unsigned long* length);
    int Receive9BitDataEx(_usbSerialPort port, unsigned short* words, unsigned long capacity,
                          unsigned long* count);
    int ReceivePolledMessageEx(_usbSerialPort port, unsigned char index, unsigned char* buffer,
                               unsigned long capacity, unsigned long* length, unsigned int* status);
    int GetChangedInputsCallbackState(unsigned int* state);
    int GetChangedInputsCallbackError(int* code);
    [[nodiscard]] int GetDeviceHandle(int /*unused*/) const { return deviceHandle; }
    [[nodiscard]] int GetDeviceNo() const { return deviceNo; }

    static void SetLastError(_usbErrorCode code) { error_no = code; }
    static int GetLastError() { return error_no; }
    static int ClearErrors() {
        error_no = USB_ERR_NONE;
        return 1;
    }
    static int SetupErrorHandling() { return ClearErrors(); }
    static void ReleaseErrorHandling() {}

    // Out of the way of what succeeds.

    /** Names the failure and yields the result of the operation that failed. */
    [[gnu::cold]] static int Fail(_usbErrorCode code);
    /** Likewise, with all that is known of it. */
    [[gnu::cold]] static int Fail(const Failure& failure);
    /** That an object which processes share, or its lock, is not to be had. */
    [[gnu::cold]] static int FailWithout(const SharedObject& missing);
    /** That no board is open; the last error stays. */
    [[gnu::cold]] static int FailWithoutBoard();
    /** For an exchange of this board. */
    [[gnu::cold]] int FailExchange(Failure::Kind kind, int code, unsigned char command, int channel,
                                   int systemError = 0) const;

    // For functions of the families that are no members, too.

    /** One exchange; the reply knows afterwards how much of it is there, never more than fits. */
    int Exchange(Command command, Payload& payload, Reply& reply) {
        return ExchangeBytes(command, payload.Data(), payload.Length(), reply);
    }
    int Exchange(Command command, Reply& reply) {
        return ExchangeBytes(command, nullptr, 0, reply);
    }
    /** An exchange of which only the success matters. */
    int Exchange(Command command, Payload& payload) {
        Reply ignored;
        return Exchange(command, payload, ignored);
    }
    int Exchange(Command command) {
        Reply ignored;
        return Exchange(command, ignored);
    }
    /** An exchange whose payload is the caller's own, of any length. */
    int ExchangeBytes(Command command, unsigned char* in, unsigned long inLength, Reply& reply) {
        return ExchangeOn(static_cast<int>(command.channel), command.code, in, inLength, reply);
    }
    int ExchangeOn(int channel, unsigned char code, unsigned char* in, unsigned long inLength,
                   Reply& reply) {
        reply.length_ = 0;
        if (PerformUSBIO(code, channel, in, inLength, reply.bytes_, &reply.length_) == 0) return 0;
        reply.length_ = std::min<unsigned long>(reply.length_, Reply::kRoom);
        return 1;
    }

    static bool IsPort(_usbSerialPort port) {
        return port == USB_SERIAL_PORT_0 || port == USB_SERIAL_PORT_1;
    }
    static int ChannelOf(_usbSerialPort port) {
        return static_cast<int>(port == USB_SERIAL_PORT_0 ? Channel::kSerialPort0
                                                          : Channel::kSerialPort1);
    }
    /** That there is such a port, and that it is configured. */
    int CheckPort(_usbSerialPort port) const {
        if (!IsPort(port)) return Fail(USB_ERR_OUT_OF_RANGE);
        if (serialPortConfigured[port].load(std::memory_order_relaxed) != 1) {
            return Fail(USB_ERR_NOT_CONFIGURED);
        }
        return 1;
    }
    int ExchangeWithPort(_usbSerialPort port, unsigned char code, Payload& payload, Reply& reply) {
        return ExchangeOn(ChannelOf(port), code, payload.Data(), payload.Length(), reply);
    }
    int ExchangeWithPort(_usbSerialPort port, unsigned char code, Reply& reply) {
        return ExchangeOn(ChannelOf(port), code, nullptr, 0, reply);
    }
    int ExchangeWithPort(_usbSerialPort port, unsigned char code, Payload& payload) {
        Reply ignored;
        return ExchangeWithPort(port, code, payload, ignored);
    }

    int SetPeriodOutputs(usbOutput& pattern, unsigned char command);

    static constexpr int kNothingKept = -1;  // of half a word

protected:
    friend class MarvaneUSB;

    /** GetBoardType of every model: only the code differs. */
    static int AnswerBoardType(BoardType boardType, unsigned char* type) {
        if (type == nullptr) return Fail(USB_ERR_NULL_POINTER);
        *type = static_cast<unsigned char>(boardType);
        return boardType == BoardType::kUnknown ? 0 : 1;
    }

    int CheckPulsedInput(_usbInputBitId input) const;
    /** Of an input above 32 there is nothing to mark. */
    void MarkPulsedInput(_usbInputBitId input);

    int CheckReel(unsigned char reel) const;

    int ReadClockValue(Command command, unsigned long* time);

    enum class CallbackState : unsigned { kNone = 0, kRunning = 1, kFailed = 2 };
    [[nodiscard]] CallbackState StateOfCallback() const;
    int StartCallbackThread();
    /** The stop handshake; returns once nothing of the library runs on the thread. */
    void StopCallbackThread();
    static void* InputsCallbackThread(void* impl) noexcept;
    /** One pass of the thread; false when an exchange failed. */
    bool PollChangedInputs();
    /** Keeps of the changes those that left their input at the selected level. */
    static void qualifyInputSelection(KBaseImplementation* impl, unsigned char* inputs);

    std::atomic<bool> hiCodeLoaded;  // the program runs; set by the loader, never cleared
    int boardSpeed;                  // kFullSpeed or kHighSpeed
    MarvaneUSB* owner;               // only ever compared with null
    void (*changedInputsCallback)(usbInput* changed, usbInput* current);
    usbInput changedInputsMask;
    usbInput changedInputsLevel;
    usbInput changedInputs;
    usbInput currentInputs;
    pthread_t callbackThread;  // 0: there is none
    std::atomic<int> callbackThreadRun;
    std::atomic<int> callbackThreadStopped;
    int deviceNo;
    int referenceCount;
    // Flags that several threads may meet: each is set once its board has accepted the command.
    std::atomic<int> pulsedInputConfigured[kInputCount];
    std::atomic<int> reelConfigured[kReelCount];
    std::atomic<int> serialPortConfigured[kSerialPortCount];
    int deviceHandle;

    // Not part of what a model or the facade may count on.

    std::atomic<int> keptByte[kSerialPortCount];  // half a word that waits for the other
    std::atomic<int> callbackThreadId = 0;        // the kernel's number of the thread
    std::atomic<int> callbackThreadForks = 0;     // forks before the thread was started
    std::atomic<int> callbackThreadError = 0;     // of the exchange that ended it

private:
    // Constant initialisation and a plain integer: nothing runs when a thread begins or ends.
    static constinit thread_local int error_no;
};

// Functions that are no members name a failure as the operations do.
inline int Fail(_usbErrorCode code) {
    return KBaseImplementation::Fail(code);
}
inline int FailWithout(const SharedObject& missing) {
    return KBaseImplementation::FailWithout(missing);
}

#endif  // KBASE_IMPLEMENTATION_H
