// The devices that a simulated board finds on its serial ports.
#include <random>

#include "cctalk_acceptor.h"
#include "model_expectations.h"
#include "polled_device.h"

namespace simulator {
namespace {

SerialWords Ask(CctalkAcceptor& acceptor, std::uint8_t header, Bytes data = {}) {
    SerialWords frame{2, static_cast<SerialWord>(data.size()), 1, header};
    frame.insert(frame.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (const SerialWord word : frame)
        sum += word;
    frame.push_back((256 - sum % 256) % 256);
    return acceptor.Hear(frame);
}

// An answer without destination, source and check: number of data bytes, header, data.
SerialWords TellOf(CctalkAcceptor& acceptor, std::uint8_t header) {
    const SerialWords answer = Ask(acceptor, header);
    if (answer.size() < 5 || answer[0] != 1 || answer[1] != answer.size() - 5) return {};
    return {answer.begin() + 4, answer.end() - 1};
}

template <typename Device>
SerialWords TickFor(Device& device, int milliseconds) {
    SerialWords said;
    for (; milliseconds > 0; --milliseconds) {
        const SerialWords words = device.Tick();
        said.insert(said.end(), words.begin(), words.end());
    }
    return said;
}

TEST(CctalkAcceptorTest, FramesAreAnsweredOrMetWithSilence) {
    struct Case {
        const char* what;
        SerialWords heard, answer;
    };
    const SerialWords ack{1, 0, 2, 0, 253};
    // clang-format off
    const Case cases[] = {
        {"simple poll",      {2, 0, 1, 254, 255},            ack},
        {"from elsewhere",   {2, 0, 9, 254, 247},            {9, 0, 2, 0, 245}},
        {"maker",            {2, 0, 1, 246, 7},              {1, 3, 2, 0, 'S', 'I', 'M', 17}},
        {"category",         {2, 0, 1, 245, 8},              {1, 13, 2, 0, 'C', 'o', 'i', 'n', ' ', 'A', 'c', 'c', 'e', 'p', 't', 'o', 'r', 22}},
        {"product",          {2, 0, 1, 244, 9},              {1, 11, 2, 0, 'M', 'A', 'R', 'V', 'A', 'N', 'E', '-', 'S', 'I', 'M', 210}},
        {"serial number",    {2, 0, 1, 242, 11},             {1, 3, 2, 0, 0x40, 0xE2, 0x01, 0xD7}},
        {"set mask",         {2, 2, 1, 231, 0x05, 0x80, 0x8F}, ack},
        {"tell mask",        {2, 0, 1, 230, 23},             {1, 2, 2, 0, 0x05, 0x80, 0x76}},
        {"set master",       {2, 1, 1, 228, 0, 24},          ack},
        {"tell master",      {2, 0, 1, 227, 26},             {1, 1, 2, 0, 0, 252}},
        {"events, none",     {2, 0, 1, 229, 24},             {1, 11, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 242}},
        {"two at once",      {2, 0, 1, 254, 255, 2, 0, 1, 227, 26}, {1, 0, 2, 0, 253, 1, 1, 2, 0, 0, 252}},
        {"reset",            {2, 0, 1, 1, 252},              ack},
        {"mask after reset", {2, 0, 1, 230, 23},             {1, 2, 2, 0, 0, 0, 251}},
        {"wrong check",      {2, 0, 1, 254, 254},            {}},
        {"other address",    {3, 0, 1, 254, 254},            {}},
        {"unknown header",   {2, 0, 1, 200, 53},             {}},
        {"mask too short",   {2, 1, 1, 231, 5, 16},          {}},
        {"poll with data",   {2, 1, 1, 254, 5, 249},         {}},
    };
    // clang-format on
    CctalkAcceptor acceptor;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(acceptor.Hear(c.heard), c.answer);
        EXPECT_TRUE(acceptor.IsIdle());
    }
    EXPECT_EQ(acceptor.WrongFrames(), 1u);
}

TEST(CctalkAcceptorTest, FramesComeInPiecesUnlessSilenceIsBetween) {
    CctalkAcceptor acceptor;
    EXPECT_EQ(acceptor.Hear(SerialWords{2, 0, 1}), SerialWords{});
    EXPECT_FALSE(acceptor.IsIdle());
    TickFor(acceptor, 49);
    EXPECT_EQ(acceptor.Hear(SerialWords{254}), SerialWords{});
    TickFor(acceptor, 49);
    EXPECT_EQ(acceptor.Hear(SerialWords{255}), (SerialWords{1, 0, 2, 0, 253}));

    acceptor.Hear(SerialWords{2, 200, 1});
    EXPECT_EQ(TickFor(acceptor, 50), SerialWords{});
    EXPECT_TRUE(acceptor.IsIdle());
    EXPECT_EQ(acceptor.Hear(SerialWords{2, 0, 1, 254, 255}), (SerialWords{1, 0, 2, 0, 253}));
}

TEST(CctalkAcceptorTest, MaskAndMasterDecideWhichCoinsAreTaken) {
    CctalkAcceptor acceptor;
    EXPECT_FALSE(acceptor.Insert(1)) << "power-up";
    Ask(acceptor, 231, {0x05, 0x80});
    for (unsigned coin = 0; coin <= 18; ++coin) {
        EXPECT_EQ(acceptor.Insert(coin), coin == 1 || coin == 3 || coin == 16) << coin;
    }
    EXPECT_EQ(TellOf(acceptor, 229), (SerialWords{3, 16, 1, 3, 1, 1, 1, 0, 0, 0, 0}));
    Ask(acceptor, 228, {0xFE});
    EXPECT_FALSE(acceptor.Insert(3));
    Ask(acceptor, 228, {0x01});
    EXPECT_TRUE(acceptor.Insert(3));
    EXPECT_EQ(acceptor.AcceptedCoins(), 4u);
    EXPECT_EQ(acceptor.ReturnedCoins(), 18u);

    Ask(acceptor, 1);
    EXPECT_FALSE(acceptor.Insert(3));
    EXPECT_EQ(TellOf(acceptor, 229), (SerialWords{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(acceptor.AcceptedCoins(), 4u) << "the cabinet's count";
}

TEST(CctalkAcceptorTest, EventCounterGoesFrom255To1) {
    CctalkAcceptor acceptor;
    Ask(acceptor, 231, {0xFF, 0xFF});
    for (int n = 0; n < 253; ++n)
        acceptor.Insert(7);
    acceptor.Insert(8);
    acceptor.Insert(9);
    EXPECT_EQ(TellOf(acceptor, 229), (SerialWords{255, 9, 1, 8, 1, 7, 1, 7, 1, 7, 1}));
    acceptor.Insert(10);
    EXPECT_EQ(TellOf(acceptor, 229), (SerialWords{1, 10, 1, 9, 1, 8, 1, 7, 1, 7, 1}));
}

TEST(PolledDeviceTest, RightFramesAreAnsweredWithTheNextEvent) {
    PolledDevice device;
    device.Queue(Bytes{0x41});
    device.Queue(Bytes(21, 9));
    device.Queue(Bytes{});
    device.Queue(Bytes(20, 9));
    EXPECT_EQ(device.QueuedEvents(), 2u);

    const SerialWords poll{2, 1, 0x10, 0x13};
    EXPECT_EQ(device.Hear(SerialWords{2, 1, 0x10, 0x12}), SerialWords{}) << "wrong check";
    EXPECT_EQ(device.Hear(poll), (SerialWords{2, 1, 0x41, 0x42}));
    SerialWords longest{2, 20};
    longest.insert(longest.end(), 20, 9);
    longest.push_back(22);
    EXPECT_EQ(device.Hear(poll), longest);
    EXPECT_EQ(device.Hear(SerialWords{0x1FF, 7, 2, 0, 2, 0x102, 2, 0}), (SerialWords{2, 0, 2}))
        << "noise around a frame, and the beginning of one";

    EXPECT_FALSE(device.IsIdle());
    TickFor(device, 49);
    EXPECT_EQ(device.Hear(SerialWords{2}), (SerialWords{2, 0, 2}));
    device.Hear(SerialWords{2, 200, 1});
    TickFor(device, 50);
    EXPECT_TRUE(device.IsIdle());
    EXPECT_EQ(device.Hear(poll), (SerialWords{2, 0, 2}));
    EXPECT_EQ(device.RightFrames(), 5u);
    EXPECT_EQ(device.WrongFrames(), 2u);

    for (int n = 0; n < 1001; ++n)
        device.Queue(Bytes{1});
    EXPECT_EQ(device.QueuedEvents(), 1000u);
}

TEST(SerialDevicesTest, MutedOnesNeitherHearNorAnswer) {
    CctalkAcceptor acceptor;
    Ask(acceptor, 231, {0xFF, 0xFF});
    acceptor.Hear(SerialWords{2, 0});
    acceptor.Mute(true);
    EXPECT_TRUE(acceptor.IsIdle());
    EXPECT_EQ(Ask(acceptor, 1), SerialWords{});
    EXPECT_TRUE(acceptor.Insert(1)) << "not reset";
    acceptor.Mute(false);
    EXPECT_EQ(Ask(acceptor, 254), (SerialWords{1, 0, 2, 0, 253}));

    PolledDevice device;
    device.Queue(Bytes{0x41});
    device.Mute(true);
    EXPECT_EQ(device.Hear(SerialWords{2, 0, 2}), SerialWords{});
    device.Mute(false);
    EXPECT_EQ(device.Hear(SerialWords{2, 0, 2}), (SerialWords{2, 1, 0x41, 0x42}));
}

TEST(SerialDevicesTest, NoiseIsSurvived) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    CctalkAcceptor acceptor;
    PolledDevice device;
    for (int n = 0; n < 100'000; ++n) {
        const SerialWord word[] = {static_cast<SerialWord>(random() % 4)};
        acceptor.Hear(word);
        device.Hear(word);
    }
    TickFor(acceptor, 50);
    TickFor(device, 50);
    EXPECT_EQ(Ask(acceptor, 254), (SerialWords{1, 0, 2, 0, 253}));
    EXPECT_EQ(device.Hear(SerialWords{2, 0, 2}), (SerialWords{2, 0, 2}));
}

}  // namespace
}  // namespace simulator
