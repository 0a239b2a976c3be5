// The devices that a simulated board finds on its serial ports.
#include "board_conversation.h"
#include "line/cctalk_acceptor.h"
#include "line/polled_device.h"

namespace simulator {
namespace {

template <class Device>
class DeviceTest : public Conversation {
protected:
    DeviceTest() {
        Word("hear", [this](auto& n) { return device.Hear(SerialWords(n.begin(), n.end())); });
        Word("mute", [this](auto& n) { device.Mute(n.at(0) != 0); });
        Word("idle", [this](auto&) { return device.IsIdle(); });
        Word("wrong", [this](auto&) { return device.WrongFrames(); });
        // Milliseconds pass, in which it says nothing.
        Word("pass", [this](auto& n) {
            SerialWords said;
            for (unsigned ms = 0; ms < n.at(0); ++ms)
                std::ranges::copy(device.Tick(), std::back_inserter(said));
            return said;
        });
    }

    Device device;
};

using CctalkAcceptorTest = DeviceTest<CctalkAcceptor>;
using PolledDeviceTest = DeviceTest<PolledDevice>;

TEST_F(CctalkAcceptorTest, FramesAreAnsweredOrMetWithSilence) {
    Talk(R"(
        hear 2 0 1 254 255       = 1 0 2 0 253  # simple poll
        hear 0 0 1 254 1         = 1 0 2 0 253; hear 0 0 0 0 0; idle = 1  # to everybody; no header
        hear 2 0 1 242 11        = 1 3 2 0 0x40 0xE2 0x01 0xD7  # serial number
        hear 2 2 1 231 5 128 143 = 1 0 2 0 253; hear 2 0 1 230 23 = 1 2 2 0 5 128 118  # mask
        hear 2 1 1 228 0 24      = 1 0 2 0 253        # master
        hear 2 0 1 229 24        = 1 11 2 0 0*11 242  # events, none
        hear 2 0 1 254 255  2 0 1 227 26 = 1 0 2 0 253  1 1 2 0 0 252
        hear 2 0 1 1 252         = 1 0 2 0 253; hear 2 0 1 230 23 = 1 2 2 0 0 0 251  # reset
        # Wrong check, other address, unknown header, a poll with data.
        wrong = 0; hear 2 0 1 254 254; wrong = 1
        hear 3 0 1 254 254; hear 2 0 1 200 53; hear 2 1 1 254 5 249; idle = 1; wrong = 1)");
}

TEST_F(CctalkAcceptorTest, FramesComeInPiecesUnlessSilenceIsBetween) {
    Talk(R"(
        hear 2 0 1; idle = 0; pass 49; hear 254; pass 49; hear 255 = 1 0 2 0 253
        hear 2 200 1; pass 50; idle = 1; hear 2 0 1 254 255 = 1 0 2 0 253
        hear 2 0; mute 1; hear 2 0 1 254 255; mute 0; hear 2 0 1 254 255 = 1 0 2 0 253)");
}

TEST_F(CctalkAcceptorTest, MaskAndMasterDecideWhichCoinsAreTakenAndCounted) {
    Word("insert", [this](auto& n) { return device.Insert(n.at(0)); });
    Talk("insert 1 = 0; hear 2 2 1 231 0x05 0x80 0x8F = 1 0 2 0 253");
    for (unsigned coin = 0; coin <= 18; ++coin)
        EXPECT_EQ(device.Insert(coin), coin == 1 || coin == 3 || coin == 16) << coin;
    Talk(R"(
        hear 2 0 1 229 24 = 1 11 2 0 3 16 1 3 1 1 1 0 0 0 0 216
        hear 2 1 1 228 0xFE 26 = 1 0 2 0 253; insert 3 = 0
        hear 2 1 1 228 0x01 23 = 1 0 2 0 253)");
    for (int n = 3; n < 254; ++n)
        device.Insert(1);
    Talk(R"(
        insert 16 = 1; hear 2 0 1 229 24 = 1 11 2 0 255 16 1 1 1 1 1 1 1 1 1 218
        insert 3 = 1; hear 2 0 1 229 24 = 1 11 2 0 1 3 1 16 1 1 1 1 1 1 1 214)");
    EXPECT_EQ(device.AcceptedCoins(), 256U);
    EXPECT_EQ(device.ReturnedCoins(), 18U);
}

TEST_F(PolledDeviceTest, RightFramesAreAnsweredWithTheNextEvent) {
    Word("queue", [this](auto& n) { device.Queue(BytesOf(n)); });
    Talk(R"(
        queue 0x41; queue 9*21; queue 9*20  # one is too long
        mute 1; hear 2 0 2; mute 0; hear 2 1 0x10 0x12; wrong = 1
        hear 2 1 0x10 0x13 = 2 1 0x41 0x42; hear 2 0 2 = 2 20 9*20 22
        # Noise around a frame, and the beginning of one.
        hear 0x1FF 7 2 0 2 0x102 2 0 = 2 0 2; pass 49; hear 2 = 2 0 2
        hear 2 200 1; pass 50; idle = 1; wrong = 2)");
    EXPECT_EQ(device.RightFrames(), 4u);
}

}  // namespace
}  // namespace simulator
