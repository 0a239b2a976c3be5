// Counts the coins as they fall, and stops.
#include "board/releases.h"

#include <algorithm>

#include "terms/byte_order.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRestUnit{10};
constexpr milliseconds kPatience{1000};

bool IsPaying(const std::optional<Release>& release) {
    return release && release->status == ReleaseStatus::kPaying;
}

// A stopped one waits for the end of the pulse under way.
bool IsWatching(const std::optional<Release>& release) {
    return release && (release->status == ReleaseStatus::kPaying ||
                       (release->status == ReleaseStatus::kIdle && release->detector.IsInPulse()));
}

bool HasRunDry(const Release& release) {
    return release.waited >= (release.detector.IsInPulse() ? 2 * kPatience : kPatience);
}

void End(Release& release, ReleaseStatus status, BoardOutputs& outputs) {
    release.status = status;
    outputs.Drive(release.output, false);
}

void TakeCoin(Release& release, BoardOutputs& outputs) {
    ++release.paid;
    release.waited = {};
    if (release.status != ReleaseStatus::kPaying) return;
    if (release.paid == release.wanted) {
        End(release, ReleaseStatus::kPaid, outputs);
        return;
    }
    release.restLeft = release.rest;
    outputs.Drive(release.output, release.rest.count() == 0);
}

void Wait(Release& release, BoardOutputs& outputs) {
    if (release.restLeft.count() > 0) {
        release.restLeft -= kTick;
        outputs.Drive(release.output, release.restLeft.count() == 0);
        return;
    }
    release.waited += kTick;
    if (HasRunDry(release)) End(release, ReleaseStatus::kFailed, outputs);
}

}  // namespace

bool BoardReleases::IsTaken(std::uint8_t input, std::uint8_t output) const {
    if (IsPaying(releases[input])) return true;
    return std::ranges::any_of(releases, [output](const auto& release) {
        return IsPaying(release) && release->output == output;
    });
}

Answer BoardReleases::Begin(ByteView payload, const BoardInputs& inputs, BoardOutputs& outputs) {
    const std::uint8_t input = payload[0];
    const std::uint8_t output = payload[3];
    if (input >= kInputCount || output >= kOutputCount) return Refuse(status::kOutOfRange);
    if (IsTaken(input, output)) return Refuse(status::kBusy);

    const PulseSettings settings{
        .pulseParameter = payload[1],
        .activeState = payload[2],
        .extendedPulseParameter = payload.size() > 7 ? payload[7] : std::uint8_t{0},
    };
    const unsigned wanted = HighFirst(payload.subspan(4, 2));
    releases[input] = Release{
        .status = wanted == 0 ? ReleaseStatus::kPaid : ReleaseStatus::kPaying,
        .output = output,
        .wanted = wanted,
        .rest = payload[6] * kRestUnit,
        .detector = PulseDetector(settings, inputs.Level(input)),
    };
    if (wanted > 0) outputs.Drive(output, true);
    return {};
}

Answer BoardReleases::Stop(ByteView payload, BoardOutputs& outputs) {
    const std::uint8_t input = payload[0];
    if (input >= kInputCount) return Refuse(status::kOutOfRange);
    if (IsPaying(releases[input])) End(*releases[input], ReleaseStatus::kIdle, outputs);
    return {};
}

bool BoardReleases::IsDriving(unsigned input) const {
    return IsPaying(releases[input]) && releases[input]->restLeft.count() == 0;
}

InputStatus BoardReleases::Status(unsigned input) const {
    const auto& release = releases[input];
    if (!release) return {};
    return {static_cast<std::uint8_t>(release->status), static_cast<std::uint8_t>(release->paid)};
}

bool BoardReleases::IsIdle(const BoardInputs& inputs) const {
    for (unsigned n = 0; n < kInputCount; ++n) {
        if (IsPaying(releases[n])) return false;
        if (IsWatching(releases[n]) && !releases[n]->detector.IsSettled(inputs.Level(n))) {
            return false;
        }
    }
    return true;
}

void BoardReleases::Tick(const BoardInputs& inputs, BoardOutputs& outputs) {
    for (unsigned n = 0; n < kInputCount; ++n) {
        if (!IsWatching(releases[n])) continue;
        Release& release = *releases[n];
        if (release.detector.Tick(inputs.Level(n))) {
            TakeCoin(release, outputs);
        } else if (release.status == ReleaseStatus::kPaying) {
            Wait(release, outputs);
        }
    }
}

}  // namespace simulator
