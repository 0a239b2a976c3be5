// Words for what moves in the cabinet: hoppers and reels.
#include "control/word.h"

namespace simulator {
namespace {

std::string SetHopper(Target target, WordList words) {
    const auto input =
        static_cast<unsigned>(words.Number("the hopper's input", 0, kInputCount - 1));
    const std::string what = words.Word("what happens to the hopper");
    BoardHoppers& hoppers = target.device.board.hoppers;
    if (what == "coins") {
        const int coins = words.Number("the number of coins", 0, kMostHopperCoins);
        words.End();
        hoppers.At(input).coins = static_cast<unsigned>(coins);
    } else if (what == "rate") {
        const int rate = words.Number("the number of coins a second", 1, kMostHopperRate);
        words.End();
        hoppers.At(input).rate = static_cast<unsigned>(rate);
    } else if (what == "jam" || what == "free") {
        words.End();
        hoppers.At(input).jammed = what == "jam";
    } else {
        throw UsageError("'" + what + "' is not coins, rate, jam or free");
    }
    return {};
}

std::string PlaceReel(Target target, WordList words) {
    BoardReels& reels = target.device.board.reels;
    const auto reel = static_cast<unsigned>(words.Number("the reel", 0, kReelCount - 1));
    words.Exactly("what happens to the reel", "position");
    const int most = static_cast<int>(reels.At(reel).Steps()) - 1;
    const int position = words.Number("the position", 0, most);
    words.End();
    reels.Place(reel, static_cast<unsigned>(position));
    return {};
}

// clang-format off
constexpr ControlWord kWords[] = {
    {"hopper",      "INPUT coins N",      "the hopper on an input holds N coins, 500 at first", SetHopper},
    {"hopper",      "INPUT rate N",       "it pays N coins a second while it is driven, 10 at first", SetHopper},
    {"hopper",      "INPUT jam",          "it jams: no coin falls", SetHopper},
    {"hopper",      "INPUT free",         "it is jammed no more", SetHopper},
    {"reel",        "REEL position N",    "turns reel 0 to 2 to a position by hand", PlaceReel},
};
// clang-format on

}  // namespace

std::span<const ControlWord> MachineWords() {
    return kWords;
}

}  // namespace simulator
