// Words for the inputs.
#include "control_word.h"

namespace simulator {
namespace {

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

// clang-format off
constexpr ControlWord kWords[] = {
    {"input",       "INPUT on|off ...",   "holds inputs 0 to 32 at a level", SetInputs},
    {"contact",     "INPUT on|off ...",   "moves contacts too shortly for the board's filter: "
                                          "only the raw image shows it", SetContacts},
    {"multiplexed", "SWITCH on|off ...",  "sets switches 0 to 95 of the multiplexed matrix", SetMultiplexed},
    {"identity",    "0..7",               "sets the identity switch, inputs 24 to 26", SetIdentity},
};
// clang-format on

}  // namespace

std::span<const ControlWord> InputWords() {
    return kWords;
}

}  // namespace simulator
