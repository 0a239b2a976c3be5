/**
 * @file marvaneusb.h
 * @brief Drives the USB I/O boards Marvane K40, K44 and K50 from a Linux application.
 *
 * Made for the program that runs a gaming machine: each MarvaneUSB object opens one board and
 * reads its inputs, drives lamps and other outputs, counts coins, pays from hoppers, spins reels,
 * and uses its two serial ports, EEPROM, battery-backed memory, clock and security-switch log.
 * Board n (0 to 15) is reached through the kernel driver's node /dev/Kovar_n, which the process
 * must be allowed to read and write. The platform is 64-bit little-endian Linux, C++11 or later.
 *
 * @code
 * MarvaneUSB board;
 * if (!board.init(0)) {
 *     char why[1000];
 *     MarvaneUSB::DescribeFailure(why, sizeof why);
 *     std::fprintf(stderr, "%s\n", why);
 *     return 1;
 * }
 * unsigned int pressed = 0;
 * if (!board.GetInputBit(USB_INPUT_5, &pressed) || !board.SetOutputBit(USB_OUTPUT_12, pressed))
 *     std::fprintf(stderr, "board failed: %s\n", MarvaneUSB::ErrorText(board.GetLastError()));
 * board.close();
 * @endcode
 *
 * What follows holds for every operation whose own comment says nothing else.
 *
 * @par Results and errors
 *   An operation returns 1 on success and 0 on failure; GetLastError() then tells the calling
 *   thread why. The last error is meaningful only right after a call that returned 0: a command
 *   that succeeds clears it on a K44 or K50 and leaves it on a K40, and a success that sends
 *   nothing leaves it. Arguments are checked first, in the order of the listed codes, and nothing
 *   is sent or changed when a check fails. A model that lacks an operation refuses it before it
 *   looks at any argument. Output arguments are written only on success. No exception leaves
 *   an operation. What errno holds after a failure means nothing; DescribeFailure() says what the
 *   system said, and what mends it.
 * @par With no board open
 *   Operations return 0, leave the last error alone and touch no argument; the four SAS
 *   operations set USB_ERR_NOT_SUPPORTED_K40.
 * @par Exchanges with the board
 *   One command and its reply are one exchange, which lasts as long as the driver takes. It fails
 *   with USB_ERR_TRANSFER_FAILED (the driver refused it, the board is gone, a signal interrupted
 *   it, or a K40 answered another command), USB_ERR_DATA_TOO_LONG (a K40 reply of impossible
 *   length), or the board's non-zero status, passed on unchanged: -128 to 127 from a K40, any
 *   32-bit number from a K44 or K50. A status may equal a code of _usbErrorCode; its meaning is
 *   the board's. Nothing is repeated on its own, since the board may have acted. An operation of
 *   several exchanges stops at the first that fails and undoes nothing. The board stays open: the
 *   call may be tried again; close a board that was unplugged, and open it once it is back.
 *   A reply shorter than what is decoded is a success: what the board did not send reads as 0.
 * @par Values
 *   A value whose meaning is said to be the board's is carried between caller and firmware
 *   unchanged. Enumerations may hold any 32-bit value: it is compared as a number of the
 *   enumeration's underlying type, and each operation says what it does with one out of range.
 * @par Threads
 *   Any number of threads may call operations on one open object at once; the driver keeps their
 *   exchanges apart. InitPort, init, InitUSBBoard, close, copying, assigning and destroying need
 *   exclusion by the caller: none may run beside any other call on the same object, nor beside
 *   one of their kind on an object that shares its board. Without a paragraph "Threads and
 *   processes" an operation takes no lock. None may be called from a signal handler.
 * @par Processes
 *   Any number of processes may use the same board. They share each board's output patterns,
 *   EEPROM description and timestamped serial bytes, and lock them; a wait for a lock has no time
 *   limit and goes on after a signal, and the locks of a process that dies come free. What counts
 *   as configured (pulsed inputs, reels, serial ports) is kept per opening of a board, by the
 *   object that opened it and its copies: every process configures what it uses.
 *   The shared state is a System V segment and semaphore set with the key files
 *   /tmp/K40SharedMemory and /tmp/Sem_K40Mutex, joined when the library is loaded; processes meet
 *   only if they see the same /tmp and IPC objects. Where it cannot be had, and once the library
 *   has let go of it at exit or unload, the operations that need it fail with
 *   USB_ERR_NOT_CONFIGURED. When they are removed under running processes, semaphores are made
 *   and joined anew; on a removed segment the running processes go on together, later ones share
 *   a new one. The objects' keys contain the inodes of the key files: remove or replace those under
 *   running processes, and the ones that start later have a shared state of their own.
 * @par What stays behind
 *   The last process that leaves removes the shared state, and the next one starts with everything
 *   zero. One that is killed, or calls _exit, removes nothing: the next process finds the output
 *   patterns and the EEPROM record as they were. Removing needs the rights of the owner (of root,
 *   say, for a program that loads the library as root and then calls setuid): a last user without
 *   them leaves segment and semaphores behind, the objects zeroed, which for the next process is
 *   the same. The semaphores count processes: each that was killed, each program that was left by
 *   exec, and each start through daemon(3), whose first process calls _exit, is counted for ever;
 *   they then stay until somebody removes them (ipcrm), and work all the same.
 * @par Key files
 *   Loading, unloading and joining anew lock them (flock) for less than a millisecond. Whoever may
 *   read one can hold it: a process waits ten seconds at most for each of the two, then uses what it
 *   finds finished, and creates and removes nothing. DescribeFailure() names the holder.
 * @par fork and exec
 *   A child may use the objects that it inherits and joins the shared state at its first use of
 *   it. The changed-inputs thread does not exist in the child, and nothing there waits for it.
 *   exec closes the boards' device nodes. What another thread held at that moment the new program
 *   gives back when it loads this library, if it sees /proc and no other copy of the library, or
 *   segment of the same size, in its process; a new program without the library holds the locks
 *   until it ends. The exchange itself may have been done, or not. A signal handler that forks
 *   ends its child by itself (exec, _exit): a child that returned from the handler would go on with
 *   the operation that its parent is in, and exchange it a second time.
 */
#ifndef MARVANEUSB_H
#define MARVANEUSB_H

/// Marks what the shared library exports.
#if defined(__GNUC__)
#define MARVANEUSB_API __attribute__((visibility("default")))
#else
#define MARVANEUSB_API
#endif

/**
 * @brief The codes that the library itself leaves in the last error (GetLastError()).
 *
 * The last error may also hold a status of the board, which is no member of this enumeration and
 * may equal one.
 */
enum _usbErrorCode : int {
    USB_ERR_NONE = 0,                //!< No error.
    USB_ERR_BAD_LENGTH = 2,          //!< Size of an SPI transfer or SEC frame out of range.
    USB_ERR_BAD_CHANNEL = 3,         //!< PerformUSBIO on a K44 or K50: channel above 7.
    USB_ERR_TRANSFER_FAILED = 6,     //!< The exchange failed, or replies came without their data.
    USB_ERR_DATA_TOO_LONG = 7,       //!< A reply, message or payload beyond its fixed limit.
    USB_ERR_OUT_OF_RANGE = 8,        //!< An argument outside the range that is accepted.
    USB_ERR_BAD_BAUD_RATE = 10,      //!< SetConfig: a rate that the port does not have.
    USB_ERR_BAD_PORT_TYPE = 11,      //!< SetConfig: port type, parity for that type, or port.
    USB_ERR_BAD_REEL = 16,           //!< SpinRampUp, SpinRampDown: reel above 2.
    USB_ERR_NOT_SUPPORTED_K40 = 25,  //!< Not on a K40; K40 SRAM beyond 65535; SAS with no board.
    USB_ERR_NOT_SUPPORTED_K44 = 26,  //!< Not on a K44.
    USB_ERR_NULL_POINTER = 30,       //!< A required pointer is null.
    USB_ERR_THREAD_START = 37,       //!< The changed-inputs thread could not be started.
    USB_ERR_NOT_CONFIGURED = 38      //!< Input, reel or port not configured, or no shared state.
};

/**
 * @brief The 33 inputs: input n is bit n % 8 of byte n / 8 of a usbInput.
 *
 * Compared as unsigned. Some operations take inputs 0 to 23 only.
 */
enum _usbInputBitId : unsigned int {
    USB_INPUT_0 = 0,
    USB_INPUT_1 = 1,
    USB_INPUT_2 = 2,
    USB_INPUT_3 = 3,
    USB_INPUT_4 = 4,
    USB_INPUT_5 = 5,
    USB_INPUT_6 = 6,
    USB_INPUT_7 = 7,
    USB_INPUT_8 = 8,
    USB_INPUT_9 = 9,
    USB_INPUT_10 = 10,
    USB_INPUT_11 = 11,
    USB_INPUT_12 = 12,
    USB_INPUT_13 = 13,
    USB_INPUT_14 = 14,
    USB_INPUT_15 = 15,
    USB_INPUT_16 = 16,
    USB_INPUT_17 = 17,
    USB_INPUT_18 = 18,
    USB_INPUT_19 = 19,
    USB_INPUT_20 = 20,
    USB_INPUT_21 = 21,
    USB_INPUT_22 = 22,
    USB_INPUT_23 = 23,
    USB_INPUT_24 = 24,
    USB_INPUT_25 = 25,
    USB_INPUT_26 = 26,
    USB_INPUT_27 = 27,
    USB_INPUT_28 = 28,
    USB_INPUT_29 = 29,
    USB_INPUT_30 = 30,
    USB_INPUT_31 = 31,
    USB_INPUT_32 = 32,
    USB_INPUT_NONE = 255  //!< An empty slot of ConfigureRecordingInputs; no input.
};

/// Argument of InputMultiplexing; compared as signed.
enum usbInputMultiplexing : int {
    USB_INPUT_MULTIPLEXING_OFF = 0,  //!< Plain inputs.
    USB_INPUT_MULTIPLEXING_ON = 1    //!< Multiplexed inputs, read with GetMultiplexedInputs.
};

/**
 * @brief The 38 outputs: output n is bit n % 8 of byte n / 8 of a usbOutput. Compared as unsigned.
 */
enum _usbOutputBitId : unsigned int {
    USB_OUTPUT_0 = 0,
    USB_OUTPUT_1 = 1,
    USB_OUTPUT_2 = 2,
    USB_OUTPUT_3 = 3,
    USB_OUTPUT_4 = 4,
    USB_OUTPUT_5 = 5,
    USB_OUTPUT_6 = 6,
    USB_OUTPUT_7 = 7,
    USB_OUTPUT_8 = 8,
    USB_OUTPUT_9 = 9,
    USB_OUTPUT_10 = 10,
    USB_OUTPUT_11 = 11,
    USB_OUTPUT_12 = 12,
    USB_OUTPUT_13 = 13,
    USB_OUTPUT_14 = 14,
    USB_OUTPUT_15 = 15,
    USB_OUTPUT_16 = 16,
    USB_OUTPUT_17 = 17,
    USB_OUTPUT_18 = 18,
    USB_OUTPUT_19 = 19,
    USB_OUTPUT_20 = 20,
    USB_OUTPUT_21 = 21,
    USB_OUTPUT_22 = 22,
    USB_OUTPUT_23 = 23,
    USB_OUTPUT_24 = 24,
    USB_OUTPUT_25 = 25,
    USB_OUTPUT_26 = 26,
    USB_OUTPUT_27 = 27,
    USB_OUTPUT_28 = 28,
    USB_OUTPUT_29 = 29,
    USB_OUTPUT_30 = 30,
    USB_OUTPUT_31 = 31,
    USB_OUTPUT_32 = 32,
    USB_OUTPUT_33 = 33,
    USB_OUTPUT_34 = 34,
    USB_OUTPUT_35 = 35,
    USB_OUTPUT_36 = 36,
    USB_OUTPUT_37 = 37
};

/// The five bytes of a usbOutput, each with bits 0 to 7, byte 4 with 0 to 5. Compared as unsigned.
enum _usbOutputId : unsigned int {
    USB_OUTPUT_BYTE_0 = 0,
    USB_OUTPUT_BYTE_1 = 1,
    USB_OUTPUT_BYTE_2 = 2,
    USB_OUTPUT_BYTE_3 = 3,
    USB_OUTPUT_BYTE_4 = 4
};

/// Active level of a pulsed input. The low byte is sent; its meaning is the board's.
enum ActiveState : unsigned int { USB_ACTIVE_STATE_0 = 0, USB_ACTIVE_STATE_1 = 1 };

/**
 * @brief Status byte of a hopper or pulsed input, 0 to 255, as the board answers it.
 *
 * The library tells apart only 4; all other meanings, and values above 4, are the board's.
 */
enum ReleaseHopperCoinsStatus : unsigned int {
    USB_HOPPER_STATUS_0 = 0,
    USB_HOPPER_STATUS_1 = 1,
    USB_HOPPER_STATUS_2 = 2,
    USB_HOPPER_STATUS_3 = 3,
    USB_HOPPER_STATUS_4 = 4  //!< GetPulsedInputStatus reports it as 1.
};

/// Status byte of input recording, 0 to 255, as the board answers it; its meaning is the board's.
enum RecordingStatus : unsigned int {
    USB_RECORDING_STATUS_0 = 0,
    USB_RECORDING_STATUS_1 = 1,
    USB_RECORDING_STATUS_2 = 2
};

/// The two serial ports of a board; any other value is refused.
enum _usbSerialPort : int { USB_SERIAL_PORT_0 = 0, USB_SERIAL_PORT_1 = 1 };

/// Type of a serial port, for SetConfig; the meaning is the board's. Compared as unsigned.
enum _usbPortType : int {
    USB_PORT_TYPE_0 = 0,
    USB_PORT_TYPE_1 = 1,
    USB_PORT_TYPE_2 = 2,
    USB_PORT_TYPE_3 = 3
};

/**
 * @brief 33 input bits: an image of the inputs, a report of changes, or a mask.
 */
struct usbInput {
    unsigned char bytes[5];  //!< Input n: bit n % 8 (0 lowest) of byte n / 8. Rest: the board's.
};

/**
 * @brief The 13 bytes of multiplexed inputs, in the board's order; their meaning is the board's.
 */
struct usbMultiplexedInput {
    unsigned char leadByte;      //!< Reply byte 0.
    unsigned char groups[4][3];  //!< Reply bytes 1 to 12: four groups of 24 bits, group 0 first.
};

/**
 * @brief 38 output bits: a pattern or a mask.
 */
struct usbOutput {
    unsigned char bytes[5];  //!< Output n: bit n % 8 (0 lowest) of byte n / 8; byte 4: bits 0 to 5.
};

/**
 * @brief The steps of a reel's ramp, 61 bytes. What a step means is the board's.
 */
struct usbRampTable {
    unsigned char length;     //!< Steps in use, 0 to 60.
    unsigned char steps[60];  //!< Step values, in the order in which they are sent.
};

/**
 * @brief Status of the three reels, 18 bytes. Entry i is reel i; the meanings are the board's.
 */
struct ReelStatusEx {
    unsigned short word1[3];  //!< First 16-bit value.
    unsigned short word2[3];  //!< Second 16-bit value.
    unsigned char byte1[3];   //!< First byte.
    unsigned char byte2[3];   //!< Second byte.
};

/**
 * @brief ReelStatusEx in 12 bytes: of each word only the low byte.
 */
struct usbReelStatus {
    unsigned char word1[3];  //!< Low byte of the first 16-bit value.
    unsigned char word2[3];  //!< Low byte of the second 16-bit value.
    unsigned char byte1[3];  //!< First byte.
    unsigned char byte2[3];  //!< Second byte.
};

/**
 * @brief Line parameters of a serial port, for SetConfig.
 */
struct _DCB {
    /**
     * Bits per second. Port 0: 1200, 2400, 4800, 9600, 19200, 38400 or 62500. Port 1: 110, 300,
     * 600, 1200, 2400, 4800, 9600, 14400, 19200, 38400, 57600 or 62500.
     */
    unsigned long BaudRate;
    unsigned char Flags;   //!< Bit 1 and bits 2 and 3 go to the board, which defines them.
    unsigned char Parity;  //!< 0 none; 1, 2 the two senses; 5 only with port type 0; others: none.
};

/**
 * @brief A ccTalk message pair that the board polls by itself; for ConfigureCCTalkPort.
 *
 * A message is complete with its header and checksum: byte 1 holds its number of data bytes d,
 * 0 to 20, and the first d + 5 bytes are sent. Message2 cannot be left out: all zero it is sent as
 * five zeroes, so choose a mode in which the board does not use it, or ConfigureRS232Poll, which
 * knows messages of no bytes. What the board does with the values is its own.
 */
struct CCTalkConfig {
    unsigned char Index;   //!< Which message of the port, 0 to 3.
    unsigned int Mode;     //!< 0 to 3.
    unsigned char Option;  //!< 0 to 4.
    unsigned char Param;   //!< Any value.
    /**
     * Milliseconds, sent in units of 10 ms: a rest below 10 is dropped. Above 2550 counts as 2550.
     * Not to be negative: its tenth would be sent modulo 256.
     */
    int TimeMs;
    unsigned short Word;         //!< Any value.
    unsigned char Byte;          //!< Any value.
    unsigned char Message1[25];  //!< First message: Message1[1] + 5 bytes, at most 25.
    unsigned char Message2[25];  //!< Second message: Message2[1] + 5 bytes, at most 25.
};

/**
 * @brief A message pair of any framing that the board polls by itself; for ConfigureRS232Poll.
 *
 * A message is as long as the byte at LengthOffset says, and LengthExtra bytes more, 0 to 25 in
 * all; 0 means that there is no such message. What the board does with the values is its own.
 */
struct RS232PollConfig {
    unsigned char Index;   //!< Which message of the port, 0 to 3.
    unsigned int Mode;     //!< 0 to 3.
    unsigned char Option;  //!< 0 to 4.
    unsigned char Param;   //!< Any value.
    /**
     * Milliseconds, sent in units of 10 ms: a rest below 10 is dropped. Above 2550 counts as 2550.
     * Not to be negative: its tenth would be sent modulo 256.
     */
    int TimeMs;
    unsigned char Variant;       //!< Any value; 1 is that of ConfigureCCTalkPort.
    unsigned char LengthOffset;  //!< Place of a message's length byte, 0 to 24.
    unsigned char LengthExtra;   //!< Bytes that a message has beyond that length.
    unsigned short Word;         //!< Any value.
    unsigned char Byte;          //!< Any value.
    unsigned char Message1[25];  //!< First message: Message1[LengthOffset] + LengthExtra bytes.
    unsigned char Message2[25];  //!< Second message: Message2[LengthOffset] + LengthExtra bytes.
};

/**
 * @brief Describes a serial EEPROM part to the library and the board; 6 bytes, the last unused.
 */
struct K40EEPROM {
    unsigned char pageSize;         //!< Write page in bytes; it is the board that heeds it.
    unsigned char addressBytes;     //!< Address bytes that the part takes, 1 or 2.
    unsigned short highestAddress;  //!< Highest byte address.
    unsigned char busAddress;       //!< 0x50 with one address byte, 0x51 with two.
};

/**
 * @name EEPROM parts
 * Descriptors of the parts of the 24LC family, one of which each board carries.
 */
/// @{
extern MARVANEUSB_API const K40EEPROM E24LC01;   //!< 128 bytes in pages of 8, 1 address byte.
extern MARVANEUSB_API const K40EEPROM E24LC02;   //!< 256 bytes in pages of 8, 1 address byte.
extern MARVANEUSB_API const K40EEPROM E24LC04;   //!< 512 bytes in pages of 16, 1 address byte.
extern MARVANEUSB_API const K40EEPROM E24LC08;   //!< 1 KB in pages of 16, 1 address byte.
extern MARVANEUSB_API const K40EEPROM E24LC16;   //!< 2 KB in pages of 16, 1 address byte.
extern MARVANEUSB_API const K40EEPROM E24LC32;   //!< 4 KB in pages of 32, 2 address bytes.
extern MARVANEUSB_API const K40EEPROM E24LC64;   //!< 8 KB in pages of 32, 2 address bytes.
extern MARVANEUSB_API const K40EEPROM E24LC128;  //!< 16 KB in pages of 64, 2 address bytes.
extern MARVANEUSB_API const K40EEPROM E24LC256;  //!< 32 KB in pages of 64, 2 address bytes.
extern MARVANEUSB_API const K40EEPROM E24LC512;  //!< 64 KB in pages of 128, 2 address bytes.
/// @}

/// The library's own side of an open board; opaque.
class KBaseImplementation;

/**
 * @brief One board, or none: opens it and offers all its operations.
 *
 * Copies share the open board; it is closed when the last of them is closed or destroyed.
 */
class MARVANEUSB_API MarvaneUSB {
public:
    /// @name Lifetime and sharing
    /// @{

    /// Makes an object with no board open.
    MarvaneUSB();

    /**
     * @brief Shares the board that another object has open, or none; copies nothing of it.
     *
     * It takes no const object and no temporary, so a function cannot return a MarvaneUSB by value
     * before C++17, and from then on only one that it makes in the return statement: have it fill
     * one of the caller's.
     * @param other  The object to share with; unchanged.
     */
    MarvaneUSB(MarvaneUSB& other);

    /**
     * @brief Lets go of this object's board as close() does, then shares that of another.
     * @param other  The object to share with; unchanged. Itself: nothing happens.
     * @return This object.
     * @par Threads and processes
     *   May wait for the changed-inputs thread as close() does.
     */
    MarvaneUSB& operator=(MarvaneUSB& other);

    /// Does what close() does.
    ~MarvaneUSB();

    /**
     * @brief Lets go of the board; the last object that shares it closes it.
     *
     * Outputs, serial settings and all else on the board stay as they are.
     * @return 1 always, also with no board open; last error unchanged.
     * @par Threads and processes
     *   The last object first stops the board's changed-inputs thread: it waits, without limit,
     *   until the thread's pass and a callback in it have ended, at most 20 ms longer. Not to be
     *   called from that callback. In a forked child it does not wait.
     */
    int close();

    /// @}

    /// @name Opening a board
    /// @{

    /**
     * @brief Opens board n: finds its model, gets its firmware running, knows its EEPROM.
     *
     * The firmware is downloaded unless it runs already. The EEPROM part is detected and recorded
     * for all processes at the first opening of the device number; later openings skip that. A
     * board that this object has open is let go as by close() once board n is known to exist, with
     * a known model and speed.
     * @param n  Device number 0 to 15, as in /dev/Kovar_n.
     * @return 1 once all this is done, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: n below 0 or above 15; the board open before stays open
     *   - unchanged: no board n, or its product or speed is unknown; the board open before stays
     *     open
     *   - unchanged: its device node cannot be opened for reading and writing; no board is open
     *   - any code of DownloadHiCode: the firmware is not running; board n is open
     *   - any code of CheckEEPROM or ConfigureEEPROM: its EEPROM is not recorded, or recorded with
     *     the part last probed; board n is open
     *   With board n left open, call InitPort again, repeat the step that failed, or close().
     *   DescribeFailure() tells these cases apart.
     *   A result of 1 does not vouch for the EEPROM part on record: where an earlier opening, in
     *   any process, failed or died in mid-detection, the part that it probed with last stays on
     *   record, and no opening detects again. CheckEEPROM, then ConfigureEEPROM mend it. Nor is a
     *   board told its part again that lost power and was plugged in anew, as long as the record
     *   lives: call ConfigureEEPROM with a copy of its part's descriptor.
     * @par Threads and processes
     *   The look at the EEPROM record and the detection run one at a time per board over all
     *   processes and objects, under a flock on the device node, so this waits while another runs
     *   them, and as long as anybody else holds such a lock. The download does not: two first
     *   openings at once may both download the firmware.
     * @note Models: K40, K44, K50. A real board needs a library that was built with the real
     *   firmware of its model; the stand-ins that are built in otherwise leave it idle.
     */
    int InitPort(int n);

    /**
     * @brief Opens the first board that opens: clears the last error and tries InitPort(n), for
     *   n = 0 to 15 in turn.
     * @param ignored  Any value; has no meaning.
     * @return 1 with that board open, else 0 with the last error of the attempt on number 15: 0
     *   when there is no such board. A board whose opening failed half-way may then be open, and
     *   so may the one from before when no number had a usable board.
     * @par Threads and processes
     *   As InitPort.
     */
    int init(int ignored);

    /**
     * @brief Opens the board whose inputs 24 to 26 (bits 0 to 2 of input byte 3) show an identity.
     *
     * Tries InitPort on 0 to 7 in turn, reads the inputs, and closes what shows another identity.
     * @param boardId  Identity 0 to 7; 8 to 15 are tried but match no board.
     * @return 1 with that board open, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: boardId above 15; nothing opened or closed
     *   - any other value: what the attempts left, which may be 0; no code of its own is set
     *   A board whose opening or input reading failed may then be open, and so may the one from
     *   before when no number had a usable board.
     * @par Threads and processes
     *   As InitPort.
     */
    int InitUSBBoard(unsigned char boardId);

    /// @}

    /// @name Board and library information
    /// @{

    /**
     * @brief Tells the model of the open board. Nothing is sent.
     * @param type  Receives 1 for a K40, 2 for a K44, 3 for a K50.
     * @return 1, or 0 with USB_ERR_NULL_POINTER: type is null. The last error is not cleared.
     * @note Models: K40, K44, K50.
     */
    int GetFittedBoard(unsigned char* type);

    /**
     * @brief Tells the USB speed of the open board. Nothing is sent.
     * @param speed  Receives 1 for 12 Mbit/s, 2 for 480 Mbit/s, 0 with no board open.
     * @return 1, also with no board open, or 0 with USB_ERR_NULL_POINTER: speed is null. The last
     *   error is not cleared.
     * @note Models: K40, K44, K50.
     */
    int GetBoardSpeed(unsigned char* speed);

    /**
     * @brief Tells the product version. Needs no board.
     * @param text  Room for 2 bytes: receives "1" and its terminating zero.
     * @return 1, or 0 with USB_ERR_NULL_POINTER: text is null.
     */
    int GetProductVersion(unsigned char* text);

    /**
     * @brief Tells the version of this library. Needs no board.
     * @param text  Room for 2 bytes: receives "1" and its terminating zero.
     * @return 1, or 0 with USB_ERR_NULL_POINTER: text is null.
     */
    int GetDllVersion(unsigned char* text);

    /**
     * @brief Downloads the board's firmware unless the board says that it runs, and starts it.
     *
     * InitPort does this; call it again after a download that failed. The image is the one that the
     * library was built with for the model (MARVANE_FIRMWARE_DIR); built without images it carries
     * stand-ins that do nothing, and a real board does not work until it gets its real image.
     * @return 1 once the firmware runs, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     what was written stays, and the next call starts from the beginning
     * @par Threads and processes
     *   Needs exclusion by the caller among threads whose objects share the board, as opening does.
     *   Nothing keeps two processes from downloading to one board at once.
     * @note Models: K40, K44, K50. Until it has succeeded for the open board, WriteSRAM and
     *   WriteLargeSRAM on a K44 or K50 write into the firmware's memory. From then on they write
     *   into battery-backed memory, and so would another download: close a K44 or K50 that lost
     *   its firmware, and open it again.
     */
    int DownloadHiCode();

    /**
     * @brief Sends one command of the caller's own to the board and fetches its reply.
     *
     * Commands, payloads and replies are the firmware's. Nothing checks them, and no lock of the
     * shared state is taken.
     * @param command  Command code.
     * @param channel  1 digital I/O and reels, 2 services of the 8051, 3 serial port 0, 4 serial
     *   port 1, 5 PIC microcontroller, 6 memory of the 8051, 7 SPI. Not checked on a K40.
     * @param in       The inLen bytes of payload; may be null when inLen is 0.
     * @param inLen    Payload bytes; at most 511 on a K40.
     * @param out      Room for the longest reply of the command: at most 62 bytes on a K40, 256 are
     *   advised on a K44 or K50, whose driver is not told the room. May be null on a K40.
     * @param outLen   Set it to 0 before; receives the number of reply bytes.
     * @return 1 once the board has accepted the command, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: outLen is null, or in is null and inLen above 0; nothing sent
     *   - USB_ERR_BAD_CHANNEL: K44 or K50 and channel above 7; nothing sent
     *   - USB_ERR_DATA_TOO_LONG: K40 and inLen above 511; nothing sent
     *   - USB_ERR_TRANSFER_FAILED: the exchange failed; a K44 or K50 sets *outLen to 0
     *   - USB_ERR_DATA_TOO_LONG: a K40 reply that is shorter than its header or above 64 bytes
     *   - USB_ERR_TRANSFER_FAILED: a K40 reply to another command
     *   - any other value: the status that the board answered; on a K44 or K50 the driver may
     *     have written out and *outLen
     *   On a K40 a failure leaves out and *outLen as they were.
     * @note Models: K40, K44, K50.
     */
    int PerformUSBIO(unsigned char command, int channel, unsigned char* in, unsigned long inLen,
                     unsigned char* out, unsigned long* outLen);

    /// @}

    /// @name Errors
    /// @{

    /**
     * @brief Tells why the calling thread's last failing operation failed. Needs no board.
     * @return A code of _usbErrorCode or a status of the board; 0 in a thread that met no failure.
     */
    int GetLastError();

    /**
     * @brief Sets the calling thread's last error to USB_ERR_NONE. Needs no board.
     * @return 1 always.
     */
    int ClearErrors();

    /**
     * @brief Names a code of GetLastError() and says what it means. Needs no board.
     * @param code  A code of _usbErrorCode, or a status of the board. A status that equals a code
     *   is taken for it; DescribeFailure() knows better.
     * @return "USB_ERR_OUT_OF_RANGE: an argument is outside ...", or for any other number "status
     *   77 of the board"; never null. The text of a status lasts until the calling thread's fourth
     *   call from then, all others for ever. Any thread may call it; nothing is allocated.
     */
    static const char* ErrorText(int code);

    /**
     * @brief Says in one line why the calling thread's last failed call failed. Needs no board.
     *
     * For a failed opening it names the file or node, the system's error and what mends it; after
     * init or InitUSBBoard it does so for each number at which there is anything. For missing
     * shared state it names the object and the cause, for an exchange the command and what the
     * driver or the board said. The words are for people and may change. Whose a file is, or which
     * program holds it, is looked up now. ClearErrors() forgets the failure.
     * @param text      Receives the line, cut to fit; always ends with a zero byte unless capacity
     *   is 0. May be null.
     * @param capacity  Bytes of text. 1000 is enough for one board.
     * @return The length of the whole line, its zero byte not counted: capacity or more means that
     *   it was cut. The last error stays as it is.
     */
    static unsigned long DescribeFailure(char* text, unsigned long capacity);

    /// @}

    /// @name Inputs
    /// @{

    /**
     * @brief Reads all inputs, as GetInputs(usbInput*) does, into plain bytes.
     * @param inputs  Room for 5 bytes in the layout of usbInput; of a shorter reply only the bytes
     *   that came are written.
     * @return 1 once the inputs are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: inputs is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetInputs(unsigned char* inputs);

    /**
     * @brief Reads all inputs from the board; nothing is filtered, inverted or kept here.
     * @param inputs  Receives the image: a bit that is 1 is an input at level 1.
     * @return 1 once the inputs are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: inputs is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetInputs(usbInput* inputs);

    /**
     * @brief Reads one input; the whole image is fetched for it.
     * @param inputBit  Input 0 to 32.
     * @param value     Receives 1 or 0.
     * @return 1 once the input is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: value is null
     *   - USB_ERR_OUT_OF_RANGE: inputBit above 32
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetInputBit(_usbInputBitId inputBit, unsigned int* value);

    /**
     * @brief Reads the board's raw image of all inputs; how it differs from GetInputs is the
     *   board's.
     * @param inputs  Receives the image.
     * @return 1 once the inputs are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: inputs is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetRawInputs(usbInput* inputs);

    /**
     * @brief Asks the board which inputs changed since its previous report of changes.
     * @param changed  Receives a set bit for each input that changed.
     * @return 1 once the report is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: changed is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @par Threads and processes
     *   A board has one report: a change goes to whoever asks first, this operation or a
     *   changed-inputs thread, in any process.
     * @note Models: K40, K44, K50.
     */
    int GetChangedInputs(usbInput* changed);

    /**
     * @brief Switches the multiplexing of the board's inputs on or off.
     * @param mode  0 off, 1 on.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: mode negative or above 1
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int InputMultiplexing(usbInputMultiplexing mode);

    /**
     * @brief Reads the multiplexed inputs.
     * @param inputs  Receives the 13 bytes of the reply; their meaning is the board's.
     * @return 1 once the inputs are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: inputs is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetMultiplexedInputs(usbMultiplexedInput* inputs);

    /// @}

    /// @name Changed-inputs callback
    /// @{

    /**
     * @brief Starts, replaces or stops a thread that calls the application when inputs change.
     *
     * The thread asks the board for its report of changes, at once after a pass with a change of a
     * watched input, else every 5 ms. Watched inputs that changed, and whose level is then the one
     * selected, are reported in one call. A thread that runs is stopped before anything else is
     * looked at; once this call has returned, its callback is not called again.
     * @param mask       A set bit watches the input. Copied; not looked at with a null callback.
     * @param selection  Per watched input the level to report: 1 reports changes to 1, 0 changes to
     *   0. Copied; not looked at with a null callback.
     * @param callback   Called with the inputs that changed as selected, and the image of all
     *   inputs; both records are valid until it returns. Null stops the thread.
     * @return 1 once the thread is started, or stopped for a null callback, else 0 with
     *   GetLastError() and no thread running:
     *   - USB_ERR_NULL_POINTER: callback is null and there is no thread to stop
     *   - USB_ERR_NULL_POINTER: selection or mask is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the inputs could
     *     not be read once before the start
     *   - USB_ERR_THREAD_START: the thread could not be created
     *   An exchange that fails in the thread ends it; GetChangedInputsCallbackState tells, and the
     *   next call of this operation finds a thread to stop.
     * @par Inside the callback
     *   It runs on the library's thread, which has a last error of its own and blocks all signals
     *   but SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGTRAP. Operations on the board may be called.
     *   It must not, for this board, call this operation, close, InitPort, init or InitUSBBoard,
     *   nor assign to or destroy an object that has it open, nor call exit: they would wait for the
     *   callback itself. An exception that leaves it, and pthread_exit in it, end the process.
     * @par Threads and processes
     *   One thread per opening of a board, common to the objects that share it; the calls of this
     *   operation on them need exclusion by the caller. A stop waits, without limit, until the
     *   thread's pass and a callback in it have ended, at most 20 ms longer; in a forked child it
     *   does not wait. The process may end while the thread runs. The thread takes the board's
     *   reports of changes, which GetChangedInputs then does not see.
     * @note Models: K40, K44, K50.
     */
    int ConfigureChangedInputsCallback(usbInput* mask, usbInput* selection,
                                       void (*callback)(usbInput* changed, usbInput* current));

    /**
     * @brief Tells whether the changed-inputs thread works. Nothing is sent.
     *
     * A thread whose exchange failed calls back no more, so a program that lives by its callbacks
     * asks this now and then, and starts the thread anew once the cause is mended.
     * @param state  Receives 0 with no thread (never started, stopped, or in a forked child), 1
     *   while it runs, 2 when it ended because an exchange failed.
     * @return 1, or 0 with USB_ERR_NULL_POINTER: state is null. The last error is not cleared.
     * @par Threads and processes
     *   May be called from any thread, also in the callback.
     * @note Models: K40, K44, K50.
     */
    int GetChangedInputsCallbackState(unsigned int* state);

    /**
     * @brief Tells which error ended the changed-inputs thread. Nothing is sent.
     * @param code  Receives what that thread's last error was: a code of _usbErrorCode or a status
     *   of the board; 0 unless GetChangedInputsCallbackState tells 2.
     * @return 1, or 0 with USB_ERR_NULL_POINTER: code is null. The last error is not cleared.
     * @par Threads and processes
     *   May be called from any thread, also in the callback.
     * @note Models: K40, K44, K50.
     */
    int GetChangedInputsCallbackError(int* code);

    /// @}

    /**
     * @name Outputs
     *
     * The board keeps two patterns: an output is on in the on-period, in the off-period, in both
     * (steadily on) or in neither. The library keeps both patterns of every board in shared state,
     * as they were last asked for by any process and whether or not the board accepted them;
     * opening or closing a board neither sends nor clears them. They are all zero when the library
     * comes into use, and are forgotten when no process uses it any more.
     */
    /// @{

    /**
     * @brief Switches every output steadily on or off.
     * @param outputs  5 bytes in the layout of usbOutput: 1 switches on, 0 off.
     * @return 1 once the board has accepted the change, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: outputs is null; nothing sent or changed
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new values; the same call sends them
     *   again.
     * @par Threads and processes
     *   Waits for the locks of both output patterns as long as it takes, and holds them for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOutputs(unsigned char* outputs);

    /**
     * @brief Switches one output steadily on or off; all others keep their state, whoever set them.
     * @param outputBit  Output 0 to 37: bit n % 8 of byte n / 8 of a usbOutput.
     * @param value      1 switches on, 0 switches off.
     * @return 1 once the board has accepted the change, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: outputBit above 37, or value above 1; nothing sent or changed
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new value; the same call sends it again.
     * @par Threads and processes
     *   Waits for the locks of both output patterns as long as it takes, and holds them for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOutputBit(_usbOutputBitId outputBit, unsigned int value);

    /**
     * @brief Switches some outputs steadily off and some steadily on; all others keep their state.
     * @param off  A set bit switches the output off, also one that is set in on.
     * @param on   A set bit switches the output on.
     * @return 1 once the board has accepted the change, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: on or off is null; nothing sent or changed
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new values; the same call sends them
     *   again. The board gets both masks as given: what it makes of a bit set in both is its own.
     * @par Threads and processes
     *   Waits for the locks of both output patterns as long as it takes, and holds them for one
     *   exchange: the board gets the changes of all processes in the order of the locks.
     * @note Models: K40, K44, K50.
     */
    int ModifyOutputs(usbOutput* off, usbOutput* on);

    /**
     * @brief Replaces the whole on-period pattern: the outputs that are on during the on-period.
     * @param pattern  A set bit is on; bits 6 and 7 of byte 4 are sent as given.
     * @return 1 once the board has accepted the pattern, else 0 with GetLastError():
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new pattern.
     * @par Threads and processes
     *   Waits for the lock of the on-period patterns as long as it takes, and holds it for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOnPeriodOutputs(usbOutput pattern);

    /**
     * @brief Replaces the whole off-period pattern: the outputs that are on during the off-period.
     * @param pattern  A set bit is on; bits 6 and 7 of byte 4 are sent as given.
     * @return 1 once the board has accepted the pattern, else 0 with GetLastError():
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new pattern.
     * @par Threads and processes
     *   Waits for the lock of the off-period patterns as long as it takes, and holds it for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOffPeriodOutputs(usbOutput pattern);

    /**
     * @brief Switches one output on or off in the on-period pattern; sends the whole pattern with
     *   every bit that any process set before.
     * @param outputByte  Byte 0 to 4 of the pattern.
     * @param bit         Bit 0 to 7 of it, 0 to 5 in byte 4.
     * @param value       1 switches on, 0 switches off.
     * @return 1 once the board has accepted the pattern, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: outputByte, bit or value out of range; nothing sent or changed
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new value; the same call sends it again.
     * @par Threads and processes
     *   Waits for the lock of the on-period patterns as long as it takes, and holds it for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOnPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value);

    /**
     * @brief Switches one output on or off in the off-period pattern; sends the whole pattern with
     *   every bit that any process set before.
     * @param outputByte  Byte 0 to 4 of the pattern.
     * @param bit         Bit 0 to 7 of it, 0 to 5 in byte 4.
     * @param value       1 switches on, 0 switches off.
     * @return 1 once the board has accepted the pattern, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: outputByte, bit or value out of range; nothing sent or changed
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared output state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG: the exchange failed
     *   - any other value: the status that the board answered
     *   After a failed exchange the shared state keeps the new value; the same call sends it again.
     * @par Threads and processes
     *   Waits for the lock of the off-period patterns as long as it takes, and holds it for one
     *   exchange.
     * @note Models: K40, K44, K50.
     */
    int SetOffPeriodOutputBit(_usbOutputId outputByte, int bit, unsigned int value);

    /**
     * @brief Sets the brightness of the lamps.
     * @param level  0 to 10; the scale is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: level above 10
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetOutputBrightness(unsigned char level);

    /**
     * @brief Pulses one output on; the patterns in shared state do not change.
     * @param output      Output 0 to 31.
     * @param pulseValue  The pulse, in a unit that is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: output above 31
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int PulseOutput(unsigned char output, unsigned char pulseValue);

    /**
     * @brief Pulses one output off; the patterns in shared state do not change.
     * @param output      Output 0 to 31.
     * @param pulseValue  The pulse, in a unit that is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: output above 31
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int PulseOffOutput(unsigned char output, unsigned char pulseValue);

    /**
     * @brief Reads the result of output pulses: three bytes whose meaning is the board's.
     * @param result0  Receives the first byte.
     * @param result1  Receives the second byte, 0 to 255.
     * @param result2  Receives the third byte, 0 to 255.
     * @return 1 once the result is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: a pointer is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int PulseOutputResult(unsigned char* result0, unsigned int* result1, unsigned int* result2);

    /// @}

    /**
     * @name Pulsed inputs and parallel hoppers
     *
     * The board counts pulses and pays out coins by itself; checks, counters and releases are its
     * state, and go on when a program dies. The library keeps only which inputs are configured: per
     * opening of a board, until it is closed.
     *
     * No operation is repeated or undone, so a program that deals in coins writes down, where a
     * crash does not reach it (battery-backed SRAM, in one exchange), what it is about to do, and
     * after a restart, or a failed exchange, compares that with what the board says.
     *
     * A byte that the board did not send reads as 0, in these operations as in all others: believe a
     * counter that has fallen, or a hopper that paid nothing, only when a second look says the same.
     *
     * Coins in: ConfigurePulsedInput, BeginPulsedInputCheck, then ReadPulsedInputCounter again and
     * again. The counter is one byte: it counts modulo 256 (or stops at 255, as simulated boards'
     * do), so look before another 255 coins have come. Write down the new credit and how much of
     * the counter it covers, both in one write: what the counter shows beyond that note is new,
     * wherever the program was killed. So coins need not be taken off the counter. Where they are,
     * it is after that write, one at a time: DecrementPulsedInputCounter, then write down the note
     * less 1. After a crash a counter that is 1 below its note tells that the decrement was done,
     * and one that equals it that it was not, as long as no coin can have come meanwhile; else the
     * two cannot be told apart. ResetPulsedInputCounter loses a coin that was counted since the
     * counter was read: only while none passes. examples/cabinet is exact with coins coming at any
     * time: it lets the counter run, and empties it only where a counter far below its note can
     * mean nothing else. A board that lost power has forgotten counter and check: read the counter
     * between configuring and beginning, while it counts nothing yet, and take one below its note
     * for new.
     *
     * Coins out: the count of GetParallelHopperStatus is one byte as well, about the latest
     * release: release 255 coins at most at a time. Write down what is owed. Release 0 coins, write
     * down that nothing of this payout has been taken off yet, then release the real number; take
     * off what is owed what the count exceeds the note by, and write down both in one write. A
     * count below the note takes nothing off: it is that of the release of 0, before its note was
     * written. After a restart first take off what the count exceeds the note by, and wait until
     * the payout has ended; only then release anything. A crash between any two steps then pays
     * nothing twice. A status that could not be read says nothing about the payout, which goes on:
     * read it again, and begin no other one before the board says that it has ended. What the bytes
     * mean, and whether a release of 0 resets the count, is the firmware's; on simulated boards it
     * does.
     */
    /// @{

    /**
     * @brief Configures the pulse detection of an input, with 0 as extended parameter.
     * @param input           Input 0 to 32; checks and counters exist for 0 to 23 only.
     * @param pulseParameter  Pulse detection; the meaning is the board's.
     * @param activeState     Active level; the low byte is sent, its meaning is the board's.
     * @return 1 once the board has accepted it and the input counts as configured, else 0 with
     *   GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: K44 or K50 and input above 32
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed;
     *     what was configured before stays so
     * @note Models: K40, K44, K50. A K40 gets no extended parameter, and its input is not checked:
     *   the low byte is sent, and a value above 32 configures nothing for the library.
     */
    int ConfigurePulsedInput(_usbInputBitId input, unsigned char pulseParameter,
                             ActiveState activeState);

    /**
     * @brief Configures the pulse detection of an input.
     * @param input                   Input 0 to 32; checks and counters exist for 0 to 23 only.
     * @param pulseParameter          Pulse detection; the meaning is the board's.
     * @param extendedPulseParameter  Pulse detection; the meaning is the board's.
     * @param activeState             Active level; the low byte is sent, its meaning is the
     *   board's.
     * @return 1 once the board has accepted it and the input counts as configured, else 0 with
     *   GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_OUT_OF_RANGE: input above 32
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed;
     *     what was configured before stays so
     * @note Models: K44, K50.
     */
    int ConfigurePulsedInputEx(_usbInputBitId input, unsigned char pulseParameter,
                               unsigned char extendedPulseParameter, ActiveState activeState);

    /**
     * @brief Has the board begin to check a pulsed input for pulses.
     * @param input  Input 0 to 23, configured as a pulsed input.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_NOT_CONFIGURED: the input is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int BeginPulsedInputCheck(_usbInputBitId input);

    /**
     * @brief Has the board end its check of a pulsed input.
     * @param input  Input 0 to 23, configured as a pulsed input.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_NOT_CONFIGURED: the input is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int EndPulsedInputCheck(_usbInputBitId input);

    /**
     * @brief Resets the board's pulse counter of an input, and with it what was counted since it was
     *   read.
     * @param input  Input 0 to 23, configured as a pulsed input.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_NOT_CONFIGURED: the input is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ResetPulsedInputCounter(_usbInputBitId input);

    /**
     * @brief Decrements the board's pulse counter of an input.
     * @param input  Input 0 to 23, configured as a pulsed input.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_NOT_CONFIGURED: the input is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int DecrementPulsedInputCounter(_usbInputBitId input);

    /**
     * @brief Reads the board's pulse counter of an input.
     * @param input  Input 0 to 23, configured as a pulsed input.
     * @param count  Receives the counter; its unit is the board's.
     * @return 1 once the counter is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: count is null
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_NOT_CONFIGURED: the input is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ReadPulsedInputCounter(_usbInputBitId input, unsigned char* count);

    /**
     * @brief Tells whether the board's status of a pulsed input is 4, and its count.
     * @param input   Input 0 to 23; it need not be configured.
     * @param status  Receives 1 when the board's status is 4, else 0; 0 also after a failure,
     *   unless no board is open.
     * @param count   Receives the board's count byte, whose meaning is the board's.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: status or count is null
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetPulsedInputStatus(_usbInputBitId input, unsigned int* status, unsigned char* count);

    /**
     * @brief Has the board pay coins from a parallel hopper, with 0 as extended parameter.
     *
     * Returns when the board has accepted the order; GetParallelHopperStatus follows it. Neither
     * needs nor makes a configured input.
     * @param input             Input 0 to 32 on which the hopper reports its coins.
     * @param pulseParameter    Pulse detection; the meaning is the board's.
     * @param activeState       Active level; the low byte is sent, its meaning is the board's.
     * @param releaseOutput     Output 0 to 37 that the board drives for the release.
     * @param coinCount         Coins to release, 0 to 65535.
     * @param releaseParameter  How to release; the meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: K44 or K50 and input above 32 or releaseOutput above 37
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed;
     *     whether coins are paid is then for the board to tell
     * @note Models: K40, K44, K50. A K40 gets no extended parameter, and its input and output are
     *   not checked: their low bytes are sent.
     */
    int ReleaseParallelHopperCoins(_usbInputBitId input, unsigned char pulseParameter,
                                   ActiveState activeState, _usbOutputBitId releaseOutput,
                                   unsigned short coinCount, unsigned char releaseParameter);

    /**
     * @brief Has the board pay coins from a parallel hopper.
     *
     * Returns when the board has accepted the order; GetParallelHopperStatus follows it. Neither
     * needs nor makes a configured input.
     * @param input                   Input 0 to 32 on which the hopper reports its coins.
     * @param pulseParameter          Pulse detection; the meaning is the board's.
     * @param extendedPulseParameter  Pulse detection; the meaning is the board's.
     * @param activeState             Active level; the low byte is sent, its meaning is the
     *   board's.
     * @param releaseOutput           Output 0 to 37 that the board drives for the release.
     * @param coinCount               Coins to release, 0 to 65535.
     * @param releaseParameter        How to release; the meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_OUT_OF_RANGE: input above 32, or releaseOutput above 37
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed;
     *     whether coins are paid is then for the board to tell
     * @note Models: K44, K50.
     */
    int ReleaseParallelHopperCoinsEx(_usbInputBitId input, unsigned char pulseParameter,
                                     unsigned char extendedPulseParameter, ActiveState activeState,
                                     _usbOutputBitId releaseOutput, unsigned short coinCount,
                                     unsigned char releaseParameter);

    /**
     * @brief Reads how the hopper on an input stands.
     * @param input   Input 0 to 23; it need not be configured. A release on inputs 24 to 32 cannot
     *   be followed.
     * @param status  Receives the board's status byte, 0 to 255, whose meaning is the board's.
     * @param count   Receives the board's count byte, whose meaning is the board's.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: count or status is null
     *   - USB_ERR_OUT_OF_RANGE: input above 23
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetParallelHopperStatus(_usbInputBitId input, ReleaseHopperCoinsStatus* status,
                                unsigned char* count);

    /**
     * @brief Has the board stop the release of coins from the hopper on an input.
     * @param input  Input 0 to 32.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_OUT_OF_RANGE: input above 32
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int StopHopperCoinRelease(_usbInputBitId input);

    /// @}

    /// @name Input recording and diagnostic data
    /// @{

    /**
     * @brief Tells the board which inputs to record, and into which area of its memory.
     *
     * Up to address 196607 ReadLargeSRAM reads the area at the same address. From 196608 on the
     * area's 16 KB page is counted on (13, 14, ...), while the SRAM operations leave out pages 13 to
     * 15: addresses 196608 to 245759 name the pages of the board's own program, which a recording
     * there overwrites, and from 245760 on ReadLargeSRAM finds the area 49152 lower.
     * @param inputs      4 slots, each an input 0 to 23 or USB_INPUT_NONE, at least one an input.
     * @param address     First byte of the area in the board's memory, 0 to 475134.
     * @param areaLength  Bytes of the area; address + areaLength is at most 475134.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: inputs is null
     *   - USB_ERR_OUT_OF_RANGE: a slot holds another value, or none holds an input
     *   - USB_ERR_OUT_OF_RANGE: address, or address + areaLength, above 475134
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50, with the same limit.
     */
    int ConfigureRecordingInputs(_usbInputBitId* inputs, unsigned long address,
                                 unsigned short areaLength);

    /**
     * @brief Starts the recording of the configured inputs.
     * @param recordingParameter  10 to 15000; the meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_OUT_OF_RANGE: recordingParameter below 10 or above 15000
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int StartRecordingInputs(unsigned short recordingParameter);

    /**
     * @brief Reads how the recording stands; the meaning of all three values is the board's.
     * @param status       Receives the board's status byte, 0 to 255.
     * @param firstValue   Receives the first 16-bit value.
     * @param secondValue  Receives the second 16-bit value.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: a pointer is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int GetRecordingStatus(RecordingStatus* status, unsigned short* firstValue,
                           unsigned short* secondValue);

    /**
     * @brief Sends a diagnostic request and reads the answer; both are the board's.
     * @param request        The requestLength bytes to send; not null, even when there are none.
     * @param requestLength  Bytes of the request, sent in one command; the library sets no limit.
     * @param reply          Room for 256 bytes, the longest reply.
     * @param replyLength    Receives the number of bytes written to reply, 0 to 256.
     * @return 1 once the answer is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: reply, request or replyLength is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int ReadDiagnosticData(unsigned char* request, unsigned long requestLength,
                           unsigned char* reply, unsigned long* replyLength);

    /**
     * @brief Sends diagnostic data, whose meaning is the board's.
     * @param diagnosticData  The dataLength bytes to send; not null, even when there are none.
     * @param dataLength      Bytes to send, in one command; the library sets no limit.
     * @return 1 once the board has accepted them, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: diagnosticData is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int WriteDiagnosticData(unsigned char* diagnosticData, unsigned long dataLength);

    /// @}

    /**
     * @name Reels
     *
     * Reels 0 to 2 are run by the board; the meaning of all settings and status values is the
     * board's. The library keeps which reels are configured: per opening of a board, until it is
     * closed.
     */
    /// @{

    /**
     * @brief Configures reels as ConfigureReelsEx does, with an 8-bit configWord.
     * @param reelCount   Number of reels, 0 to 3: reels 0 to reelCount - 1.
     * @param configWord  Low byte of the board's setting; the high byte is sent as 0.
     * @param configByte  The board's setting.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: reelCount above 3
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed;
     *     what was configured before stays so
     * @note Models: K40, K44, K50.
     */
    int ConfigureReels(unsigned char reelCount, unsigned char configWord, unsigned char configByte);

    /**
     * @brief Tells the board how many reels are fitted and how, and marks them as configured.
     *
     * A later call with fewer reels leaves the others marked.
     * @param reelCount   Number of reels, 0 to 3: reels 0 to reelCount - 1.
     * @param configWord  The board's setting.
     * @param configByte  The board's setting.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: reelCount above 3
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed;
     *     what was configured before stays so
     * @note Models: K40, K44, K50.
     */
    int ConfigureReelsEx(unsigned char reelCount, unsigned short configWord,
                         unsigned char configByte);

    /**
     * @brief Spins one reel.
     * @param reel         Reel 0 to 2, configured.
     * @param spinSetting  -2 to 2 as a byte: 0, 1, 2, 254 or 255; the meaning is the board's.
     * @param spinValue    The board's value.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: spinSetting 3 to 253
     *   - USB_ERR_NOT_CONFIGURED: the reel is not configured, or above 2
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SpinReels(unsigned char reel, unsigned char spinSetting, unsigned short spinValue);

    /**
     * @brief Sets the ramp with which a reel speeds up.
     * @param reel   Reel 0 to 2; it need not be configured.
     * @param table  The ramp; the first table.length steps are sent.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_BAD_REEL: reel above 2
     *   - USB_ERR_OUT_OF_RANGE: table.length above 60
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SpinRampUp(unsigned char reel, usbRampTable table);

    /**
     * @brief Sets the ramp with which a reel slows down.
     * @param reel   Reel 0 to 2; it need not be configured.
     * @param table  The ramp; the first table.length steps are sent.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_BAD_REEL: reel above 2
     *   - USB_ERR_OUT_OF_RANGE: table.length above 60
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SpinRampDown(unsigned char reel, usbRampTable table);

    /**
     * @brief Sets the duty cycle of the reels; the meaning of the three bytes is the board's.
     * @param duty1  First byte.
     * @param duty2  Second byte.
     * @param duty3  Third byte.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetDutyCycle(unsigned char duty1, unsigned char duty2, unsigned char duty3);

    /**
     * @brief Reads the status of all reels, with only the low byte of each 16-bit value.
     * @param status  Receives the status.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: status is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetReelStatus(usbReelStatus* status);

    /**
     * @brief Reads the status of all reels.
     * @param status  Receives the status.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: status is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetReelStatusEx(ReelStatusEx* status);

    /**
     * @brief Switches the synchronisation of the reels.
     * @param enable  Sent unchanged; the meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ReelSynchroniseEnable(unsigned char enable);

    /// @}

    /**
     * @name Serial ports
     *
     * A port counts as configured from the first SetConfig that succeeds for it until the board is
     * closed, per opening of a board. Callers that use one port at once interleave their commands;
     * a long transfer takes several.
     */
    /// @{

    /**
     * @brief Sets a serial port's line parameters and makes it usable; may be called again.
     * @param port  Port 0 or 1.
     * @param dcb   Rate, flags and parity; only read.
     * @param type  Port type 0 to 3; the meaning is the board's.
     * @return 1 once the board has accepted it and the port is configured, else 0 with
     *   GetLastError():
     *   - USB_ERR_NULL_POINTER: dcb is null
     *   - USB_ERR_BAD_PORT_TYPE: type negative or above 3
     *   - USB_ERR_BAD_PORT_TYPE: parity 5 with a type other than 0
     *   - USB_ERR_BAD_PORT_TYPE: port neither 0 nor 1
     *   - USB_ERR_BAD_BAUD_RATE: a rate that the port does not have
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     *   After a failure a port that was configured stays so.
     * @note Models: K40, K44, K50.
     */
    int SetConfig(_usbSerialPort port, _DCB* dcb, _usbPortType type);

    /**
     * @brief Sends bytes through a serial port.
     * @param port    Port 0 or 1, configured.
     * @param data    The bytes; not null, even when there are none.
     * @param length  Number of bytes, any; 0 sends nothing and succeeds. One command takes 252 at
     *   480 Mbit/s and 60 at 12 Mbit/s.
     * @return 1 once the board has accepted all bytes, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     the bytes of the commands before it are sent
     * @note Models: K40, K44, K50.
     */
    int Send(_usbSerialPort port, unsigned char* data, unsigned int length);

    /**
     * @brief Reads all that a serial port has received, however much; prefer ReceiveEx.
     *
     * Asks until the board has no more, while the line may go on delivering.
     * @param port    Port 0 or 1, configured.
     * @param buffer  Room for all that is pending: nothing bounds what is written.
     * @param length  Receives the number of bytes; 0 when there are none.
     * @return 1 once the board has no more, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: length or buffer is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     buffer and *length hold what came before it
     * @note Models: K40, K44, K50.
     */
    int Receive(_usbSerialPort port, unsigned char* buffer, unsigned long* length);

    /**
     * @brief Reads what a serial port has received into a buffer of known size; loses nothing.
     *
     * Asks until the board has no more or less room is left than one reply may need. Call it again
     * until *length is 0.
     * @param port      Port 0 or 1, configured.
     * @param buffer    Room for capacity bytes; never written past them.
     * @param capacity  Bytes of the buffer, at least one reply: 62 on a K40, 256 on a K44 or K50.
     * @param length    Receives the number of bytes; 0 when there are none.
     * @return 1 once it has stopped so, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: length or buffer is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_OUT_OF_RANGE: capacity below one reply
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     buffer and *length hold what came before it
     * @note Models: K40, K44, K50.
     */
    int ReceiveEx(_usbSerialPort port, unsigned char* buffer, unsigned long capacity,
                  unsigned long* length);

    /**
     * @brief Takes the next received byte with the board's timestamp.
     *
     * Bytes are fetched from the board into shared state and handed out one by one, to whichever
     * process asks. A board has one such store: what was fetched from one port, or by the 9-bit
     * form, goes to the next call of either form for either port. Use one port in one form.
     * @param port       Port 0 or 1, configured.
     * @param data       Receives the byte when *received is 1.
     * @param timestamp  Receives the timestamp of the byte, or one that came alone; its unit is the
     *   board's. Unchanged when the last byte of a fetch came without one.
     * @param received   Receives 1 with a byte; 0 with a timestamp alone, or if none came.
     * @return 1 also when no byte came, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: data, timestamp or received is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared receive state
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the fetch failed
     * @par Threads and processes
     *   Waits for the one lock of all boards' stores as long as it takes, and holds it for at most
     *   one exchange: no byte is handed out twice. A process that is killed loses at most the
     *   record that it was taking, or what its fetch brought.
     * @note Models: K40, K44, K50.
     */
    int ReceiveByteWithTimestamp(_usbSerialPort port, unsigned char* data, unsigned char* timestamp,
                                 unsigned int* received);

    /**
     * @brief Sends 9-bit characters through a serial port, as words of two bytes, high byte first.
     * @param port   Port 0 or 1, configured.
     * @param words  The words, all 16 bits of each are sent; not null, even when there are none.
     * @param count  Number of words, any; 0 sends nothing and succeeds. One command takes 126 at
     *   480 Mbit/s and 30 at 12 Mbit/s.
     * @return 1 once the board has accepted all words, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: words is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     the words of the commands before it are sent
     * @note Models: K40, K44, K50.
     */
    int Send9BitData(_usbSerialPort port, unsigned short* words, unsigned int count);

    /**
     * @brief Reads all 9-bit characters that a serial port has received, however many; prefer
     *   Receive9BitDataEx.
     *
     * Asks until the board has no more, while the line may go on delivering. Each pair of bytes
     * that the board sends is one word, high byte first.
     * @param port   Port 0 or 1, configured.
     * @param words  Room for all that is pending: nothing bounds what is written. An odd last byte
     *   is stored behind the last word and not counted.
     * @param count  Receives the number of words; 0 when there are none.
     * @return 1 once the board has no more, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: count or words is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     *count is 0, and what came before it is lost
     * @note Models: K40, K44, K50.
     */
    int Receive9BitData(_usbSerialPort port, unsigned short* words, unsigned long* count);

    /**
     * @brief Reads received 9-bit characters into a buffer of known size; loses nothing.
     *
     * Asks until the board has no more or less room is left than one reply may need. Each pair of
     * bytes that the board sends is one word, high byte first, over all replies. When it stops on
     * half a word before the board has no more, that byte opens the next receive of any kind on the
     * port, timestamped ones apart, until the board is closed. Call it again until *count is 0.
     * @param port      Port 0 or 1, configured.
     * @param words     Room for capacity words; never written past them. An odd last byte, when the
     *   board has no more, is stored behind the last word and not counted.
     * @param capacity  Words, not bytes, that the buffer holds, at least one reply: 31 on a K40,
     *   128 on a K44 or K50.
     * @param count     Receives the number of words; 0 when there are none.
     * @return 1 once it has stopped so, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: count or words is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_OUT_OF_RANGE: capacity below one reply
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     words and *count hold the whole words that came before it
     * @note Models: K40, K44, K50.
     */
    int Receive9BitDataEx(_usbSerialPort port, unsigned short* words, unsigned long capacity,
                          unsigned long* count);

    /**
     * @brief Takes the next received 9-bit character with the board's timestamp.
     *
     * Records of three bytes (character high byte first, timestamp) are fetched from the board into
     * shared state and handed out one by one, to whichever process asks. A board has one such
     * store: what was fetched from one port, or by the 8-bit form, goes to the next call of either
     * form for either port. Use one port in one form.
     * @param port       Port 0 or 1, configured.
     * @param data       Receives the character when *received is 1; its low byte is 0 when a fetch
     *   ended after the high byte.
     * @param timestamp  Receives the timestamp of the character, or one that came alone; its unit
     *   is the board's. Unchanged when the last character of a fetch came without one.
     * @param received   Receives 1 with a character; 0 with a timestamp alone, or if none came.
     * @return 1 also when no character came, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: data, timestamp or received is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared receive state
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the fetch failed
     * @par Threads and processes
     *   Waits for the one lock of all boards' stores as long as it takes, and holds it for at most
     *   one exchange: no character is handed out twice. A process that is killed loses at most the
     *   record that it was taking, or what its fetch brought.
     * @note Models: K40, K44, K50.
     */
    int ReceiveByteWithTimestamp9BitData(_usbSerialPort port, unsigned short* data,
                                         unsigned char* timestamp, unsigned int* received);

    /**
     * @brief Reads the board's count of parity errors on a serial port.
     * @param port   Port 0 or 1, configured.
     * @param count  Receives the count.
     * @return 1 once the count is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: count is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetParityErrors(_usbSerialPort port, unsigned short* count);

    /// @}

    /**
     * @name Polled-message protocols
     *
     * The board sends configured messages on a port by itself and keeps the answers in four
     * buffers per port, index 0 to 3, for the application to read. When it polls, how it matches
     * answers, and what its times and statuses mean, is the board's.
     */
    /// @{

    /**
     * @brief Has the board poll a ccTalk device: configures one indexed message pair.
     * @param port    Port 0 or 1, configured.
     * @param config  The messages and settings. Only TimeMs is written: a value above 2550 becomes
     *   2550, also when the exchange then fails.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: config is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_OUT_OF_RANGE: a message above 25 bytes (more than 20 data bytes)
     *   - USB_ERR_OUT_OF_RANGE: Index above 3, Option above 4 or Mode above 3
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ConfigureCCTalkPort(_usbSerialPort port, CCTalkConfig* config);

    /**
     * @brief Has the board poll a device of any framing: configures one indexed message pair.
     * @param port    Port 0 or 1, configured.
     * @param config  The messages and settings. Only TimeMs is written: a value above 2550 becomes
     *   2550, also when the exchange then fails.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: config is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_OUT_OF_RANGE: LengthOffset above 24, or a message above 25 bytes
     *   - USB_ERR_OUT_OF_RANGE: Index above 3, Option above 4 or Mode above 3
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ConfigureRS232Poll(_usbSerialPort port, RS232PollConfig* config);

    /**
     * @brief Sets the board's host time-out for one index; its effect is the board's.
     * @param port     Port 0 or 1, configured.
     * @param index    Message index 0 to 3.
     * @param seconds  0 to 25.5, sent in units of 0.1 s; a fraction of a unit is dropped.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: seconds below 0, above 25.5 or not a number, or index above 3
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetPolledHostTimeout(_usbSerialPort port, unsigned char index, double seconds);

    /**
     * @brief Empties the board's message buffer of one index.
     * @param port   Port 0 or 1, configured.
     * @param index  Message index 0 to 3.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: index above 3
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int EmptyPolledBuffer(_usbSerialPort port, unsigned char index);

    /**
     * @brief Reads one whole polled message, however long; prefer ReceivePolledMessageEx.
     *
     * Asks until the board says that the message is complete, or a reply has less than two bytes. A
     * board that says for ever that more comes holds the caller for ever.
     * @param port    Port 0 or 1, configured.
     * @param index   Message index 0 to 3.
     * @param buffer  Room for the whole message: nothing bounds what is written.
     * @param length  Receives the number of message bytes.
     * @param status  Receives the board's status byte of the last reply, 0 to 255, whose meaning is
     *   the board's; an empty reply leaves it as it was.
     * @return 1 once the message is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: length, buffer or status is null
     *   - USB_ERR_OUT_OF_RANGE: index above 3
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     buffer, *length and *status hold what came before it
     * @par Threads and processes
     *   A second caller on the same port and index takes part of the message.
     * @note Models: K40, K44, K50.
     */
    int ReceivePolledMessage(_usbSerialPort port, unsigned char index, unsigned char* buffer,
                             unsigned long* length, unsigned int* status);

    /**
     * @brief Reads one whole polled message into a buffer of known size.
     *
     * Asks until the board says that the message is complete, or a reply has less than two bytes.
     * @param port      Port 0 or 1, configured.
     * @param index     Message index 0 to 3.
     * @param buffer    Room for capacity bytes; never written past them.
     * @param capacity  Bytes of the buffer, any number. One reply brings up to 60 on a K40 and 254
     *   on a K44 or K50.
     * @param length    Receives the number of message bytes.
     * @param status    Receives the board's status byte of the last reply, 0 to 255, whose meaning
     *   is the board's; an empty reply leaves it as it was.
     * @return 1 once the message is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: length, buffer or status is null
     *   - USB_ERR_OUT_OF_RANGE: index above 3
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     buffer, *length and *status hold what came before it
     *   - USB_ERR_DATA_TOO_LONG: a reply did not fit and is lost; buffer and *length hold what came
     *     before it
     *   - USB_ERR_TRANSFER_FAILED: eight replies in a row said that more comes and brought nothing;
     *     buffer and *length hold what came before them
     * @par Threads and processes
     *   A second caller on the same port and index takes part of the message.
     * @note Models: K40, K44, K50.
     */
    int ReceivePolledMessageEx(_usbSerialPort port, unsigned char index, unsigned char* buffer,
                               unsigned long capacity, unsigned long* length, unsigned int* status);

    /**
     * @brief Deletes the polled message of one index on the board.
     * @param port   Port 0 or 1, configured.
     * @param index  Message index 0 to 3.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: index above 3
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int DeletePolledMessage(_usbSerialPort port, unsigned char index);

    /**
     * @brief Stores a message that the board ties to a time-out on a port.
     * @param port     Port 0 or 1, configured.
     * @param message  The bytes; not null, even when there are none.
     * @param length   Number of bytes, 0 to 60.
     * @param seconds  0 to below 7.65, sent in units of 30 ms; a fraction of a unit is dropped. The
     *   float 7.65f is slightly more than 7.65 and is refused. A float that is meant for a multiple
     *   of 30 ms may lie just below it and loses a whole unit (0.03f sends 0, 0.06f sends 1): add
     *   half a unit, 0.015f.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_DATA_TOO_LONG: length above 60
     *   - USB_ERR_OUT_OF_RANGE: seconds below 0, above 7.65 or not a number
     *   - USB_ERR_NULL_POINTER: message is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetTimeoutMessage(_usbSerialPort port, unsigned char* message, unsigned char length,
                          float seconds);

    /// @}

    /**
     * @name SAS
     *
     * The board answers a SAS host on a configured port by itself. With no board open these
     * operations fail with USB_ERR_NOT_SUPPORTED_K40.
     */
    /// @{

    /**
     * @brief Sets the machine's SAS address.
     * @param port     Port 0 or 1, configured.
     * @param address  0 to 127.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40, or no board is open
     *   - USB_ERR_OUT_OF_RANGE: address above 127
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int SetSASMachineAddress(_usbSerialPort port, unsigned char address);

    /**
     * @brief Controls the board's automatic reply to the SAS host.
     * @param port   Port 0 or 1, configured.
     * @param mode   Any value; the low byte is sent, its meaning is the board's.
     * @param value  Any value; the meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40, or no board is open
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int SetSASAutoReply(_usbSerialPort port, unsigned int mode, unsigned char value);

    /**
     * @brief Sets the busy form of the automatic reply: SetSASAutoReply with value 0.
     * @param port  Port 0 or 1, configured.
     * @param mode  Any value; the low byte is sent, its meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40, or no board is open
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int SetSASBusy(_usbSerialPort port, unsigned int mode);

    /**
     * @brief Reads the board's status of SAS message handling.
     * @param port    Port 0 or 1, configured.
     * @param status  Receives the board's status byte, 0 to 255, whose meaning is the board's.
     * @return 1 once the status is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40, or no board is open
     *   - USB_ERR_NULL_POINTER: status is null
     *   - USB_ERR_OUT_OF_RANGE: port neither 0 nor 1
     *   - USB_ERR_NOT_CONFIGURED: the port is not configured
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int GetSASMessageStatus(_usbSerialPort port, unsigned int* status);

    /// @}

    /**
     * @name EEPROM
     *
     * The part that each board carries is recorded in shared state under its device number, for
     * all processes and openings, until no process uses the library any more. One lock guards all
     * boards' records: it is held over every exchange of an operation, so a long transfer delays
     * the EEPROM operations of all processes on all boards.
     */
    /// @{

    /**
     * @brief Records which EEPROM part the board carries and tells the board; InitPort does this
     *   with the part it detects.
     * @param eeprom  Descriptor of the part; only read, not checked. The constants E24LC01 to
     *   E24LC512 are const: hand over a copy (K40EEPROM part = E24LC256;).
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: eeprom is null; nothing sent or recorded
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared EEPROM state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed;
     *     the descriptor stays recorded, and the same call tells it to the board again
     * @par Threads and processes
     *   Waits for the EEPROM lock as long as it takes, and holds it for one exchange.
     * @note Models: K40, K44, K50.
     */
    int ConfigureEEPROM(K40EEPROM* eeprom);

    /**
     * @brief Detects which EEPROM part the board carries, without writing to it; pass the result to
     *   ConfigureEEPROM.
     *
     * The size is found where addresses wrap around to 0: a part that holds its first 100 bytes
     * again at a smaller part's size is taken for that part, a blank one for E24LC32 or E24LC01. A
     * part that cannot be read as E24LC256 is probed as one with a single address byte. Until the
     * caller configures the result, E24LC256 or E24LC16 is recorded and in force.
     * @param eeprom  Receives the descriptor of the part.
     * @return 1 once the part is known, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: eeprom is null; nothing sent or recorded
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared EEPROM state; nothing sent
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange
     *     failed, or a read came back empty (6) or too long (7); E24LC256 or E24LC16 stays recorded
     * @par Threads and processes
     *   Takes the EEPROM lock step by step: EEPROM operations of others may come between, with the
     *   wrong part in force. Let no one else use the board's EEPROM meanwhile.
     * @note Models: K40, K44, K50.
     */
    int CheckEEPROM(K40EEPROM* eeprom);

    /**
     * @brief Reads bytes of the board's EEPROM.
     * @param address  First byte, from 8 on; 0 to 7 cannot be reached.
     * @param data     Room for length bytes; never written past them. Not null, even for none.
     * @param length   Number of bytes, 0 or more; address + length is at most the part's highest
     *   address, so its last byte cannot be reached.
     * @return 1 once all bytes are read, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: address 7 or less
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared EEPROM state
     *   - USB_ERR_OUT_OF_RANGE: address + length above the highest address of the part recorded;
     *     always when none is recorded
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED: an exchange failed, or a reply was empty
     *   - USB_ERR_DATA_TOO_LONG: a reply of impossible length, or longer than asked for
     *   - any other value: the status that the board answered
     *   After a failed exchange the bytes of the exchanges before it are in data.
     * @par Threads and processes
     *   Waits for the EEPROM lock as long as it takes, and holds it for all its exchanges, each of
     *   at most 58 bytes.
     * @note Models: K40, K44, K50.
     */
    int ReadEEPROM(unsigned short address, unsigned char* data, unsigned int length);

    /**
     * @brief Writes bytes to the board's EEPROM; nothing is read back.
     * @param address  First byte, from 8 on; 0 to 7 cannot be reached.
     * @param data     The length bytes; not null, even for none.
     * @param length   Number of bytes, 0 or more; address + length is at most the part's highest
     *   address, so its last byte cannot be reached.
     * @return 1 once the board has accepted all bytes, else 0 with GetLastError():
     *   - USB_ERR_OUT_OF_RANGE: address 7 or less
     *   - USB_ERR_NOT_CONFIGURED: this process has no shared EEPROM state
     *   - USB_ERR_OUT_OF_RANGE: address + length above the highest address of the part recorded;
     *     always when none is recorded
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     the bytes of the exchanges before it are written
     * @par Threads and processes
     *   Waits for the EEPROM lock as long as it takes, and holds it for all its exchanges, each of
     *   at most 57 bytes.
     * @note Models: K40, K44, K50.
     */
    int WriteEEPROM(unsigned short address, unsigned char* data, unsigned int length);

    /// @}

    /**
     * @name Battery-backed SRAM
     *
     * Addresses count bytes from 0. An address, and address + length, is at most 65535 on a K40,
     * 475134 on a K44 and 999422 on a K50, so the byte at the limit cannot be reached. Long
     * transfers take several exchanges, between which those of other callers may come.
     */
    /// @{

    /**
     * @brief Reads battery-backed memory from an address within the first 64 KB.
     * @param address  First byte.
     * @param data     Room for length bytes; never written past them. Not null, even for none.
     * @param length   Number of bytes; 0 sends nothing and succeeds.
     * @return 1 once all bytes are read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: K40 and address + length above 65535
     *   - USB_ERR_OUT_OF_RANGE: address + length above 475134 on a K44, 999422 on a K50
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED: an exchange failed, or a reply was empty
     *   - USB_ERR_DATA_TOO_LONG: a reply of impossible length, or longer than asked for
     *   - any other value: the status that the board answered
     *   After a failed exchange the bytes of the exchanges before it are in data.
     * @note Models: K40, K44, K50.
     */
    int ReadSRAM(unsigned short address, unsigned char* data, unsigned int length);

    /**
     * @brief Writes battery-backed memory from an address within the first 64 KB.
     * @param address  First byte.
     * @param data     The length bytes; not null, even for none.
     * @param length   Number of bytes; 0 sends nothing and succeeds.
     * @return 1 once the board has accepted all bytes, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: K40 and address + length above 65535
     *   - USB_ERR_OUT_OF_RANGE: address + length above 475134 on a K44, 999422 on a K50
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     the bytes of the exchanges before it are written
     * @note Models: K40, K44, K50. On a K44 or K50 whose firmware this opening has not found
     *   running (DownloadHiCode failed) the bytes go into the firmware's memory instead. On a K40
     *   the firmware is downloaded to addresses 0 to 15887 by the same command.
     */
    int WriteSRAM(unsigned short address, unsigned char* data, unsigned int length);

    /**
     * @brief Reads battery-backed memory from any address.
     * @param address  First byte.
     * @param data     Room for length bytes; never written past them. Not null, even for none.
     * @param length   Number of bytes; 0 sends nothing and succeeds.
     * @return 1 once all bytes are read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: K40 and address + length above 65535
     *   - USB_ERR_OUT_OF_RANGE: address, or address + length, above 475134 on a K44, 999422 on a
     *     K50
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED: an exchange failed, or a reply was empty
     *   - USB_ERR_DATA_TOO_LONG: a reply of impossible length, or longer than asked for
     *   - any other value: the status that the board answered
     *   After a failed exchange the bytes of the exchanges before it are in data.
     * @note Models: K40, K44, K50.
     */
    int ReadLargeSRAM(unsigned long address, unsigned char* data, unsigned long length);

    /**
     * @brief Writes battery-backed memory from any address.
     * @param address  First byte.
     * @param data     The length bytes; not null, even for none.
     * @param length   Number of bytes; only the low 32 bits count, before every check. 0 sends
     *   nothing and succeeds.
     * @return 1 once the board has accepted all bytes, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: K40 and address + length above 65535
     *   - USB_ERR_OUT_OF_RANGE: address, or address + length, above 475134 on a K44, 999422 on a
     *     K50
     *   - USB_ERR_NULL_POINTER: data is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: an exchange failed;
     *     the bytes of the exchanges before it are written
     * @note Models: K40, K44, K50. On a K44 or K50 whose firmware this opening has not found
     *   running (DownloadHiCode failed) the bytes go into the firmware's memory instead. On a K40
     *   the firmware is downloaded to addresses 0 to 15887 by the same command.
     */
    int WriteLargeSRAM(unsigned long address, unsigned char* data, unsigned long length);

    /// @}

    /**
     * @name Clock, battery and security switches
     *
     * Clock, log and flags are the board's. A clock value is a count of 32 bits whose unit and
     * start are the board's too.
     */
    /// @{

    /**
     * @brief Sets the board's clock.
     * @param time  The count; only its low 32 bits are sent.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetClock(unsigned long time);

    /**
     * @brief Reads the board's clock.
     * @param time  Receives the count, 0 to 4294967295.
     * @return 1 once the clock is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: time is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetClock(unsigned long* time);

    /**
     * @brief Begins a pass over the board's security-switch log, for NextSecuritySwitchRead.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @par Threads and processes
     *   The place in the log is the board's: all callers of all processes share it.
     * @note Models: K40, K44, K50.
     */
    int StartSecuritySwitchRead();

    /**
     * @brief Reads the next entry of the security-switch log.
     *
     * How the board shows the end of the log is its own.
     * @param time      Receives the clock value of the entry, 0 to 4294967295.
     * @param switches  Receives the switch byte of the entry, whose meaning is the board's.
     * @return 1 once the entry is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: time or switches is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @par Threads and processes
     *   The place in the log is the board's: all callers of all processes share it.
     * @note Models: K40, K44, K50.
     */
    int NextSecuritySwitchRead(unsigned long* time, unsigned char* switches);

    /**
     * @brief Empties the security-switch log.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ClearSecuritySwitches();

    /**
     * @brief Reads the two bytes of security-switch flags; the board resets them as it answers.
     * @param flags0  Receives the first byte, whose meaning is the board's.
     * @param flags1  Receives the second byte, whose meaning is the board's.
     * @return 1 once the flags are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: flags0 or flags1 is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int ReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1);

    /**
     * @brief Reads the two bytes of cached security-switch flags; the board resets them as it
     *   answers.
     *
     * How they differ from those of ReadAndResetSecuritySwitchFlags is the board's.
     * @param flags0  Receives the first byte, whose meaning is the board's.
     * @param flags1  Receives the second byte, whose meaning is the board's.
     * @return 1 once the flags are read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: flags0 or flags1 is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int CachedReadAndResetSecuritySwitchFlags(unsigned char* flags0, unsigned char* flags1);

    /**
     * @brief Reads the battery-failure flag; the board resets it as it answers.
     * @param flag  Receives the flag byte.
     * @return 1 once the flag is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: flag is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int ReadAndResetBatteryFailFlag(unsigned char* flag);

    /**
     * @brief Reads the failure flag of the real-time clock; the board resets it as it answers.
     * @param flag  Receives the flag byte.
     * @return 1 once the flag is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NOT_SUPPORTED_K44: the board is a K44
     *   - USB_ERR_NULL_POINTER: flag is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K50.
     */
    int ReadAndResetRTCFailure(unsigned char* flag);

    /**
     * @brief Reads the clock value that the board kept when its battery failed.
     * @param time  Receives the count, 0 to 4294967295.
     * @return 1 once the value is read, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NOT_SUPPORTED_K44: the board is a K44
     *   - USB_ERR_NULL_POINTER: time is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K50.
     */
    int ReadClockAtBatteryFailure(unsigned long* time);

    /// @}

    /// @name Identity, random numbers, SPI and SEC
    /// @{

    /**
     * @brief Reads the version of the board's 8051 firmware.
     * @param version  Room for 256 bytes (62 on a K40). Receives as many bytes as the board sends;
     *   their number is not told, so clear the buffer before.
     * @return 1 once the version is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: version is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int Get8051Version(unsigned char* version);

    /**
     * @brief Reads the version of the board's PIC microcontroller.
     * @param version  Room for 256 bytes (62 on a K40). Receives as many bytes as the board sends;
     *   their number is not told, so clear the buffer before.
     * @return 1 once the version is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: version is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetPICVersion(unsigned char* version);

    /**
     * @brief Reads the serial number that the board's PIC microcontroller keeps.
     * @param serial  Room for 256 bytes (62 on a K40). Receives as many bytes as the board sends;
     *   their number is not told, so clear the buffer before.
     * @return 1 once the number is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: serial is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetPICSerialNumber(unsigned char* serial);

    /**
     * @brief Sets the serial number that the board's PIC microcontroller keeps.
     * @param serial  The 8 bytes of the number.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: serial is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SetPICSerialNumber(unsigned char* serial);

    /**
     * @brief Reads the board's Dallas 1-Wire serial number and checks it.
     * @param serial  Room for 8 bytes: receives the number, its last byte the CRC. Bytes that the
     *   board did not send are 0.
     * @param valid   Receives 1 when 8 bytes came and their 1-Wire CRC-8 is right, else 0.
     * @return 1 once the number is read, right or not, else 0 with GetLastError():
     *   - USB_ERR_NOT_SUPPORTED_K40: the board is a K40
     *   - USB_ERR_NULL_POINTER: valid or serial is null
     *   - USB_ERR_TRANSFER_FAILED, board's status: the exchange failed
     * @note Models: K44, K50.
     */
    int GetDallasSerialNumber(unsigned char* serial, unsigned char* valid);

    /**
     * @brief Switches the board's hardware random-number generator on.
     * @param argument  Only its low 32 bits are sent; their meaning is the board's.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int EnableRandomNumberGenerator(unsigned long argument);

    /**
     * @brief Switches the board's hardware random-number generator off.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int DisableRandomNumberGenerator();

    /**
     * @brief Reads a random number from the board; whether the generator is on is not checked.
     * @param number  Receives the number, 0 to 65535.
     * @return 1 once the number is read, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: number is null
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int GetRandomNumber(unsigned short* number);

    /**
     * @brief Switches the board's SPI port on.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int EnableSPI();

    /**
     * @brief Switches the board's SPI port off.
     * @return 1 once the board has accepted it, else 0 with GetLastError():
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int DisableSPI();

    /**
     * @brief Sends bits through the SPI port and reads bits back; whether the port is on is not
     *   checked.
     * @param sendBits     Bits to send, 1 to 160.
     * @param data         (sendBits + 7) / 8 bytes.
     * @param control      Sent unchanged; the meaning is the board's.
     * @param receiveBits  Bits to read back, 0 to 160.
     * @param reply        Room for 256 bytes (62 on a K40). Receives as many bytes as the board
     *   sends; their number is not told.
     * @return 1 once the transfer is done, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: reply or data is null
     *   - USB_ERR_BAD_LENGTH: receiveBits above 160
     *   - USB_ERR_BAD_LENGTH: sendBits 0 or above 160
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SendSPI(unsigned char sendBits, unsigned char* data, unsigned char control,
                unsigned char receiveBits, unsigned char* reply);

    /**
     * @brief Sends a SEC frame through the SPI port and reads the answering frame.
     *
     * The frame is header1, header2, length, the data, and a checksum that the library adds: the
     * sum of all bytes before it, modulo 256. The answer is handed over as it came, its checksum
     * unchecked. Whether the SPI port is on is not checked.
     * @param header1      First byte; the meaning is the board's.
     * @param header2      Second byte; the meaning is the board's.
     * @param length       Data bytes, 0 to 16.
     * @param data         The length bytes; not null, even when there are none.
     * @param control      Sent unchanged; the meaning is the board's.
     * @param replyLength  Data bytes of the answer, 0 to 16; its frame has 4 more.
     * @param reply        Room for 256 bytes (62 on a K40). Receives as many bytes as the board
     *   sends; their number is not told.
     * @return 1 once the transfer is done, else 0 with GetLastError():
     *   - USB_ERR_NULL_POINTER: reply or data is null
     *   - USB_ERR_BAD_LENGTH: replyLength or length above 16
     *   - USB_ERR_TRANSFER_FAILED, USB_ERR_DATA_TOO_LONG, board's status: the exchange failed
     * @note Models: K40, K44, K50.
     */
    int SendSEC(unsigned char header1, unsigned char header2, unsigned char length,
                unsigned char* data, unsigned char control, unsigned char replyLength,
                unsigned char* reply);

    /// @}

private:
    KBaseImplementation* implementation;  //!< The open board, shared by copies; null: none.
};

#endif  // MARVANEUSB_H
