// Writes what is configured, and what is under way, of coins, hoppers, reels and recordings.
#include "report/machine.h"

#include <string>

namespace simulator {

using Json = nlohmann::ordered_json;

namespace {

Json StepsOrEndless(const std::optional<unsigned>& steps) {
    return steps ? Json(*steps) : Json("endless");
}

Json ReelOf(const Reel& reel, const std::optional<Spin>& waiting) {
    constexpr const char* kRamps[] = {"none", "up", "down"};
    return {
        {"configured", reel.IsConfigured()},
        {"steps", reel.Steps()},
        {"stepMs", reel.StepMs()},
        {"position", reel.Position()},
        {"turning", reel.IsTurning()},
        {"stepsLeft", StepsOrEndless(reel.StepsLeft())},
        {"ramp", kRamps[static_cast<unsigned>(reel.Ramping())]},
        {"waiting", waiting ? StepsOrEndless(waiting->steps) : Json()},
    };
}

}  // namespace

Json PulsedInputsOf(const BoardPulsedInputs& pulsedInputs) {
    Json report = Json::object();
    for (unsigned n = 0; n < kInputCount; ++n) {
        const auto& settings = pulsedInputs.Settings(n);
        if (!settings) continue;
        report[std::to_string(n)] = {
            {"pulseParameter", settings->pulseParameter},
            {"activeState", settings->activeState},
            {"extendedPulseParameter", settings->extendedPulseParameter},
            {"checking", pulsedInputs.IsChecking(n)},
            {"counter", pulsedInputs.Counter(n)},
        };
    }
    return report;
}

Json HoppersOf(const BoardHoppers& hoppers, const BoardReleases& releases) {
    Json report = Json::object();
    for (unsigned n = 0; n < kInputCount; ++n) {
        const Hopper* hopper = hoppers.Find(n);
        if (hopper == nullptr) continue;
        const auto& release = releases.On(n);
        report[std::to_string(n)] = {
            {"coins", hopper->coins},
            {"rate", hopper->rate},
            {"jammed", hopper->jammed},
            {"dropped", hopper->dropped},
            {"status", release ? static_cast<unsigned>(release->status) : 0},
            {"output", release ? Json(release->output) : Json()},
            {"wanted", release ? release->wanted : 0},
            {"paid", release ? release->paid : 0},
        };
    }
    return report;
}

Json ReelsOf(const BoardReels& reels) {
    Json report = {{"synchronised", reels.IsSynchronised()}, {"dutyCycle", reels.DutyCycle()}};
    for (unsigned n = 0; n < kReelCount; ++n)
        report[std::to_string(n)] = ReelOf(reels.At(n), reels.Waiting(n));
    return report;
}

Json RecordingOf(const BoardRecording& recording) {
    const auto& current = recording.Current();
    if (!current) return nullptr;
    Json slots = Json::array();
    for (const std::uint8_t slot : current->slots)
        slots.push_back(slot == kEmptySlot ? Json() : Json(slot));
    return {
        {"inputs", slots},
        {"address", current->address},
        {"length", current->length},
        {"periodMs", current->period.count()},
        {"status", static_cast<unsigned>(current->state)},
        {"samples", current->samples},
    };
}

}  // namespace simulator
