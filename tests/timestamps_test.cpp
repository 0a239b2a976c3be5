/**
 * @file timestamps_test.cpp
 * @brief Receiving with timestamps: records, the shared entry between callers, and what a broken
 * program or a lying driver can do to it.
 */
#include <signal.h>

#include <atomic>
#include <optional>

#include "board_test.h"
#include "children.h"
#include "shared_entries.h"

namespace {

/** What one call hands out; nothing: the caller's variable stays as it was. */
struct Received {
    std::optional<int> data, timestamp;
    unsigned received;

    bool operator==(const Received&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Received& received) {
    return out << "{" << received.data.value_or(-1) << ", " << received.timestamp.value_or(-1)
               << ", " << received.received << "}";
}

constexpr std::nullopt_t kNone = std::nullopt;
enum class Form { k8Bit, k9Bit };
using enum Form;

class TimestampsTest : public BoardTest {
protected:
    TimestampsTest() { entries.Clear(); }
    ~TimestampsTest() override { entries.Clear(); }

    int Call(Form form, _usbSerialPort port = kPort0) {
        return form == k8Bit
                   ? board.ReceiveByteWithTimestamp(port, &byte, &timestamp, &received)
                   : board.ReceiveByteWithTimestamp9BitData(port, &word, &timestamp, &received);
    }
    /** A call that must succeed. */
    Received Next(Form form = k8Bit, _usbSerialPort port = kPort0) {
        byte = timestamp = 0xEE;
        word = 0xEEEE;
        received = 77;
        EXPECT_EQ(Call(form, port), 1);
        Received result = {form == k8Bit ? byte : word, timestamp, received};
        if (result.data == (form == k8Bit ? 0xEE : 0xEEEE)) result.data = kNone;
        if (result.timestamp == 0xEE) result.timestamp = kNone;
        return result;
    }

    /** The entry of board 0 holds these bytes. */
    void SetEntry(unsigned count, unsigned readIndex, Bytes bytes) {
        const unsigned lowFirst[] = {count, count >> 8, readIndex, readIndex >> 8};
        bytes.insert(bytes.begin(), lowFirst, lowFirst + 4);
        entries.Set(0, bytes);
    }

    SharedEntries entries = SharedEntries::OfReceivedBytes();
    unsigned char byte = 0, timestamp = 0;
    unsigned short word = 0;
    unsigned received = 0;
};

TEST_F(TimestampsTest, AFetchIsHandedOutRecordByRecord) {
    // clang-format off
    struct Case { const char* what; Form form; Bytes fetched; std::vector<Received> received; };
    const Case cases[] = {
        {"two records",        k8Bit, {1, 2, 3, 4},        {{1, 2, 1}, {3, 4, 1}}},
        {"data alone at last", k8Bit, {1, 2, 3},           {{1, 2, 1}, {3, kNone, 1}}},
        {"timestamp alone",    k8Bit, {9},                 {{kNone, 9, 0}}},
        {"nothing",            k8Bit, {},                  {{kNone, kNone, 0}}},
        {"two records",        k9Bit, {1, 2, 3, 4, 5, 6},  {{0x0102, 3, 1}, {0x0405, 6, 1}}},
        {"high byte alone",    k9Bit, {1, 2, 3, 4},        {{0x0102, 3, 1}, {0x0400, kNone, 1}}},
        {"no timestamp",       k9Bit, {255, 254, 3, 4, 5}, {{0xFFFE, 3, 1}, {0x0405, kNone, 1}}},
        {"timestamp alone",    k9Bit, {9},                 {{kNone, 9, 0}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        OpenConfigured(Model::kK40);
        driver.AnswerNext({.reply = c.fetched});
        for (const Received& expected : c.received)
            EXPECT_EQ(Next(c.form), expected);
        EXPECT_EQ(driver.Sent(), Exchanges({{102, 3, {}}}));
        driver.AnswerNext({.reply = {7}});
        EXPECT_EQ(Next(c.form), (Received{kNone, 7, 0})) << "fetched anew";
    }
    Bytes whole(255, 5);
    whole.back() = 6;
    OpenConfigured(Model::kK44);
    driver.AnswerNext({.reply = whole});
    for (int i = 0; i < 127; ++i)
        ASSERT_EQ(Next(), (Received{5, 5, 1}));
    EXPECT_EQ(Next(), (Received{6, kNone, 1}));
    EXPECT_EQ(driver.Sent().size(), 1U);
}

TEST_F(TimestampsTest, OneEntryServesBothPortsAndFormsOfItsBoardOnly) {
    driver.AddBoard(5, Model::kK44);
    ASSERT_EQ(board.InitPort(5), 1);
    AcceptEverything();
    for (const _usbSerialPort port : kPorts)
        ASSERT_EQ(Configure(port), 1);
    for (const std::size_t other : {0, 4, 6})
        entries.Set(other, {2, 0, 0, 0, 0xAA, 0xAA});
    StartAfresh();
    driver.AnswerNext({.reply = {1, 2, 3, 4, 5, 6, 7}});
    EXPECT_EQ(Next(k8Bit, kPort0), (Received{1, 2, 1}));
    EXPECT_EQ(entries.Get(5, 11), Bytes({7, 0, 2, 0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Next(k9Bit, kPort1), (Received{0x0304, 5, 1}));
    EXPECT_EQ(Next(k8Bit, kPort1), (Received{6, 7, 1}));
    EXPECT_EQ(driver.Sent(), Exchanges({{102, 3, {}}}));
    for (const std::size_t other : {0, 4, 6})
        EXPECT_EQ(entries.Get(other, 6), Bytes({2, 0, 0, 0, 0xAA, 0xAA}));
}

TEST_F(TimestampsTest, AClaimedLengthCountsModulo256AndCopiesNoMoreThanThereIs) {
    struct Case {
        std::uint64_t claim;
        Bytes indices;  // after the first call
        Received first;
    };
    const Case cases[] = {
        // clang-format off
        {255,              {255, 0, 2, 0},  {1, 2, 1}},
        {256,              {0, 0, 0, 0},    {kNone, kNone, 0}},
        {257,              {1, 0, 1, 0},    {kNone, 1, 0}},
        {300,              {44, 0, 2, 0},   {1, 2, 1}},
        {(1UL << 40) + 4,  {4, 0, 2, 0},    {1, 2, 1}},
        {~0UL,             {255, 0, 2, 0},  {1, 2, 1}},
        // clang-format on
    };
    const Bytes guard(260, 0xAA);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.claim);
        entries.Set(0, guard);
        SetEntry(0, 0, {});
        entries.Set(1, guard);
        OpenConfigured(Model::kK44);
        driver.AnswerNext({.reply = {1, 2, 3}, .claimedLength = c.claim});
        EXPECT_EQ(Next(), c.first);
        EXPECT_EQ(entries.Get(0, 4), c.indices);
        EXPECT_EQ(entries.Get(0, 260).back(), c.claim > 255 ? 0 : 0xAA) << "what did not come";
        EXPECT_EQ(entries.Get(1, 260), guard);
    }
}

TEST_F(TimestampsTest, ImpossibleIndicesCountAsAnEmptyEntry) {
    // clang-format off
    struct Case { unsigned count, readIndex; Received expected; };
    const Case cases[] = {
        {257,    0,   {kNone, 5, 0}},  {10,     11,     {kNone, 5, 0}},   {0,   1,   {kNone, 5, 0}},
        {0xFFFF, 0,   {kNone, 5, 0}},  {0xFFFF, 0xFFFF, {kNone, 5, 0}},   {256, 257, {kNone, 5, 0}},
        {256,    256, {kNone, 5, 0}},  {256,    255,    {171, kNone, 1}}, {256, 254, {171, 171, 1}},
        {1,      0,   {kNone, 171, 0}},
    };
    // clang-format on
    for (const Case& c : cases) {
        OpenConfigured(Model::kK44);
        SetEntry(c.count, c.readIndex, Bytes(256, 171));
        driver.AnswerNext({.reply = {5}});
        EXPECT_EQ(Next(), c.expected) << c.count << ", " << c.readIndex;
    }
}

TEST_F(TimestampsTest, TheLockIsHeldOverTheFetchAndAFailedOneLeavesTheEntryEmpty) {
    for (const Form form : {k8Bit, k9Bit}) {
        OpenConfigured(Model::kK44);
        SetEntry(3, 3, {7, 7, 7});
        driver.AnswerWith([](const Exchange&) {
            EXPECT_EQ(SharedSemaphore(5), 0);
            return DriverAnswer{.status = 9, .reply = {1, 2, 3}};
        });
        EXPECT_EQ(Call(form), 0);
        EXPECT_EQ(board.GetLastError(), 9);
        EXPECT_EQ(SharedSemaphore(5), 1) << "given back";
        driver.AnswerNext({.reply = {8}});
        EXPECT_EQ(Next(form), (Received{kNone, 8, 0}));
        EXPECT_EQ(SharedSemaphore(5), 1);
    }
}

TEST_F(TimestampsTest, ProcessesThatShareABoardNeverGetARecordTwice) {
    static constexpr unsigned kRecords = 4000;
    struct Tally {
        std::atomic<unsigned> fetched = 0;  // records that the board has delivered
        std::atomic<unsigned> received = 0;
        std::atomic<unsigned> times[kRecords] = {};  // that each record was received
    };
    const InSharedMemory<Tally> tally;
    OpenConfigured(Model::kK44);
    // A record is its own number, as data and timestamp; a fetch brings one to four.
    driver.AnswerWith([&](const Exchange&) {
        DriverAnswer answer;
        const unsigned first = tally->fetched;
        const unsigned end = std::min(first + 1 + first % 4, kRecords);
        for (unsigned record = first; record < end; ++record) {
            answer.reply.push_back(static_cast<std::uint8_t>(record >> 8));
            answer.reply.push_back(static_cast<std::uint8_t>(record));
        }
        tally->fetched = end;
        return answer;
    });
    const auto drain = [&](_usbSerialPort port) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (tally->received < kRecords && std::chrono::steady_clock::now() < deadline) {
            ASSERT_EQ(Call(k8Bit, port), 1);
            if (received == 0) continue;
            ++tally->times[byte << 8 | timestamp];
            ++tally->received;
        }
    };
    std::vector<Child> children;
    for (int i = 0; i < 4; ++i) {
        children.emplace_back([&] {
            drain(kPorts[i % 2]);
            return 0;
        });
    }
    drain(kPort0);
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
    for (unsigned record = 0; record < kRecords; ++record)
        ASSERT_EQ(tally->times[record], 1U) << record;
}

TEST_F(TimestampsTest, AProcessKilledInAFetchLosesOnlyWhatThatFetchBrought) {
    OpenConfigured(Model::kK44);
    driver.AnswerNext({.reply = {1, 2, 3, 4}});
    EXPECT_EQ(Next(), (Received{1, 2, 1}));
    const int killed = StatusOf([this] {
        EXPECT_EQ(Next(), (Received{3, 4, 1}));
        driver.AnswerWith([](const Exchange&) {
            raise(SIGKILL);
            return DriverAnswer{};
        });
        Next();
        return 0;
    });
    EXPECT_EQ(killed, 128 + SIGKILL);
    EXPECT_EQ(SharedSemaphore(5), 1) << "its lock came free";
    driver.AnswerNext({.reply = {7, 8}});
    EXPECT_EQ(Next(), (Received{7, 8, 1}));
}

}  // namespace
