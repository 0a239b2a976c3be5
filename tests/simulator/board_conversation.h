// What is said to a simulated board and done to it, and what comes of that, told as text:
//
//     set 5 1; +119 1/113 5 = 1 0  # by then no coin has fallen
//     1/113 24 !103
//
// A step ends at a semicolon or with its line. +119 lets so many milliseconds pass. 1/113 is a
// channel and a command, the numbers behind it the payload, those behind = the reply, and !103 the
// status where it is not 0. Any other word is one of the fixture's. 0*57 is a 0, 57 times, and A
// is 65.
#ifndef MARVANE_TESTS_SIMULATOR_BOARD_CONVERSATION_H
#define MARVANE_TESTS_SIMULATOR_BOARD_CONVERSATION_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "board/board.h"

namespace simulator {

using namespace std::string_literals;

using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<unsigned>;

inline Numbers NumbersIn(const std::string& text) {
    Numbers numbers;
    std::istringstream stream(text);
    for (std::string token; stream >> token;) {
        const std::size_t star = token.find('*');
        const std::size_t times = star == token.npos ? 1 : std::stoul(token.substr(star + 1));
        const bool isLetter = std::isalpha(token[0]) != 0;
        numbers.insert(numbers.end(), times,
                       isLetter ? static_cast<unsigned char>(token[0])
                                : static_cast<unsigned>(std::stoul(token, {}, 0)));
    }
    return numbers;
}

inline Bytes BytesOf(const Numbers& numbers) {
    return {numbers.begin(), numbers.end()};
}

inline std::string Text(std::size_t number) {
    return " " + std::to_string(number);
}
template <std::ranges::range Range>
std::string Text(const Range& numbers) {
    std::string text;
    for (const auto number : numbers)
        text += Text(number);
    return text;
}

inline std::string Text(const Answer& answer) {
    return answer.status == 0 ? Text(answer.reply) : "!" + std::to_string(answer.status);
}

class Conversation : public testing::Test {
protected:
    /// Teaches a word that acts, or tells numbers.
    template <class Act>
    void Word(const std::string& word, Act act) {
        vocabulary[word] = [act](const Numbers& numbers) {
            if constexpr (!std::is_void_v<decltype(act(numbers))>) return Text(act(numbers));
            act(numbers);
            return ""s;
        };
    }
    virtual std::string Do(const std::string& word, const Numbers& numbers) {
        return vocabulary.contains(word) ? vocabulary[word](numbers) : "no such word";
    }
    void Talk(const std::string& text, const char* file = __builtin_FILE(),
              int fileLine = __builtin_LINE()) {
        std::istringstream lines(text);
        for (std::string line, step; std::getline(lines, line);) {
            std::istringstream steps(line.substr(0, line.find('#')));
            while (std::getline(steps, step, ';')) {
                const testing::ScopedTrace trace(file, fileLine, step);
                Take(step);
            }
        }
    }

private:
    void Take(const std::string& step) {
        const std::size_t end = std::min(step.find_first_of("=!"), step.size());
        std::istringstream said(step.substr(0, end)), told(step.substr(end));
        std::string word, numbers, expected;
        said >> word;
        if (word.starts_with('+')) {
            Do("+", NumbersIn(word));
            word.clear();
            said >> word;
        }
        std::getline(said, numbers);
        told >> expected;
        if (expected == "=") expected = Text(NumbersIn(step.substr(end + 1)));
        if (word.empty() && expected.empty()) return;
        EXPECT_EQ(Do(word, NumbersIn(numbers)), expected);
    }

    std::map<std::string, std::function<std::string(const Numbers&)>> vocabulary;
};

class BoardModelTest : public Conversation {
protected:
    BoardModelTest() {
        Word("set", [this](auto& n) { board.inputs.Set(n.at(0), n.at(1) != 0); });
        Word("open", [this](auto& n) { board.clock.SetSwitch(n.at(0), true); });
        Word("close", [this](auto& n) { board.clock.SetSwitch(n.at(0), false); });
        Word("fail-battery", [this](auto&) { board.clock.FailBattery(); });
        Word("fail-clock", [this](auto&) { board.clock.FailClock(); });
        Word("power-down", [this](auto&) { board.PowerDown(); });
        Word("power-up", [this](auto&) { board.PowerUp(); });
    }

    /// Another board; time goes on.
    void Use(BoardOptions options) {
        options.time = [this] { return now; };
        board = Board(options);
    }
    std::string Do(const std::string& word, const Numbers& numbers) override {
        if (word.find('/') != word.npos) return Text(Send(word, BytesOf(numbers)));
        if (word == "+") {
            now += std::chrono::milliseconds(numbers.at(0));
            return "";
        }
        board.Advance();
        return Conversation::Do(word, numbers);
    }
    Answer Send(const std::string& command, const Bytes& payload) {
        std::istringstream numbers(command);
        std::uint32_t channel = 0;
        unsigned code = 0;
        numbers >> channel;
        numbers.ignore() >> code;
        return board.Handle(static_cast<std::uint8_t>(code), channel, payload);
    }

    Moment now{std::chrono::seconds(0x01020300)};  // 0 modulo 256 in ms, too
    Board board{{.time = [this] { return now; }}};
};

}  // namespace simulator

#endif
