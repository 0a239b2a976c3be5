/**
 * @file firmware_test.cpp
 * @brief The download of the boards' programs, and the images that the library carries.
 */
#include <algorithm>
#include <fstream>
#include <iterator>

#include "board_test.h"

namespace {

struct Download {
    Model model;
    int speedMbit;
    const char* file;
    std::size_t imageSize, longestChunk;
};

// clang-format off
const Download kDownloads[] = {
    {Model::kK40, 12, "/k40.bin", 15888, 57}, {Model::kK40, 480, "/k40.bin", 15888, 249},
    {Model::kK44, 12, "/k44.bin", 14002, 55}, {Model::kK44, 480, "/k44.bin", 14002, 247},
    {Model::kK50, 12, "/k50.bin", 14172, 55}, {Model::kK50, 480, "/k50.bin", 14172, 247},
};
// clang-format on

class FirmwareTest : public BoardTest {
protected:
    static DriverAnswer NotRunning(const Exchange& exchange) {
        if (exchange.command == 74) return {.reply = {0}};
        return {};
    }

    /** The writes of a whole download, which are checked to lie between 74, 72 and 73. */
    Exchanges ExpectWholeDownload() {
        const Exchanges sent = driver.Sent();
        if (sent.size() <= 3) {
            ADD_FAILURE() << "nothing is written";
            return {};
        }
        EXPECT_EQ(sent[0], (Exchange{74, 6, {}}));
        EXPECT_EQ(sent[1], (Exchange{72, 6, {}}));
        EXPECT_EQ(sent.back(), (Exchange{73, 6, {}}));
        return Exchanges(sent.begin() + 2, sent.end() - 1);
    }

    /** Where a write of one byte at address 0 goes on a K44 or K50. */
    int PageOfAddressZero() {
        unsigned char byte = 1;
        StartAfresh();
        EXPECT_EQ(board.WriteSRAM(0, &byte, 1), 1);
        return driver.Sent().at(0).payload.at(2);
    }
};

void ExpectImage(const Bytes& image, const char* file) {
    const std::string directory = MARVANE_FIRMWARE_DIR;
    if (!directory.empty()) {
        std::ifstream stream(directory + file, std::ios::binary);
        EXPECT_EQ(image, Bytes(std::istreambuf_iterator<char>(stream), {}));
        return;
    }
    const std::string mark = "MARVANE STAND-IN FIRMWARE";
    EXPECT_TRUE(std::equal(mark.begin(), mark.end(), image.begin() + 256));
    for (const std::ptrdiff_t vector : {0, 3, 251})  // jumps to itself
        EXPECT_TRUE(image[vector] == 0x80 && image[vector + 1] == 0xFE) << vector;
}

// The simulated board refuses what is too long for its bus.
TEST_F(FirmwareTest, TheWholeImageAndNothingElseGoesToTheProgramsPlaceInAsFewChunksAsPossible) {
    for (const Download& download : kDownloads) {
        SCOPED_TRACE(ModelName(download.model) + " " + std::to_string(download.speedMbit));
        OpenWithoutFirmware(download.model, download.speedMbit);
        simulated->memory.PowerUp(false);
        const auto contents = simulated->memory.Contents();
        Bytes expected(contents.begin(), contents.end());
        ASSERT_EQ(board.DownloadHiCode(), 1);
        EXPECT_TRUE(simulated->memory.IsProgramRunning());
        const Exchanges writes = ExpectWholeDownload();
        EXPECT_EQ(writes.size(), ExchangesNeeded(0, download.imageSize, download.longestChunk));
        std::size_t written = 0;
        for (const Exchange& write : writes)
            written += write.payload.at(0);
        EXPECT_EQ(written, download.imageSize);
        const unsigned page = download.model == Model::kK40 ? 0 : 13;
        const auto program = simulated->memory.Bytes(page, 0, download.imageSize);
        const Bytes image(program.begin(), program.end());
        ExpectImage(image, download.file);
        std::copy(image.begin(), image.end(),
                  expected.begin() + (program.data() - contents.data()));
        EXPECT_TRUE(std::ranges::equal(contents, expected));
    }
}

TEST_F(FirmwareTest, ARunningProgramIsNotDownloadedAgain) {
    struct Case {
        Bytes reply;
        bool runs;
    };
    for (const Case& c : {Case{{1}, true}, Case{{1, 7}, true}, Case{{0}, false}, Case{{}, false},
                          Case{{2}, false}, Case{{0, 1}, false}}) {
        OpenWithoutFirmware(Model::kK44);
        AcceptEverything();
        driver.AnswerNext({.reply = c.reply});
        EXPECT_EQ(board.DownloadHiCode(), 1);
        if (c.runs) {
            EXPECT_EQ(driver.Sent(), Exchanges({{74, 6, {}}}));
        } else {
            EXPECT_EQ(ExpectWholeDownload().size(), 57U);
        }
        EXPECT_EQ(PageOfAddressZero(), 1);
    }
}

TEST_F(FirmwareTest, TheFirstFailureEndsDownloadAndOpeningAndTheNextBeginsAnew) {
    struct Case {
        const char* what;
        int command;
        std::size_t sent;
    };
    const Case cases[] = {{"status query", 74, 1}, {"begin", 72, 2},
                          {"first write", 117, 3}, {"write in the middle", 117, 32},
                          {"last write", 117, 59}, {"end", 73, 60}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Open(Model::kK44);  // its EEPROM is known: nothing else ends an opening
        driver.AnswerWith([&](const Exchange& exchange) {
            const bool fails = driver.Sent().size() == c.sent;
            EXPECT_TRUE(!fails || exchange.command == c.command);
            return fails ? DriverAnswer{.status = 9} : NotRunning(exchange);
        });
        EXPECT_EQ(board.InitPort(0), 0);
        EXPECT_EQ(board.GetLastError(), 9);
        EXPECT_EQ(driver.Sent().size(), c.sent);

        driver.AnswerWith(NotRunning);
        EXPECT_EQ(PageOfAddressZero(), 13);
        StartAfresh();
        EXPECT_EQ(board.DownloadHiCode(), 1);
        EXPECT_EQ(ExpectWholeDownload().size(), 57U);
        EXPECT_EQ(PageOfAddressZero(), 1);
    }
}

}  // namespace
