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
    int command;
    std::size_t imageSize, writes, chunk, lastChunk;
    Bytes secondHeader;
};

// clang-format off
const Download kDownloads[] = {
    {Model::kK40, 12,  "k40.bin",  71, 15888, 279,  57,  42, {57, 57, 0}},
    {Model::kK40, 480, "k40.bin",  71, 15888,  64, 249, 201, {249, 249, 0}},
    {Model::kK44, 12,  "k44.bin", 117, 14002, 255,  55,  32, {55, 0, 13, 55, 0}},
    {Model::kK44, 480, "k44.bin", 117, 14002,  57, 247, 170, {247, 0, 13, 247, 0}},
    {Model::kK50, 12,  "k50.bin", 117, 14172, 258,  55,  37, {55, 0, 13, 55, 0}},
    {Model::kK50, 480, "k50.bin", 117, 14172,  58, 247,  93, {247, 0, 13, 247, 0}},
};
// clang-format on

bool IsWrite(const Exchange& exchange) {
    return exchange.command == 71 || exchange.command == 117;
}

class FirmwareTest : public BoardTest {
protected:
    /** The writes of a whole download, which are checked to lie between 74, 72 and 73. */
    Exchanges ExpectWholeDownload() {
        const Exchanges sent = driver.Sent();
        EXPECT_GT(sent.size(), 3U);
        if (sent.size() <= 3) return {};
        EXPECT_EQ(sent[0], (Exchange{74, 6, {}}));
        EXPECT_EQ(sent[1], (Exchange{72, 6, {}}));
        EXPECT_EQ(sent.back(), (Exchange{73, 6, {}}));
        return Exchanges(sent.begin() + 2, sent.end() - 1);
    }

    std::size_t WriteCount() const {
        const Exchanges sent = driver.Sent();
        return static_cast<std::size_t>(std::count_if(sent.begin(), sent.end(), IsWrite));
    }

    /** Where a write of one byte at address 0 goes on a K44 or K50. */
    int PageOfAddressZero() {
        unsigned char byte = 1;
        StartAfresh();
        EXPECT_EQ(board.WriteSRAM(0, &byte, 1), 1);
        const Exchanges sent = driver.Sent();
        return sent.size() == 1 && sent[0].payload.size() == 6 ? sent[0].payload[2] : -1;
    }

    static DriverAnswer NotRunning(const Exchange& exchange) {
        if (exchange.command == 74) return {.reply = {0}};
        return {};
    }
};

void ExpectStandIn(const Bytes& image) {
    constexpr std::uint8_t kLoop[] = {0x80, 0xFE};  // jumps to itself
    EXPECT_TRUE(std::equal(kLoop, kLoop + 2, image.begin()));
    for (std::ptrdiff_t vector = 3; vector < 256; vector += 8) {
        EXPECT_TRUE(std::equal(kLoop, kLoop + 2, image.begin() + vector)) << vector;
    }
    const std::string mark = "MARVANE STAND-IN FIRMWARE";
    EXPECT_EQ(std::string(image.begin() + 256,
                          image.begin() + 256 + static_cast<std::ptrdiff_t>(mark.size())),
              mark);
}

void ExpectImage(const Bytes& image, const char* file) {
    const std::string directory = MARVANE_FIRMWARE_DIR;
    if (directory.empty()) return ExpectStandIn(image);
    std::ifstream stream(directory + "/" + file, std::ios::binary);
    EXPECT_EQ(image, Bytes(std::istreambuf_iterator<char>(stream), {}));
}

TEST_F(FirmwareTest, TheWholeImageGoesOutInAscendingChunks) {
    for (const Download& download : kDownloads) {
        SCOPED_TRACE(std::string(ModelName(download.model)) + " " +
                     std::to_string(download.speedMbit));
        OpenWithoutFirmware(download.model, download.speedMbit);
        driver.AnswerWith(NotRunning);
        ASSERT_EQ(board.DownloadHiCode(), 1);

        const Exchanges writes = ExpectWholeDownload();
        ASSERT_EQ(writes.size(), download.writes);
        const std::size_t header = download.secondHeader.size();
        EXPECT_EQ(Bytes(writes[1].payload.begin(),
                        writes[1].payload.begin() + static_cast<std::ptrdiff_t>(header)),
                  download.secondHeader);
        Bytes image;
        for (const Exchange& write : writes) {
            const bool isLast = &write == &writes.back();
            const std::size_t chunk = isLast ? download.lastChunk : download.chunk;
            const Bytes& payload = write.payload;
            ASSERT_EQ(write.command, download.command);
            ASSERT_EQ(write.channel, 6);
            ASSERT_EQ(payload.size(), chunk + header);
            ASSERT_EQ(payload[0], chunk);
            if (header == 5) {
                ASSERT_EQ(payload[1], 0);
                ASSERT_EQ(payload[2], 13);
            }
            ASSERT_EQ(payload[header - 2] + payload[header - 1] * 256U, image.size());
            image.insert(image.end(), payload.begin() + static_cast<std::ptrdiff_t>(header),
                         payload.end());
        }
        ASSERT_EQ(image.size(), download.imageSize);
        ExpectImage(image, download.file);
    }
}

TEST_F(FirmwareTest, ARunningProgramIsNotDownloadedAgain) {
    struct Case {
        const char* what;
        Bytes reply;
        bool downloads;
    };
    for (const Model model : kModels) {
        for (const Case& c : {Case{"runs", {1}, false}, Case{"runs, and more", {1, 7}, false},
                              Case{"does not", {0}, true}, Case{"no answer", {}, true},
                              Case{"other answer", {2}, true}, Case{"in byte 1", {0, 1}, true}}) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            OpenWithoutFirmware(model);
            AcceptEverything();
            driver.AnswerNext({.reply = c.reply});
            EXPECT_EQ(board.DownloadHiCode(), 1);
            if (c.downloads) {
                ExpectWholeDownload();
            } else {
                EXPECT_EQ(driver.Sent(), Exchanges({{74, 6, {}}}));
            }
            if (model != Model::kK40) {
                EXPECT_EQ(PageOfAddressZero(), 1);
            }
        }
    }
}

TEST_F(FirmwareTest, TheFirstFailureEndsTheDownloadAndTheNextBeginsAnew) {
    struct Case {
        const char* what;
        int failingCommand;
        std::size_t failingWrite;  // counted from 1; 0: all
        std::size_t sent;
    };
    const Case cases[] = {
        {"status query", 74, 0, 1},  {"begin", 72, 0, 2},
        {"first write", 117, 1, 3},  {"write in the middle", 117, 30, 32},
        {"last write", 117, 57, 59}, {"end", 73, 0, 60},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        OpenWithoutFirmware(Model::kK44);
        driver.AnswerWith([&](const Exchange& exchange) {
            const bool fails = exchange.command == c.failingCommand &&
                               (c.failingWrite == 0 || WriteCount() == c.failingWrite);
            return fails ? DriverAnswer{.status = 9} : NotRunning(exchange);
        });
        EXPECT_EQ(board.DownloadHiCode(), 0);
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

TEST_F(FirmwareTest, ASecondDownloadOnOneOpeningGoesWhereApplicationDataGo) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        SCOPED_TRACE(ModelName(model));
        OpenWithoutFirmware(model);
        driver.AnswerWith(NotRunning);
        ASSERT_EQ(board.DownloadHiCode(), 1);
        StartAfresh();
        ASSERT_EQ(board.DownloadHiCode(), 1);
        for (const Exchange& write : ExpectWholeDownload())
            ASSERT_EQ(write.payload[2], 1);
    }
}

}  // namespace
