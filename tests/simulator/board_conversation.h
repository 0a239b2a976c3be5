// A simulated board and its time, and what it is told and answers.
#ifndef MARVANE_TESTS_SIMULATOR_BOARD_CONVERSATION_H
#define MARVANE_TESTS_SIMULATOR_BOARD_CONVERSATION_H

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "board/board.h"

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

inline void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << "status " << answer.status << ", reply " << testing::PrintToString(answer.reply);
}

/// A command to the board, and the answer that must come.
struct Step {
    int afterMs;  // since the step before
    std::uint32_t channel;
    std::uint8_t command;
    Bytes payload = {}, reply = {};
    int status = 0;
};

class BoardTest : public testing::Test {
protected:
    /// Another board; time goes on.
    void Use(BoardOptions options) {
        options.time = [this] { return now; };
        board = Board(options);
    }
    void Wait(int ms) {
        now += std::chrono::milliseconds(ms);
        board.Advance();
    }
    Answer Send(std::uint32_t channel, std::uint8_t command, const Bytes& payload = {}) {
        return board.Handle(command, channel, payload);
    }
    void Talk(const std::vector<Step>& steps) {
        for (std::size_t n = 0; n < steps.size(); ++n) {
            const Step& step = steps[n];
            SCOPED_TRACE(testing::Message() << "step " << n << ", command " << int{step.command});
            now += std::chrono::milliseconds(step.afterMs);
            EXPECT_EQ(Send(step.channel, step.command, step.payload),
                      (Answer{step.status, step.reply}));
        }
    }

    Moment now{std::chrono::seconds(0x01020300)};  // 0 modulo 256 in ms, too
    Board board{{.time = [this] { return now; }}};
};

}  // namespace simulator

#endif
