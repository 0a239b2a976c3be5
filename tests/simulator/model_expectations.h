// What the board model's tests share.
#ifndef MARVANE_TESTS_SIMULATOR_MODEL_EXPECTATIONS_H
#define MARVANE_TESTS_SIMULATOR_MODEL_EXPECTATIONS_H

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "board.h"

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

inline void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << "status " << answer.status << ", reply " << testing::PrintToString(answer.reply);
}

inline Answer Accepted(Bytes reply = {}) {
    return {0, std::move(reply)};
}
inline Answer Refused(int status) {
    return {status};
}

}  // namespace simulator

#endif
