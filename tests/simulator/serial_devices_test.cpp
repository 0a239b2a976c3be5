// The devices that a simulated board finds on its serial ports.
#include "board_conversation.h"
#include "line/cctalk_acceptor.h"
#include "line/polled_device.h"

namespace simulator {
namespace {

const SerialWords kAck{1, 0, 2, 0, 253}, kPoll{2, 0, 1, 254, 255}, kReadCredit{2, 0, 1, 229, 24};

template <typename Device>
void TickFor(Device& device, int milliseconds) {
    for (; milliseconds > 0; --milliseconds)
        EXPECT_EQ(device.Tick(), SerialWords{});
}

TEST(CctalkAcceptorTest, FramesAreAnsweredOrMetWithSilence) {
    struct Case {
        const char* what;
        SerialWords heard, answer;
    };
    // clang-format off
    const Case cases[] = {
        {"simple poll",      kPoll,                          kAck},
        {"everybody",        {0, 0, 1, 254, 1},              kAck},
        {"everybody, no header", {0, 0, 0, 0, 0},            {}},
        {"serial number",    {2, 0, 1, 242, 11},             {1, 3, 2, 0, 0x40, 0xE2, 0x01, 0xD7}},
        {"set mask",         {2, 2, 1, 231, 0x05, 0x80, 0x8F}, kAck},
        {"tell mask",        {2, 0, 1, 230, 23},             {1, 2, 2, 0, 0x05, 0x80, 0x76}},
        {"set master",       {2, 1, 1, 228, 0, 24},          kAck},
        {"events, none",     kReadCredit, {1, 11, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 242}},
        {"two at once",      {2, 0, 1, 254, 255, 2, 0, 1, 227, 26},
                             {1, 0, 2, 0, 253, 1, 1, 2, 0, 0, 252}},
        {"reset",            {2, 0, 1, 1, 252},              kAck},
        {"mask after reset", {2, 0, 1, 230, 23},             {1, 2, 2, 0, 0, 0, 251}},
        {"wrong check",      {2, 0, 1, 254, 254},            {}},
        {"other address",    {3, 0, 1, 254, 254},            {}},
        {"unknown header",   {2, 0, 1, 200, 53},             {}},
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
    TickFor(acceptor, 49);
    EXPECT_EQ(acceptor.Hear(SerialWords{254}), SerialWords{});
    TickFor(acceptor, 49);
    EXPECT_EQ(acceptor.Hear(SerialWords{255}), kAck);
    acceptor.Hear(SerialWords{2, 200, 1});
    TickFor(acceptor, 50);
    EXPECT_TRUE(acceptor.IsIdle());
    EXPECT_EQ(acceptor.Hear(kPoll), kAck);
    acceptor.Hear(SerialWords{2, 0});
    acceptor.Mute(true);
    EXPECT_EQ(acceptor.Hear(kPoll), SerialWords{});
    acceptor.Mute(false);
    EXPECT_EQ(acceptor.Hear(kPoll), kAck);
}

TEST(CctalkAcceptorTest, MaskAndMasterDecideWhichCoinsAreTakenAndCounted) {
    CctalkAcceptor acceptor;
    EXPECT_FALSE(acceptor.Insert(1)) << "power-up";
    acceptor.Hear(SerialWords{2, 2, 1, 231, 0x05, 0x80, 0x8F});
    for (unsigned coin = 0; coin <= 18; ++coin)
        EXPECT_EQ(acceptor.Insert(coin), coin == 1 || coin == 3 || coin == 16) << coin;
    const auto events = [&](const SerialWords& counterAndCoins) {
        const SerialWords answer = acceptor.Hear(kReadCredit);
        ASSERT_EQ(answer.size(), 16U);
        EXPECT_EQ(SerialWords(answer.begin() + 4, answer.end() - 1), counterAndCoins);
    };
    events({3, 16, 1, 3, 1, 1, 1, 0, 0, 0, 0});
    acceptor.Hear(SerialWords{2, 1, 1, 228, 0xFE, 26});
    EXPECT_FALSE(acceptor.Insert(3));
    acceptor.Hear(SerialWords{2, 1, 1, 228, 0x01, 23});
    for (int n = 3; n < 254; ++n)
        acceptor.Insert(1);
    acceptor.Insert(16);
    events({255, 16, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    acceptor.Insert(3);
    events({1, 3, 1, 16, 1, 1, 1, 1, 1, 1, 1});
    EXPECT_EQ(acceptor.AcceptedCoins(), 256U);
    EXPECT_EQ(acceptor.ReturnedCoins(), 18U);
}

TEST(PolledDeviceTest, RightFramesAreAnsweredWithTheNextEvent) {
    PolledDevice device;
    device.Queue(Bytes{0x41});
    device.Queue(Bytes(21, 9));  // too long
    device.Queue(Bytes(20, 9));
    device.Mute(true);
    EXPECT_EQ(device.Hear(SerialWords{2, 0, 2}), SerialWords{});
    device.Mute(false);
    EXPECT_EQ(device.Hear(SerialWords{2, 1, 0x10, 0x12}), SerialWords{}) << "wrong check";
    EXPECT_EQ(device.Hear(SerialWords{2, 1, 0x10, 0x13}), (SerialWords{2, 1, 0x41, 0x42}));
    SerialWords longest{2, 20};
    longest.insert(longest.end(), 20, 9);
    longest.push_back(22);
    EXPECT_EQ(device.Hear(SerialWords{2, 0, 2}), longest);
    EXPECT_EQ(device.Hear(SerialWords{0x1FF, 7, 2, 0, 2, 0x102, 2, 0}), (SerialWords{2, 0, 2}))
        << "noise around a frame, and the beginning of one";
    TickFor(device, 49);
    EXPECT_EQ(device.Hear(SerialWords{2}), (SerialWords{2, 0, 2}));
    device.Hear(SerialWords{2, 200, 1});
    TickFor(device, 50);
    EXPECT_TRUE(device.IsIdle());
    EXPECT_EQ(device.RightFrames(), 4u);
    EXPECT_EQ(device.WrongFrames(), 2u);
}

}  // namespace
}  // namespace simulator
