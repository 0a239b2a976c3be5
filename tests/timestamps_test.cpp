/**
 * @file timestamps_test.cpp
 * @brief Receiving with timestamps: records, the shared entry between callers, and what a broken
 * program or a lying driver can do to it.
 */
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <optional>

#include "forked_child.h"
#include "serial_test.h"
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

/** The two forms of the operation. */
enum class Form { k8Bit, k9Bit };
constexpr Form kForms[] = {Form::k8Bit, Form::k9Bit};

const char* FormName(Form form) {
    return form == Form::k8Bit ? " 8-bit " : " 9-bit ";
}

class TimestampsTest : public SerialTest {
protected:
    TimestampsTest() { entries.Clear(); }
    ~TimestampsTest() override { entries.Clear(); }

    /** A call that must succeed. */
    Received Next(Form form, _usbSerialPort port = kPort0) { return Next(board, form, port); }
    static Received Next(MarvaneUSB& from, Form form, _usbSerialPort port) {
        unsigned char byte = 0xEE;
        unsigned short word = 0xEEEE;
        unsigned char timestamp = 0xEE;
        unsigned received = 77;
        EXPECT_EQ(form == Form::k8Bit
                      ? from.ReceiveByteWithTimestamp(port, &byte, &timestamp, &received)
                      : from.ReceiveByteWithTimestamp9BitData(port, &word, &timestamp, &received),
                  1);
        Received result = {word, timestamp, received};
        if (form == Form::k8Bit) result.data = byte;
        if (result.data == (form == Form::k8Bit ? 0xEE : 0xEEEE)) result.data = kNone;
        if (result.timestamp == 0xEE) result.timestamp = kNone;
        return result;
    }

    int Fail(Form form, _usbSerialPort port = kPort0) {
        unsigned char byte = 0;
        unsigned short word = 0;
        unsigned received = 0;
        return form == Form::k8Bit
                   ? board.ReceiveByteWithTimestamp(port, &byte, &byte, &received)
                   : board.ReceiveByteWithTimestamp9BitData(port, &word, &byte, &received);
    }

    /** The entry of board 0 holds these bytes; both numbers low byte first. */
    void SetEntry(std::size_t deviceNo, unsigned count, unsigned readIndex, Bytes bytes = {}) {
        bytes.insert(
            bytes.begin(),
            {static_cast<std::uint8_t>(count), static_cast<std::uint8_t>(count >> 8),
             static_cast<std::uint8_t>(readIndex), static_cast<std::uint8_t>(readIndex >> 8)});
        entries.Set(deviceNo, bytes);
    }

    SharedEntries entries = SharedEntries::OfReceivedBytes();
};

TEST_F(TimestampsTest, PointersThenPortThenConfiguration) {
    unsigned char byte = 0;
    unsigned short word = 0;
    unsigned received = 0;
    const auto form8 = [&](auto port) {
        return board.ReceiveByteWithTimestamp(port, &byte, &byte, &received);
    };
    const auto form9 = [&](auto port) {
        return board.ReceiveByteWithTimestamp9BitData(port, &word, &byte, &received);
    };
    const std::vector<PortOperation> operations = {
        // clang-format off
        {"8-bit data",      form8, [&](auto port) { return board.ReceiveByteWithTimestamp(port, nullptr, &byte, &received); }},
        {"8-bit timestamp", form8, [&](auto port) { return board.ReceiveByteWithTimestamp(port, &byte, nullptr, &received); }},
        {"8-bit received",  form8, [&](auto port) { return board.ReceiveByteWithTimestamp(port, &byte, &byte, nullptr); }},
        {"9-bit data",      form9, [&](auto port) { return board.ReceiveByteWithTimestamp9BitData(port, nullptr, &byte, &received); }},
        {"9-bit timestamp", form9, [&](auto port) { return board.ReceiveByteWithTimestamp9BitData(port, &word, nullptr, &received); }},
        {"9-bit received",  form9, [&](auto port) { return board.ReceiveByteWithTimestamp9BitData(port, &word, &byte, nullptr); }},
        // clang-format on
    };
    ExpectPortChecks(operations);
    SetEntry(0, 4, 0, {1, 2, 3, 4});
    ExpectPortChecks({operations[0], operations[3]});  // also when nothing need be fetched
    SetEntry(0, 0, 0);
    ExpectStatusPassedOn({operations[0], operations[3]});
}

TEST_F(TimestampsTest, AFetchIsHandedOutRecordByRecord) {
    struct Case {
        const char* what;
        Form form;
        Bytes fetched;
        std::vector<Received> received;
    };
    const Case cases[] = {
        // clang-format off
        {"two records",         Form::k8Bit, {1, 2, 3, 4},          {{1, 2, 1}, {3, 4, 1}}},
        {"data alone at last",  Form::k8Bit, {1, 2, 3},             {{1, 2, 1}, {3, kNone, 1}}},
        {"timestamp alone",     Form::k8Bit, {9},                   {{kNone, 9, 0}}},
        {"nothing",             Form::k8Bit, {},                    {{kNone, kNone, 0}}},
        {"two records",         Form::k9Bit, {1, 2, 3, 4, 5, 6},    {{0x0102, 3, 1}, {0x0405, 6, 1}}},
        {"high byte alone",     Form::k9Bit, {1, 2, 3, 4},          {{0x0102, 3, 1}, {0x0400, kNone, 1}}},
        {"no timestamp",        Form::k9Bit, {1, 2},                {{0x0102, kNone, 1}}},
        {"no timestamp at last", Form::k9Bit, {0xFF, 0xFE, 3, 4, 5}, {{0xFFFE, 3, 1}, {0x0405, kNone, 1}}},
        {"timestamp alone",     Form::k9Bit, {9},                   {{kNone, 9, 0}}},
        {"nothing",             Form::k9Bit, {},                    {{kNone, kNone, 0}}},
        // clang-format on
    };
    for (const Model model : kModels) {
        for (const Case& c : cases) {
            for (const _usbSerialPort port : kPorts) {
                SCOPED_TRACE(std::string(ModelName(model)) + FormName(c.form) + c.what);
                OpenConfigured(model);
                driver.AnswerNext({.reply = c.fetched});
                for (const Received& expected : c.received)
                    EXPECT_EQ(Next(c.form, port), expected);
                EXPECT_EQ(driver.Sent(), Exchanges({{102, ChannelOf(port), {}}}));
                driver.AnswerNext({.reply = {7}});
                EXPECT_EQ(Next(c.form, port), (Received{kNone, 7, 0})) << "fetched anew";
            }
        }
    }
}

TEST_F(TimestampsTest, OneEntryServesBothPortsAndFormsOfItsBoardOnly) {
    driver.AddBoard(5, Model::kK44);
    ASSERT_EQ(board.InitPort(5), 1);
    AcceptEverything();
    for (const _usbSerialPort port : kPorts)
        ASSERT_EQ(Configure(port), 1);
    SetEntry(0, 2, 0, {0xAA, 0xAA});
    SetEntry(4, 2, 0, {0xAA, 0xAA});
    SetEntry(6, 2, 0, {0xAA, 0xAA});
    StartAfresh();
    driver.AnswerNext({.reply = {1, 2, 3, 4, 5, 6, 7}});
    EXPECT_EQ(Next(Form::k8Bit, kPort0), (Received{1, 2, 1}));
    EXPECT_EQ(entries.Get(5, 11), Bytes({7, 0, 2, 0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Next(Form::k9Bit, kPort1), (Received{0x0304, 5, 1}));
    EXPECT_EQ(Next(Form::k8Bit, kPort1), (Received{6, 7, 1}));
    EXPECT_EQ(driver.Sent(), Exchanges({{102, 3, {}}}));
    for (const std::size_t other : {0, 4, 6}) {
        EXPECT_EQ(entries.Get(other, 6), Bytes({2, 0, 0, 0, 0xAA, 0xAA}));
    }
}

TEST_F(TimestampsTest, AClaimedLengthCountsModulo256AndCopiesNoMoreThanThereIs) {
    struct Case {
        std::uint64_t claim;
        Bytes indices;   // after the first call
        Received first;  // of the 8-bit form
    };
    const Case cases[] = {
        // clang-format off
        {2,                {2, 0, 2, 0},    {1, 2, 1}},
        {255,              {255, 0, 2, 0},  {1, 2, 1}},
        {256,              {0, 0, 0, 0},    {kNone, kNone, 0}},
        {257,              {1, 0, 1, 0},    {kNone, 1, 0}},
        {300,              {44, 0, 2, 0},   {1, 2, 1}},
        {1UL << 40,        {0, 0, 0, 0},    {kNone, kNone, 0}},
        {(1UL << 40) + 4,  {4, 0, 2, 0},    {1, 2, 1}},
        {~0UL,             {255, 0, 2, 0},  {1, 2, 1}},
        // clang-format on
    };
    const Bytes guard(260, 0xAA);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.claim);
        entries.Clear();
        entries.Set(1, guard);
        OpenConfigured(Model::kK44);
        driver.AnswerNext({.reply = {1, 2, 3}, .claimedLength = c.claim});
        EXPECT_EQ(Next(Form::k8Bit), c.first);
        EXPECT_EQ(entries.Get(0, 4), c.indices);
        EXPECT_EQ(entries.Get(1, 260), guard);
        EXPECT_EQ(entries.Get(0, 256 + 4)[4 + 3], 0) << "what did not come is 0";
    }
}

TEST_F(TimestampsTest, ALongFetchIsHandedOutToItsLastByte) {
    OpenConfigured(Model::kK44);
    Bytes fetched(255);
    for (std::size_t i = 0; i < fetched.size(); ++i)
        fetched[i] = static_cast<std::uint8_t>(i % 200);
    driver.AnswerNext({.reply = fetched});
    for (int i = 0; i + 1 < 255; i += 2) {
        ASSERT_EQ(Next(Form::k8Bit), (Received{i % 200, (i + 1) % 200, 1}));
    }
    EXPECT_EQ(Next(Form::k8Bit), (Received{54, kNone, 1}));
    EXPECT_EQ(driver.Sent().size(), 1U);
}

TEST_F(TimestampsTest, ImpossibleIndicesCountAsAnEmptyEntry) {
    struct Case {
        unsigned count, readIndex;
        bool empty;
        Received received;  // of the 8-bit form, unless empty
    };
    const Case cases[] = {
        // clang-format off
        {257,    0,      true,  {}},
        {10,     11,     true,  {}},
        {0,      1,      true,  {}},
        {0xFFFF, 0,      true,  {}},
        {0xFFFF, 0xFFFF, true,  {}},
        {256,    257,    true,  {}},
        {256,    256,    true,  {}},
        {256,    255,    false, {0xAB, kNone, 1}},
        {256,    254,    false, {0xAB, 0xAB, 1}},
        {1,      0,      false, {kNone, 0xAB, 0}},
        // clang-format on
    };
    for (const Case& c : cases) {
        for (const Form form : kForms) {
            SCOPED_TRACE(std::to_string(c.count) + ", " + std::to_string(c.readIndex));
            OpenConfigured(Model::kK44);
            SetEntry(0, c.count, c.readIndex, Bytes(256, 0xAB));
            SetEntry(1, 0xCDCD, 0xCDCD);
            driver.AnswerNext({.reply = {5}});
            const Received received = Next(form);
            EXPECT_EQ(driver.Sent().size(), c.empty ? 1U : 0U);
            if (c.empty) {
                EXPECT_EQ(received, (Received{kNone, 5, 0}));
            } else if (form == Form::k8Bit) {
                EXPECT_EQ(received, c.received);
            }
            driver.Reset();
        }
    }
}

TEST_F(TimestampsTest, AFailedFetchLeavesTheEntryEmpty) {
    for (const Form form : kForms) {
        for (const DriverAnswer& failure :
             {DriverAnswer{.status = 9, .reply = {1, 2, 3}}, DriverAnswer{.error = 5}}) {
            OpenConfigured(Model::kK44);
            SetEntry(0, 3, 3, {7, 7, 7});
            driver.AnswerNext(failure);
            EXPECT_EQ(Fail(form), 0);
            EXPECT_EQ(board.GetLastError(), failure.error == 0 ? 9 : 6);
            EXPECT_EQ(SharedSemaphore(5), 1) << "the lock is given back";
            driver.AnswerNext({.reply = {8}});
            EXPECT_EQ(Next(form), (Received{kNone, 8, 0}));
        }
    }
}

TEST_F(TimestampsTest, TheLockIsHeldOverTheFetch) {
    for (const Form form : kForms) {
        OpenConfigured(Model::kK44);
        int held = -1;
        driver.AnswerWith([&held](const Exchange&) {
            held = SharedSemaphore(5);
            return DriverAnswer{.reply = {1, 2, 3}};
        });
        Next(form);
        EXPECT_EQ(held, 0);
        EXPECT_EQ(SharedSemaphore(5), 1);
        entries.Clear();
    }
}

/** Memory that forked children share with the test. */
struct Tally {
    std::atomic<unsigned> fetched;  // records that the board has delivered
    std::atomic<unsigned> received;
    std::atomic<unsigned> times[4096];  // that each record was received
};

TEST_F(TimestampsTest, ProcessesThatShareABoardNeverGetARecordTwice) {
    static constexpr unsigned kRecords = 4000;
    auto* tally = static_cast<Tally*>(
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(tally, MAP_FAILED);
    OpenConfigured(Model::kK44);
    MarvaneUSB other;
    driver.AnswerWith(nullptr);
    ASSERT_EQ(other.InitPort(0), 1);
    // A record is its own number, as data and timestamp; a fetch brings one to four.
    driver.AnswerWith([tally](const Exchange& exchange) {
        DriverAnswer answer;
        if (exchange.command != 102) return answer;
        const unsigned first = tally->fetched;
        const unsigned end = std::min(first + 1 + first % 4, kRecords);
        for (unsigned record = first; record < end; ++record) {
            answer.reply.push_back(static_cast<std::uint8_t>(record >> 8));
            answer.reply.push_back(static_cast<std::uint8_t>(record));
        }
        tally->fetched = end;
        return answer;
    });
    _DCB line = {9600, 0, 0};
    ASSERT_EQ(other.SetConfig(kPort1, &line, USB_PORT_TYPE_0), 1);

    const auto drain = [&](MarvaneUSB& own, _usbSerialPort port) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (tally->received < kRecords && std::chrono::steady_clock::now() < deadline) {
            unsigned char data = 0;
            unsigned char timestamp = 0;
            unsigned received = 0;
            ASSERT_EQ(own.ReceiveByteWithTimestamp(port, &data, &timestamp, &received), 1);
            if (received == 0) continue;
            ++tally->times[data << 8 | timestamp];
            ++tally->received;
        }
    };
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            i % 2 == 0 ? drain(board, kPort0) : drain(other, kPort1);
            _exit(HasFailure() ? kChildFailed : 0);
        }
        children.push_back(child);
    }
    drain(board, kPort0);
    for (const pid_t child : children)
        EXPECT_EQ(AwaitChild(child), 0);
    for (unsigned record = 0; record < kRecords; ++record) {
        ASSERT_EQ(tally->times[record], 1U) << record;
    }
    munmap(tally, sizeof(Tally));
}

TEST_F(TimestampsTest, AProcessKilledInAFetchLosesOnlyWhatThatFetchBrought) {
    OpenConfigured(Model::kK44);
    driver.AnswerNext({.reply = {1, 2, 3, 4}});
    EXPECT_EQ(Next(Form::k8Bit), (Received{1, 2, 1}));
    const int killed = RunInChild([this] {
        EXPECT_EQ(Next(Form::k8Bit), (Received{3, 4, 1}));
        driver.AnswerWith([](const Exchange&) {
            raise(SIGKILL);
            return DriverAnswer{.reply = {5, 6}};
        });
        Next(Form::k8Bit);
    });
    EXPECT_EQ(killed, -SIGKILL);
    EXPECT_EQ(SharedSemaphore(5), 1) << "its lock came free";
    driver.AnswerNext({.reply = {7, 8, 9, 10}});
    EXPECT_EQ(Next(Form::k8Bit), (Received{7, 8, 1}));

    // What the entry holds outlives whoever fetched it.
    EXPECT_EQ(RunInChild([] { raise(SIGKILL); }), -SIGKILL);
    EXPECT_EQ(Next(Form::k8Bit), (Received{9, 10, 1}));
}

TEST_F(TimestampsTest, WithoutSharedStateOperationsFailAfterTheChecksThatNeedNone) {
    OpenConfigured(Model::kK44);
    const int result = RunInChild([this] {
        LoseSharedState();
        for (const Form form : kForms) {
            EXPECT_EQ(Fail(form), 0);
            EXPECT_EQ(board.GetLastError(), 38);
            EXPECT_EQ(Fail(form, static_cast<_usbSerialPort>(2)), 0);
            EXPECT_EQ(board.GetLastError(), 8);
        }
        unsigned received = 0;
        unsigned char byte = 0;
        EXPECT_EQ(board.ReceiveByteWithTimestamp(kPort0, nullptr, &byte, &received), 0);
        EXPECT_EQ(board.GetLastError(), 30);
        EXPECT_EQ(driver.Sent(), Exchanges());
    });
    if (result == kChildCannotRun) GTEST_SKIP() << "IPC objects of its own are refused";
    EXPECT_EQ(result, 0);
}

}  // namespace
