// Runs marvane-sim and other programs, and collects what they print.
#ifndef MARVANE_TESTS_SIMULATOR_PROGRAM_H
#define MARVANE_TESTS_SIMULATOR_PROGRAM_H

#include <sys/types.h>

#include <ostream>
#include <string>
#include <vector>

struct Finished {
    int status;  // exit status, or 128 + signal
    std::string output;
    std::string complaints;  // what it wrote to the standard error

    bool operator==(const Finished&) const = default;
};

void PrintTo(const Finished& finished, std::ostream* stream);

using Words = std::vector<std::string>;

/// A program that runs until it has ended or the object's end asks it to.
class Program {
public:
    explicit Program(const Words& words);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void Signal(int number) const;
    /// Reads until the program has printed a line.
    std::string ReadLine();
    Finished Wait();
    pid_t Process() const { return process; }

private:
    pid_t process;
    int output[2];
    int complaints[2];
};

Finished RunProgram(const Words& words);

/// marvane-sim with the words before a shell that runs the script; in the script, $SIM is
/// marvane-sim and $CLIENT is raw_client.
Words Simulated(Words boards, const std::string& script);
Finished RunSimulated(const Words& boards, const std::string& script);

#endif
