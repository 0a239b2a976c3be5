// The words of one line, taken from the left and checked.
#ifndef MARVANE_SIMULATOR_CONTROL_WORD_LIST_H
#define MARVANE_SIMULATOR_CONTROL_WORD_LIST_H

#include <charconv>
#include <span>
#include <stdexcept>
#include <string>

namespace simulator {

/// Words that nobody understands.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Words that are understood and cannot be carried out.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class WordList {
public:
    explicit WordList(std::span<const std::string> lineWords) : words(lineWords) {}

    bool IsEmpty() const { return words.empty(); }

    /// what names the word that should come, for the message.
    std::string Word(const std::string& what) {
        if (words.empty()) throw UsageError(what + " is missing");
        std::string word = words.front();
        words = words.subspan(1);
        return word;
    }

    /// Takes the next word if it is this one.
    bool Take(const std::string& word) {
        if (words.empty() || words.front() != word) return false;
        words = words.subspan(1);
        return true;
    }

    int Number(const std::string& what, int least, int most) {
        const std::string word = Word(what);
        int number = 0;
        const char* end = word.data() + word.size();
        const auto [stop, error] = std::from_chars(word.data(), end, number);
        if (error != std::errc() || stop != end || number < least || number > most) {
            throw UsageError(what + " must be a number from " + std::to_string(least) + " to " +
                             std::to_string(most) + ", not '" + word + "'");
        }
        return number;
    }

    /// True for the one word, false for the other.
    bool Either(const std::string& what, const std::string& one, const std::string& other) {
        const std::string word = Word(what);
        if (word != one && word != other) {
            throw UsageError(what + " must be " + one + " or " + other + ", not '" + word + "'");
        }
        return word == one;
    }

    /// The next word, which must be this one.
    void Exactly(const std::string& what, const std::string& word) {
        const std::string next = Word(what);
        if (next != word) throw UsageError(what + " must be " + word + ", not '" + next + "'");
    }

    void End() const {
        if (!words.empty()) throw UsageError("nothing may follow before '" + words.front() + "'");
    }

private:
    std::span<const std::string> words;
};

}  // namespace simulator

#endif
