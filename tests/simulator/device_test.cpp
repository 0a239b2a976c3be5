// Faults that were asked for, unplugging, and the log.
#include "device.h"

#include <cerrno>

#include "board_conversation.h"

namespace simulator {
namespace {

Outcome ReadInputs(Device& device) {
    return device.Exchange(75, 1, {});
}

TEST(DeviceTest, SpoilsAsManyExchangesAsAskedInOrder) {
    Device device(0, {.model = Model::kK40});
    device.board.inputs.Set(0, true);
    device.Spoil(2, {Fault::Kind::kIoctl, EPIPE});
    device.Spoil(1, {Fault::Kind::kStatus, -16});
    device.Spoil(1, {Fault::Kind::kEcho});
    device.Spoil(1, {Fault::Kind::kShort, 2});
    device.Spoil(1, {Fault::Kind::kDelay, 30});
    EXPECT_EQ(device.ExchangesToSpoil(), 6u);

    EXPECT_EQ(ReadInputs(device).error, EPIPE);
    EXPECT_EQ(ReadInputs(device).error, EPIPE);
    EXPECT_EQ(ReadInputs(device).answer, Answer{-16});
    EXPECT_EQ(ReadInputs(device).echo, 180);
    EXPECT_EQ(ReadInputs(device).answer, (Answer{0, {1, 0}}));
    EXPECT_EQ(ReadInputs(device).delay.count(), 30);

    const Outcome good = ReadInputs(device);
    EXPECT_EQ(good.error, 0);
    EXPECT_EQ(good.echo, 75);
    EXPECT_EQ(good.delay.count(), 0);
    EXPECT_EQ(good.answer, (Answer{0, {1, 0, 0, 0, 0}}));

    device.Spoil(5, {Fault::Kind::kIoctl, EIO});
    device.StopSpoiling();
    EXPECT_EQ(ReadInputs(device).error, 0);
}

TEST(DeviceTest, BoardHearsNothingOfAFailedIoctl) {
    Device device(0, {.model = Model::kK44});
    device.board.inputs.Set(0, true);
    device.Spoil(1, {Fault::Kind::kIoctl, EIO});
    device.Exchange(81, 1, {});
    EXPECT_EQ(device.Exchange(81, 1, {}).answer, (Answer{0, {1, 0, 0, 0, 0}}));
}

TEST(DeviceTest, UnpluggedBoardHearsNothingAndComesBackWithoutProgram) {
    Device device(0, {.model = Model::kK44});
    device.Exchange(72, 6, {});
    device.Exchange(73, 6, {});
    device.Spoil(1, {Fault::Kind::kIoctl, EIO});
    device.Unplug();
    EXPECT_EQ(ReadInputs(device).error, ENODEV);
    EXPECT_EQ(device.ExchangesToSpoil(), 1u);
    EXPECT_EQ(device.Log().size(), 2u);
    device.StopSpoiling();

    device.Plug();
    device.Plug();  // is plugged in already
    EXPECT_EQ(device.PlugCount(), 1u);
    EXPECT_EQ(device.Exchange(74, 6, {}).answer, (Answer{0, {0}}));
}

TEST(DeviceTest, PayloadIsBounded) {
    Device device(0, {.model = Model::kK44});
    EXPECT_EQ(device.Exchange(75, 1, Bytes(4096)).error, 0);
    EXPECT_EQ(device.Exchange(75, 1, Bytes(4097)).error, EINVAL);
}

TEST(DeviceTest, LogKeepsTheLastExchanges) {
    Device device(0, {.model = Model::kK44});
    device.Exchange(114, 1, Bytes{2});
    ASSERT_EQ(device.Log().size(), 1u);
    EXPECT_EQ(device.Log()[0].channel, 1u);
    EXPECT_EQ(device.Log()[0].command, 114);
    EXPECT_EQ(device.Log()[0].payload, Bytes{2});
    EXPECT_EQ(device.Log()[0].answer, Answer{103});

    for (int i = 0; i < 4096; ++i)
        ReadInputs(device);
    EXPECT_EQ(device.Log().size(), 4096u);
    EXPECT_EQ(device.Log().front().command, 75);
    EXPECT_EQ(device.ForgottenExchanges(), 1u);

    device.ClearLog();
    EXPECT_TRUE(device.Log().empty());
    EXPECT_EQ(device.ForgottenExchanges(), 0u);
}

}  // namespace
}  // namespace simulator
