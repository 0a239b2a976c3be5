// Exchanges of an application with simulated boards, through device nodes and ioctl records.
#include <gtest/gtest.h>

#include "program.h"

namespace {

struct Case {
    const char* what;
    Words boards;
    const char* script;
    const char* output;
};

void Check(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(RunSimulated(c.boards, c.script), (Finished{0, c.output, ""}));
    }
}

// clang-format off
TEST(ExchangeTest, BoardsAreFoundWhereARealDriverHasThem) {
    Check({
        {"models and speeds",
         {"--board", "k44", "--board", "k40@12", "--board", "5=k50:id=3", "--firmware-running"},
         "cd /sys/class/Kovar; ls; for n in 0 1 5; do cat Kovar_$n/device/product "
         "Kovar_$n/device/speed; ls /dev/Kovar_$n; done; $CLIENT k44 5 75/1 74/6",
         "Kovar_0\nKovar_1\nKovar_5\nMarvane K44 Board\n480\n/dev/Kovar_0\n"
         "Marvane K40 Board\n12\n/dev/Kovar_1\nMarvane K50 Board\n480\n/dev/Kovar_5\n"
         "0 0000000300\n0 01\n"},
        {"numbers are given out around those asked for",
         {"--board", "k44", "--board", "0=k50", "--board", "k40"},
         "$SIM ctl list",
         "0 k50 480 plugged\n1 k44 480 plugged\n2 k40 480 plugged\n"},
    });
}

TEST(ExchangeTest, RecordsAreAnsweredAsByTheDriverOrRefused) {
    Check({
        {"K44", {"--board", "k44"},
         "$SIM ctl 0 input 5 on; $CLIENT k44 0 75/1 117/6/03000c0000010203 116/6/03000c0000 9/1 "
         "116/6/03000c0000/one-buffer 72/6//no-reply; $CLIENT k44 0 116/6/fc00010000 | wc -c",
         "0 2000000000\n0 -\n0 010203\n100 -\n0 010203\n0 -\n507\n"},
        {"K40", {"--board", "k40"},
         "$SIM ctl 0 input 5 on; $CLIENT k40 0 75/1 71/6/033412010203 70/6/033412 9/1; "
         "$CLIENT k40 0 70/6/3a0000 | wc -c",
         "7 4b002000000000\n2 4700\n5 4600010203\n2 0964\n124\n"},
        {"what no driver takes is logged, K44", {"--board", "k44"},
         "$CLIENT k44 0 75/0 75/8 75/4294967295 75/1//no-status 75/1//no-length 75/1//no-reply "
         "114/1/01/no-request 75/1//huge-request request/0x8401 request/0xC2108100 75/1; "
         "$SIM ctl 0 log",
         "EINVAL\nEINVAL\nEINVAL\nEFAULT\nEFAULT\nEFAULT\n"
         "EFAULT\nEINVAL\nENOTTY\nENOTTY\n0 0000000000\n"
         "0 75 - EINVAL -\n8 75 - EINVAL -\n4294967295 75 - EINVAL -\n1 75 - EFAULT -\n"
         "1 75 - EFAULT -\n1 75 - 0 0000000000\n1 114 - EFAULT -\n1 75 - EINVAL -\n"
         "1 75 - 0 0000000000\n"},
        {"what no driver takes is logged, K40", {"--board", "k40"},
         "$CLIENT k40 0 75/0 75/8 75/1//other-channel 75/1//write-nothing 75/1//write-too-long "
         "75/1//room-63 114/1/01/room-65 request/0x8400 75/1 75/1//write-longest; "
         "$SIM ctl 0 log | head -n 8",
         "EINVAL\nEINVAL\nEINVAL\nEINVAL\nEINVAL\nEINVAL\nEINVAL\nENOTTY\n"
         "7 4b000000000000\n2 4b66\n"
         "0 75 - EINVAL -\n8 75 - EINVAL -\n1 75 - EINVAL -\n1 75 - EINVAL -\n"
         "1 75 - EINVAL -\n1 75 - EINVAL -\n1 114 01 EINVAL -\n1 75 - 0 0000000000\n"},
        {"spoilt, K44", {"--board", "k44"},
         "$SIM ctl 0 input 0 on; $SIM ctl 0 fail 1 ioctl; $SIM ctl 0 fail 1 ioctl ETIMEDOUT; "
         "$SIM ctl 0 fail 1 status -2000000000; $SIM ctl 0 fail 1 short 2; "
         "$CLIENT k44 0 81/1 81/1 81/1 81/1 81/1",
         "EIO\nETIMEDOUT\n-2000000000 -\n0 0100\n0 0000000000\n"},
        {"spoilt, K40", {"--board", "k40"},
         "$SIM ctl 0 fail 1 status -16; $SIM ctl 0 fail 1 status 156; $SIM ctl 0 fail 1 echo; "
         "$SIM ctl 0 fail 1 short 3; $CLIENT k40 0 75/1 75/1 75/1 75/1 75/1",
         "2 4bf0\n2 4b9c\n7 b4000000000000\n5 4b00000000\n7 4b000000000000\n"},
    });
}

TEST(ExchangeTest, ThreadsAndProcessesAreKeptApart) {
    Check({
        {"processes on two boards",
         {"--board", "k44", "--board", "k40"},
         "{ for i in 1 2; do $CLIENT k40 1 threads/4/50/${i}0 & done; "
         "$CLIENT k44 0 threads/6/60/1; wait; } | sort",
         "200 of 200\n200 of 200\n360 of 360\n"},
    });
}

TEST(ExchangeTest, UnpluggedBoardIsGoneUntilReplugged) {
    Check({
        {"a descriptor from before stays dead",
         {"--board", "k44", "--board", "k40"},
         "$CLIENT k44 0 72/6 73/6 74/6 '!$SIM ctl 0 unplug' 75/1 reopen '!$SIM ctl 0 plug'; "
         "$CLIENT k44 0 '!$SIM ctl 0 unplug' '!$SIM ctl 0 plug' 75/1 reopen 75/1 74/6",
         "0 -\n0 -\n0 01\nENODEV\nENOENT\nENODEV\n0 0000000000\n0 00\n"},
        {"its entries are gone, the other board's are not",
         {"--board", "k44", "--board", "k40"},
         "$SIM ctl 0 unplug; ls /sys/class/Kovar; ls /dev/Kovar_0 2>/dev/null || echo gone; "
         "$CLIENT k40 1 75/1; $SIM ctl list; $SIM ctl 0 plug; ls /sys/class/Kovar; "
         "cat /sys/class/Kovar/Kovar_0/device/product",
         "Kovar_1\ngone\n7 4b000000000000\n0 k44 480 unplugged\n1 k40 480 plugged\n"
         "Kovar_0\nKovar_1\nMarvane K44 Board\n"},
    });
}

TEST(ExchangeTest, LateAnswerHoldsUpOnlyItsOwnBoard) {
    Check({
        {"the exchange behind it waits, the other board's and the control channel do not",
         {"--board", "k44", "--board", "k50"},
         "$SIM ctl 0 fail 2 delay 700\n"
         "($CLIENT k44 0 72/6 >/dev/null; echo late) &\n"
         "until $SIM ctl 0 log | grep -q ' 72 '; do :; done\n"
         "($CLIENT k44 0 75/1 >/dev/null; echo behind) &\n"
         "$CLIENT k44 1 75/1; wait; $SIM ctl 0 log",
         "0 0000000000\nlate\nbehind\n6 72 - 0 -\n1 75 - 0 0000000000\n"},
        {"unplugged meanwhile",
         {"--board", "k44"},
         "$SIM ctl 0 fail 1 delay 500; $CLIENT k44 0 72/6 & "
         "until $SIM ctl 0 log | grep -q ' 72 '; do :; done; $SIM ctl 0 unplug; wait",
         "ENODEV\n"},
        {"clients that die meanwhile are forgotten",
         {"--board", "k44"},
         "$SIM ctl 0 fail 1 delay 700; $CLIENT k44 0 72/6 & late=$!\n"
         "until $SIM ctl 0 log | grep -q ' 72 '; do :; done\n"
         "$CLIENT k44 0 82/1 & behind=$!; sleep 0.2; kill -9 $late $behind; wait 2>/dev/null\n"
         "$CLIENT k44 0 75/1; $SIM ctl 0 log",
         "0 0000000000\n6 72 - 0 -\n1 75 - 0 0000000000\n"},
    });
}
// clang-format on

}  // namespace
