// Words for the inputs.
#include "control/word.h"

namespace simulator {
namespace {

constexpr int kMostCoins = 1000;
constexpr int kCoinsPerSecond = 25;
constexpr int kMostCoinsPerSecond = 100;
constexpr unsigned kMostPendingCoins = 10000;

std::string SetInputs(Target target, WordList words) {
    SetEach(words, "input", kInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.Set(n, level); });
    return {};
}

std::string SetContacts(Target target, WordList words) {
    SetEach(words, "input", kInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.SetContact(n, level); });
    return {};
}

std::string SetMultiplexed(Target target, WordList words) {
    SetEach(words, "multiplexed input", kMultiplexedInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.SetMultiplexed(n, level); });
    return {};
}

std::string SetIdentity(Target target, WordList words) {
    const int identity = words.Number("the identity", 0, kIdentityCount - 1);
    words.End();
    target.device.board.inputs.SetIdentity(static_cast<unsigned>(identity));
    return {};
}

std::string InsertCoins(Target target, WordList words) {
    const int input = words.Number("the input", 0, kInputCount - 1);
    const int count = words.Number("the number of coins", 1, kMostCoins);
    const int perSecond =
        words.IsEmpty() ? kCoinsPerSecond
                        : words.Number("the number of coins a second", 1, kMostCoinsPerSecond);
    words.End();
    CoinPulses& pulses = target.device.board.pulses;
    const auto number = static_cast<unsigned>(input);
    if (pulses.Pending(number) + static_cast<unsigned>(count) > kMostPendingCoins) {
        throw Refusal("no more than 10000 coins can be on their way to an input");
    }
    pulses.Add(number, static_cast<unsigned>(count), std::chrono::milliseconds(1000 / perSecond));
    return {};
}

// clang-format off
constexpr ControlWord kWords[] = {
    {"input",       "INPUT on|off ...",   "holds inputs 0 to 32 at a level", SetInputs},
    {"contact",     "INPUT on|off ...",   "moves contacts too shortly for the board's filter: "
                                          "only the raw image shows it", SetContacts},
    {"multiplexed", "SWITCH on|off ...",  "sets switches 0 to 95 of the multiplexed matrix", SetMultiplexed},
    {"identity",    "0..7",               "sets the identity switch, inputs 24 to 26", SetIdentity},
    {"coin",        "INPUT N [PER_SECOND]", "N coins pass: pulses on the input, 25 a second by default", InsertCoins},
};
// clang-format on

}  // namespace

std::span<const ControlWord> InputWords() {
    return kWords;
}

}  // namespace simulator
