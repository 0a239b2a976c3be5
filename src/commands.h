/**
 * @file commands.h
 * @brief The commands that a board understands: code, channel, payload and reply, one line each.
 *
 * Operations name a command; its numbers stand here only. "h" and "l" are the high and low byte of
 * a 16-bit value, in the order in which they travel.
 */
#ifndef COMMANDS_H
#define COMMANDS_H

/** The function of a board that a command is addressed to. */
enum class Channel : int {
    kDigitalIo = 1,    // inputs, outputs, pulsed inputs, hoppers, reels, recording
    kServices = 2,     // the 8051's own services: version and EEPROM
    kSerialPort0 = 3,  // serial port 0
    kSerialPort1 = 4,  // serial port 1
    kPic = 5,          // the PIC: identity, random numbers, clock, battery, security switches
    kMemory = 6,       // the 8051's memory: SRAM and program
    kSpi = 7           // SPI port
};

struct Command {
    unsigned char code;
    Channel channel;
};

namespace commands {
// clang-format off

// The 8051's services                                         // payload -> reply
constexpr Command kConfigureEeprom      {  3, Channel::kServices};   // page, address bytes, highest h l, bus address -> none
constexpr Command kWriteEeprom          {  4, Channel::kServices};   // n, address l h, data[n] -> none
constexpr Command kReadEeprom           {  5, Channel::kServices};   // n, address l h -> data[n]
constexpr Command kGet8051Version       {  6, Channel::kServices};   // none -> version

// The PIC
constexpr Command kSetClock             { 20, Channel::kPic};        // clock, 4 bytes, low first -> none
constexpr Command kGetClock             { 21, Channel::kPic};        // none -> clock, 4 bytes, low first
constexpr Command kStartSwitchRead      { 40, Channel::kPic};        // none -> none
constexpr Command kNextSwitchRead       { 41, Channel::kPic};        // none -> clock, 4 bytes, low first, switches
constexpr Command kClearSwitches        { 42, Channel::kPic};        // none -> none
constexpr Command kGetPicVersion        { 44, Channel::kPic};        // none -> version
constexpr Command kGetPicSerial         { 63, Channel::kPic};        // none -> serial number
constexpr Command kSwitchFlags          { 64, Channel::kPic};        // none -> flags[2]
constexpr Command kSetPicSerial         { 65, Channel::kPic};        // serial[8] -> none
constexpr Command kCachedSwitchFlags    { 67, Channel::kPic};        // none -> flags[2]
constexpr Command kGetRandomNumber      { 68, Channel::kPic};        // none -> number l h
constexpr Command kEnableRandomNumbers  { 69, Channel::kPic};        // argument, 4 bytes, low first -> none
constexpr Command kDisableRandomNumbers {118, Channel::kPic};        // none -> none
constexpr Command kBatteryFailFlag      {119, Channel::kPic};        // none -> flag
constexpr Command kGetDallasSerial      {120, Channel::kPic};        // none -> serial[8]
constexpr Command kRtcFailure           {220, Channel::kPic};        // none -> flag
constexpr Command kClockAtBatteryFail   {221, Channel::kPic};        // none -> clock, 4 bytes, low first

// The 8051's memory
constexpr Command kReadFlatMemory       { 70, Channel::kMemory};     // n, address l h -> data[n]
constexpr Command kWriteFlatMemory      { 71, Channel::kMemory};     // n, address l h, data[n] -> none
constexpr Command kBeginDownload        { 72, Channel::kMemory};     // none -> none
constexpr Command kEndDownload          { 73, Channel::kMemory};     // none -> none
constexpr Command kFirmwareStatus       { 74, Channel::kMemory};     // none -> 1: the program runs
constexpr Command kReadPagedMemory      {116, Channel::kMemory};     // n, 0, page, offset l h -> data[n]
constexpr Command kWritePagedMemory     {117, Channel::kMemory};     // n, 0, page, offset l h, data[n] -> none

// Digital I/O: inputs and outputs
constexpr Command kGetInputs            { 75, Channel::kDigitalIo};  // none -> inputs[5]
constexpr Command kModifyOutputs        { 77, Channel::kDigitalIo};  // on[5], off[5] -> none
constexpr Command kPulseOutput          { 78, Channel::kDigitalIo};  // pulse value, output -> none
constexpr Command kPulseOffOutput       { 79, Channel::kDigitalIo};  // pulse value, output -> none
constexpr Command kPulseOutputResult    { 80, Channel::kDigitalIo};  // none -> three values, one byte each
constexpr Command kGetChangedInputs     { 81, Channel::kDigitalIo};  // none -> changed[5]
constexpr Command kGetRawInputs         { 82, Channel::kDigitalIo};  // none -> inputs[5]
constexpr Command kSetOnPeriod          { 83, Channel::kDigitalIo};  // pattern[5] -> none
constexpr Command kSetOffPeriod         { 84, Channel::kDigitalIo};  // pattern[5] -> none
constexpr Command kSetBrightness        { 85, Channel::kDigitalIo};  // level -> none
constexpr Command kSetMultiplexing      {114, Channel::kDigitalIo};  // 1 on, 0 off -> none
constexpr Command kGetMultiplexed       {115, Channel::kDigitalIo};  // none -> lead byte, groups[4][3]

// Digital I/O: reels
constexpr Command kConfigureReels       { 86, Channel::kDigitalIo};  // count, word h l, byte -> none
constexpr Command kSpinReel             { 87, Channel::kDigitalIo};  // reel, setting, value h l -> none
constexpr Command kRampUp               { 88, Channel::kDigitalIo};  // reel, n, steps[n] -> none
constexpr Command kRampDown             { 89, Channel::kDigitalIo};  // reel, n, steps[n] -> none
constexpr Command kSetDutyCycle         { 90, Channel::kDigitalIo};  // duty[3] -> none
constexpr Command kReelSynchronise      { 91, Channel::kDigitalIo};  // enable -> none
constexpr Command kReelStatus           { 92, Channel::kDigitalIo};  // none -> per reel: word 1 h l, word 2 h l, byte 1, byte 2

// Digital I/O: pulsed inputs and hoppers
constexpr Command kConfigurePulsedInput {107, Channel::kDigitalIo};  // input, pulse, state, extended (K40: without the last) -> none
constexpr Command kPulsedInputCheck     {108, Channel::kDigitalIo};  // input, 1 begin, 0 end -> none
constexpr Command kResetCounter         {109, Channel::kDigitalIo};  // input -> none
constexpr Command kDecrementCounter     {110, Channel::kDigitalIo};  // input -> none
constexpr Command kReadCounter          {111, Channel::kDigitalIo};  // input -> count
constexpr Command kReleaseHopperCoins   {112, Channel::kDigitalIo};  // input, pulse, state, output, coins h l, parameter, extended (K40: without the last) -> none
constexpr Command kHopperStatus         {113, Channel::kDigitalIo};  // input -> status, count
constexpr Command kStopHopper           {124, Channel::kDigitalIo};  // input -> none

// Digital I/O: recording and diagnostic data
constexpr Command kConfigureRecording   {125, Channel::kDigitalIo};  // slots[4], page, offset h l, length h l -> none
constexpr Command kStartRecording       {126, Channel::kDigitalIo};  // parameter h l -> none
constexpr Command kRecordingStatus      {127, Channel::kDigitalIo};  // none -> status, first h l, second h l
constexpr Command kReadDiagnosticData   {128, Channel::kDigitalIo};  // request -> reply
constexpr Command kWriteDiagnosticData  {129, Channel::kDigitalIo};  // data -> none

// SPI
constexpr Command kEnableSpi            { 94, Channel::kSpi};        // none -> none
constexpr Command kDisableSpi           { 95, Channel::kSpi};        // none -> none
constexpr Command kSendSpi              { 96, Channel::kSpi};        // send bits, receive bits, control, data -> data

// clang-format on
}  // namespace commands

/**
 * Codes of the serial commands. Each goes to the channel of the port that it concerns, so that the
 * channel is known only when the port is.
 */
namespace serial_commands {
// clang-format off

constexpr unsigned char kSetConfig          =  97;  // type, parity, Flags bits 2-3, Flags bit 1, rate[2] -> none
constexpr unsigned char kSend               =  98;  // data -> none
constexpr unsigned char kReceive            =  99;  // port 0: message id, port 1: none -> data
constexpr unsigned char kGetParityErrors    = 100;  // none -> count h l
constexpr unsigned char kSetTimeoutMessage  = 101;  // time-out, n, message[n] -> none
constexpr unsigned char kReceiveTimestamped = 102;  // none -> records of data and timestamp
constexpr unsigned char kConfigurePoll      = 103;  // 13 bytes, message 1, message 2 -> none
constexpr unsigned char kEmptyPolledBuffer  = 104;  // index -> none
constexpr unsigned char kReceivePolled      = 105;  // index -> status, more, data
constexpr unsigned char kDeletePolled       = 106;  // index -> none
constexpr unsigned char kPolledHostTimeout  = 121;  // index, time-out -> none
constexpr unsigned char kSasMachineAddress  = 122;  // address -> none
constexpr unsigned char kSasAutoReply       = 123;  // mode, value -> none
constexpr unsigned char kSasMessageStatus   = 124;  // none -> status

// clang-format on
}  // namespace serial_commands

#endif  // COMMANDS_H
