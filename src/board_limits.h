/**
 * @file board_limits.h
 * @brief The ranges that operations accept and the sizes in which transfers are cut.
 */
#ifndef BOARD_LIMITS_H
#define BOARD_LIMITS_H

constexpr int kDeviceCount = 16;           // device numbers 0 to 15
constexpr int kIdentifiedDeviceCount = 8;  // device numbers that InitUSBBoard looks at
constexpr unsigned kHighestBoardIdentity = 15;
constexpr unsigned kBoardIdentityMask = 0x07;  // byte 3 of the inputs: inputs 24 to 26

// Bus speed codes
constexpr int kFullSpeed = 1;  // 12 Mbit/s
constexpr int kHighSpeed = 2;  // 480 Mbit/s

// Inputs and outputs
constexpr unsigned kInputCount = 33;
constexpr unsigned kCountedInputCount = 24;  // inputs that checks, counters and recordings accept
constexpr unsigned kOutputCount = 38;
constexpr unsigned kOutputByteCount = 5;
constexpr int kLastOutputByteBits = 6;  // outputs 32 to 37
constexpr unsigned kHighestBrightness = 10;
constexpr unsigned kPulsedOutputCount = 32;

// Reels
constexpr unsigned kReelCount = 3;
constexpr unsigned kRampStepCount = 60;
constexpr int kLowestSpinSetting = -2;
constexpr int kHighestSpinSetting = 2;

// Recording
constexpr unsigned kRecordingSlotCount = 4;
constexpr unsigned kShortestRecordingParameter = 10;
constexpr unsigned kLongestRecordingParameter = 15000;

// Serial ports
constexpr unsigned kSerialPortCount = 2;
constexpr unsigned long kK40LongestReply = 62;  // data bytes
constexpr unsigned long kUnlimited = ~0UL / 2;  // room of which the caller tells no end

// Memory
constexpr unsigned long kFlatMemorySize = 65536;  // the memory of a K40
constexpr unsigned long kMemoryPageSize = 16384;  // of a K44 or K50, whose pages count from 0
constexpr unsigned long kFirstStoragePage = 1;    // of battery-backed memory
constexpr unsigned long kFirstProgramPage = 13;   // storage leaves the program's pages out
constexpr unsigned long kProgramPageCount = 3;
constexpr unsigned long kK40MemoryLimit = 0xFFFF;           // for address + length
constexpr unsigned long kK44MemoryLimit = 0x73FFE;          // for address, and for address + length
constexpr unsigned long kK50MemoryLimit = 0xF3FFE;          // likewise
constexpr unsigned long kRecordingLimit = kK44MemoryLimit;  // on a K50 too

/** The most data bytes that one command of a memory transfer carries. */
struct ChunkSize {
    unsigned long highSpeed;
    unsigned long fullSpeed;

    [[nodiscard]] constexpr unsigned long At(int boardSpeed) const {
        return boardSpeed == kHighSpeed ? highSpeed : fullSpeed;
    }
};
constexpr ChunkSize kFlatWriteChunk{249, 57};
constexpr ChunkSize kFlatReadChunk{58, 58};
constexpr ChunkSize kPagedWriteChunk{247, 55};
constexpr ChunkSize kPagedReadChunk{252, 60};

constexpr ChunkSize kSerialSendChunk{252, 60};

constexpr unsigned long kEepromReadChunk = 58;   // at either speed
constexpr unsigned long kEepromWriteChunk = 57;  // likewise

// SPI and SEC
constexpr unsigned kSpiBits = 160;  // each way
constexpr unsigned kSecDataBytes = 16;
constexpr unsigned kSecFrameBytes = 4;  // of a frame beside its data: header and checksum

// Serial numbers
constexpr unsigned kPicSerialBytes = 8;
constexpr unsigned kDallasSerialBytes = 8;

#endif  // BOARD_LIMITS_H
