/**
 * @file arguments.h
 * @brief The numbers of a command line. A wrong one ends the program before it touches a board.
 */
#ifndef ARGUMENTS_H
#define ARGUMENTS_H

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

constexpr int kWrongUsage = 64;  // exit status, as sysexits.h has it
constexpr unsigned kHighestDevice = 15;

/** Takes one argument after the other; each may be left out together with those behind it. */
class Arguments {
public:
    /** Where help is asked for, prints it and ends the program with status 0. */
    Arguments(int argc, char** argv, const char* help) : next(argv + 1), end(argv + argc) {
        const char* slash = std::strrchr(argv[0], '/');
        program = slash == nullptr ? argv[0] : slash + 1;
        for (char** word = next; word < end; ++word) {
            if (std::strcmp(*word, "--help") != 0 && std::strcmp(*word, "-h") != 0) continue;
            std::fputs(help, stdout);
            std::exit(0);
        }
    }

    unsigned Whole(const char* name, unsigned most, unsigned without) {
        return Number(name, "whole number", most, without);
    }
    double Seconds(const char* name, double without) {
        return Number(name, "number of seconds", 1e9, without);
    }
    int Device() { return static_cast<int>(Whole("DEVICE", kHighestDevice, 0)); }

    /** No argument may be left. */
    void End() const {
        if (next < end) Refuse(std::string("nothing is to follow here, but there is ") + *next);
    }

private:
    template <class Value>
    Value Number(const char* name, const char* kind, Value most, Value without) {
        if (next >= end) return without;
        const char* text = *next++;
        const char* textEnd = text + std::strlen(text);
        Value value{};
        const auto [rest, error] = std::from_chars(text, textEnd, value);
        if (error == std::errc() && rest == textEnd && value >= 0 && value <= most) return value;
        char limit[32];
        std::snprintf(limit, sizeof limit, "%.0f", static_cast<double>(most));
        Refuse(std::string(name) + ": '" + text + "' is no " + kind + " from 0 to " + limit);
    }

    [[noreturn]] void Refuse(const std::string& what) const {
        std::fprintf(stderr, "%s: %s; %s --help tells more\n", program, what.c_str(), program);
        std::exit(kWrongUsage);
    }

    const char* program;
    char** next;
    char** end;
};

#endif  // ARGUMENTS_H
