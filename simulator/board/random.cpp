// The random-number commands.
#include "board/random.h"

#include <random>

#include "terms/byte_order.h"

namespace simulator {

RandomSource SeededRandom(unsigned seed) {
    return [generator = std::minstd_rand(seed)]() mutable {
        return static_cast<std::uint16_t>(generator() >> 8);  // the low bits are poor
    };
}

Answer BoardRandom::Enable(ByteView payload) {
    argument = LowFirst(payload);
    enabled = true;
    return {};
}

Answer BoardRandom::Disable(ByteView) {
    enabled = false;
    return {};
}

Answer BoardRandom::Read(ByteView) {
    if (!enabled) return Refuse(status::kSwitchedOff);
    Answer answer;
    AppendLowFirst(answer.reply, source());
    return answer;
}

void BoardRandom::PowerUp() {
    enabled = false;
    argument = 0;
}

}  // namespace simulator
