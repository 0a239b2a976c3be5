/**
 * @file marvaneusb_testing.h
 * @brief Boards inside a test program: what the library opens and talks to is a model of a board in
 *   the same process, with buttons, coins, hoppers, reels, faults and time in the test's hands.
 *
 * @code
 * marvaneusb::testing::Boards boards;
 * auto cabinet = boards.AddBoard(0, marvaneusb::testing::Model::kK44);
 * MarvaneUSB board;
 * board.InitPort(0);
 * cabinet.SetInput(5, true);  // somebody presses button 5
 * // ... what the program under test does ...
 * cabinet.Output(12);         // is its lamp on?
 * @endcode
 *
 * Link libmarvaneusb_testing (CMake: marvaneusb::testing) with the test program itself. From then
 * on the program's and the library's calls of open, fopen, ioctl, fcntl and close that concern
 * /dev/Kovar_<n> and /sys/class/Kovar reach these boards and never a real one, and the state that
 * the library's processes share is this program's, what it forks' and what it executes' alone. The
 * library itself is the one that is shipped, linked or loaded. What boards answer is told in
 * docs/simulator.md; docs/testing.md has a whole test to start from.
 *
 * @par Errors
 *   An argument that is wrong or out of its range throws std::invalid_argument, what the board's
 *   state does not allow std::runtime_error, and a device number without a board
 *   std::out_of_range, each with a sentence that names it and says what is right. Nothing has
 *   changed then.
 * @par Threads
 *   All functions may be called by any number of threads at once, also while others are in
 *   operations of the library.
 * @par Processes
 *   A child after fork() has copies of all boards, in the state of that moment; what parent and
 *   child do with theirs from then on does not reach the other. A program that is executed begins
 *   without boards.
 */
#ifndef MARVANEUSB_TESTING_H
#define MARVANEUSB_TESTING_H

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define MARVANEUSB_TESTING_API __attribute__((visibility("default")))
#else
#define MARVANEUSB_TESTING_API
#endif

namespace marvaneusb {
namespace testing {

using Bytes = std::vector<std::uint8_t>;

/** The values are the library's board type codes. */
enum class Model { kK40 = 1, kK44 = 2, kK50 = 3 };

/** What one sees of an output, pulses and hoppers that drive it included. */
enum class OutputState {
    kOff,
    kOn,
    kOnPeriod,   ///< blinks: lit in the first half of each period
    kOffPeriod,  ///< blinks: lit in the second half
};

/** One command as the library sent it. */
struct Exchange {
    int command;  ///< 0 to 255
    int channel;  ///< 1 to 7
    Bytes payload;

    friend bool operator==(const Exchange& one, const Exchange& other) {
        return one.command == other.command && one.channel == other.channel &&
               one.payload == other.payload;
    }
    friend bool operator!=(const Exchange& one, const Exchange& other) { return !(one == other); }
};
using Exchanges = std::vector<Exchange>;

/** As {command, channel, {bytes}}. */
MARVANEUSB_TESTING_API std::ostream& operator<<(std::ostream& out, const Exchange& exchange);

/** What becomes of an exchange that the test answers itself. */
struct Answer {
    /** An errno value: ioctl fails with it, and nothing else of the answer arrives. 0: none. */
    int error = 0;
    /** 0: accepted. On a K40 the lowest byte travels, with a sign. */
    int status = 0;
    /** At most 62 bytes arrive on a K40, and 256 on the others; what is beyond is cut off. */
    Bytes reply = {};
    /**
     * What the driver claims about the reply's length, instead of the truth: on a K40 the whole
     * readLength, which counts two bytes before the reply as well.
     */
    std::optional<std::uint64_t> claimedLength = {};
    /** The command that a K40's reply names, instead of the one that was sent. */
    std::optional<std::uint8_t> echo = {};
};

/** Answers one exchange; it must not throw. */
using Answerer = std::function<Answer(const Exchange&)>;

/** How a board is fitted. */
struct Fitting {
    Model model = Model::kK44;
    int speedMbit = 480;  ///< 12 or 480
    /** The board's program runs from power-up on, so that none is downloaded when it is opened. */
    bool firmwareRunning = true;
    int identity = 0;  ///< the identity switch, 0 to 7, which is inputs 24 to 26
    /** "24LC01" to "24LC512"; with ":blank" behind it, it holds nothing but 0xFF. */
    std::string eeprom = "24LC256";
    /** What hangs on the serial ports: "none", "loop", "cctalk", "polled" or "sas". */
    std::string serial0 = "none", serial1 = "none";
};

/** How a reel stands. */
struct ReelState {
    bool turning;
    int position;  ///< 0 to steps - 1
    int steps;     ///< of a revolution
};

/**
 * @brief One board and the cabinet around it, by its device number.
 *
 * Small, and copied freely. It is about whatever board Boards has under its number when a function
 * is called; where there is none, all functions throw std::out_of_range.
 *
 * Nothing moves by itself: coins fall, reels turn and pulses end as Boards::Advance lets time pass.
 */
class MARVANEUSB_TESTING_API Board {
public:
    int DeviceNo() const { return deviceNo; }

    // The cable

    /**
     * Takes the board off the bus: its node and its sysfs files vanish, and each descriptor that is
     * open on it answers ENODEV from now on, even after the board is back.
     * @throw std::runtime_error when it is unplugged already.
     */
    void Unplug();
    /**
     * Plugs it in again. It powers up: memory and EEPROM stay, its settings are gone.
     * @throw std::runtime_error when it is plugged in already.
     */
    void Plug();
    bool IsPlugged() const;

    // Faults. Each suffers the next `count` exchanges (1 to 1000000) of this board, behind those
    // that were asked for before. Exchanges that the test answers itself count for none.

    /** ioctl fails with this errno value, 1 to 133; the board hears nothing of the exchange. */
    void FailExchanges(int count, int error);
    /**
     * Answered with this status, -128 to 255 on a K40, any on the others; the board hears nothing.
     */
    void RefuseExchanges(int count, int status);
    /** The reply holds so many bytes at most: 0 to 62 on a K40, to 256 on the others. */
    void ShortenReplies(int count, int length);
    /** A K40's reply names another command. @throw std::runtime_error on other models. */
    void MixUpEchoes(int count);
    /** Forgets the faults that are still to come. */
    void StopFaults();

    // Inputs

    /** Holds input 0 to 32 at a level: true while a button is pressed. */
    void SetInput(int input, bool on);
    /**
     * Moves the contact of input 0 to 32 for less time than the board's filter lets through: only
     * the raw inputs show it, until the next SetInput.
     */
    void SetContact(int input, bool on);
    /** Sets a switch, 0 to 95, of the matrix that input multiplexing scans. */
    void SetMultiplexed(int number, bool on);
    /** Sets the identity switch, 0 to 7. */
    void SetIdentity(int identity);
    /**
     * `count` coins (1 to 1000) pass input 0 to 32, `perSecond` (1 to 100) a second, behind those
     * that are still to come. Each takes the input to its other level for half its time.
     * @throw std::runtime_error when more than 10000 would be on their way to the input.
     */
    void InsertCoins(int input, int count, int perSecond = 25);
    /** Those that have not passed input 0 to 32 yet. */
    int CoinsToCome(int input) const;

    // Outputs

    /** What one sees of output 0 to 37 now. */
    OutputState Output(int output) const;
    /** Of all lamps: 0, dark, to 10, full. */
    int Brightness() const;

    // Hoppers. Each input, 0 to 32, has one of its own, which pays while a release drives it.

    /** It holds so many coins, 0 to 65535; 500 at first. */
    void SetHopperCoins(int input, int coins);
    /** It pays so many coins a second, 1 to 25; 10 at first. */
    void SetHopperRate(int input, int coinsPerSecond);
    /** No coin falls while it is jammed. */
    void JamHopper(int input, bool jammed);
    /** Coins that it still holds. */
    int HopperCoins(int input) const;

    // Reels 0 to 2

    /** Turns a reel by hand; position 0 to its steps less 1. */
    void PlaceReel(int reel, int position);
    ReelState Reel(int reel) const;

    // The lines of serial ports 0 and 1. Times and rates do not matter: a byte is there at once.

    /** Hangs something else on the line: "none", "loop", "cctalk", "polled" or "sas". */
    void AttachSerial(int port, const std::string& what);
    /** 1 to 65536 bytes come over the line. A port that is not configured does not hear them. */
    void FeedSerial(int port, const Bytes& bytes);
    /**
     * What the board sent since the last call; a port of nine bits (type 1) has two bytes for each
     * word, the high one first. @throw std::runtime_error where something hangs on the line.
     */
    Bytes TakeSerial(int port);

    // Everything else

    /**
     * @brief Carries out the words of `marvane-sim ctl` that follow the board's number.
     * @param words  Such as "input 5 on", "serial 0 insert 3", "battery fail"; docs/simulator.md
     * has the whole list. Parted by blanks.
     * @return What `marvane-sim ctl` prints, with the line's end; empty where it prints nothing.
     * @throw std::invalid_argument for words that are not understood, std::runtime_error for what
     *   the board's state does not allow.
     * @note A delay ("fail 1 delay 50") is time of the boards: nobody waits.
     */
    std::string Do(const std::string& words);
    /** The board's whole state as JSON, as `marvane-sim ctl` shows it. */
    std::string Show() const;

private:
    friend class Boards;
    explicit Board(int number) : deviceNo(number) {}

    int deviceNo;
};

/**
 * @brief The bus: all boards of this process, what the library sent them, and their time.
 *
 * A program has one at a time. It begins without boards, and leaves none behind: descriptors that
 * are still open answer ENODEV. What the library keeps in its shared state (output patterns, EEPROM
 * parts, received bytes, by device number) is the library's and stays until the program ends: give
 * tests that care about it processes or device numbers of their own.
 */
class MARVANEUSB_TESTING_API Boards {
public:
    /**
     * @throw std::logic_error when another one lives, or when calls of open do not come here
     *   because the program does not link the testing library itself.
     */
    Boards();
    ~Boards();
    Boards(const Boards&) = delete;
    Boards& operator=(const Boards&) = delete;

    /**
     * As it began: no boards, no records, nothing that was told to come, time 0. Descriptors that
     * are open stay counted, and lead to the board that gets their number.
     */
    void Reset();

    /**
     * @brief Plugs in a board; one that had the number is gone.
     * @param deviceNo  0 to 15.
     */
    Board AddBoard(int deviceNo, const Fitting& fitting);
    Board AddBoard(int deviceNo, Model model, int speedMbit = 480);
    /** The board with this number. @throw std::out_of_range when there is none. */
    Board At(int deviceNo) const;

    // The node and the sysfs files of device number 0 to 15, whether or not there is a board

    /** The content of "product" or "speed", or of another attribute; none: the file is missing. */
    void SetFile(int deviceNo, const std::string& attribute, std::optional<std::string> content);
    /** The node exists or not, whatever sysfs says; without it, exchanges fail with ENODEV. */
    void SetNode(int deviceNo, bool present);
    /** Opening the node of a board that is there fails with this errno value; 0: it succeeds. */
    void RefuseNode(int deviceNo, int error);

    // Answers of the test's own, which take the place of all boards'

    /** The next exchange is answered like this; several queue up. */
    void AnswerNext(Answer answer);
    /**
     * Every exchange that no answer waits for is answered by this, on the thread that asks; it may
     * use all of Boards. Null: the boards answer again.
     */
    void AnswerWith(Answerer answerer);

    // What the library did since Reset

    /** Every exchange, oldest first, the failed ones included; of all boards. All are kept. */
    Exchanges Sent() const;
    void ForgetSent();
    /** The bytes of the last transfer record as the library handed it over. */
    Bytes LastRecord() const;
    /** The request of the last ioctl on a board. */
    unsigned long LastRequest() const;
    /** The flags with which a node was opened last. */
    int LastOpenFlags() const;
    /** The device numbers of all nodes that were opened, oldest first. */
    std::vector<int> OpenedDevices() const;
    /** How many descriptors of boards are open now, whoever opened them. */
    int OpenDescriptors() const;

    // Time. It is the boards' only: the library's thread for changed inputs waits in real time.

    /**
     * Lets 0 to 86400000 ms pass on all boards. Where something is under way all the time, polls
     * for example, a board needs a few seconds of the machine's for an hour of its own.
     */
    void Advance(long milliseconds);
    /** Milliseconds since Reset. */
    long Now() const;
};

}  // namespace testing
}  // namespace marvaneusb

#undef MARVANEUSB_TESTING_API

#endif  // MARVANEUSB_TESTING_H
