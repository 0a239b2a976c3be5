// Child processes with their output in pipes.
#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace {

// Reads both pipes until every writer has closed them, so that none of them fills up.
void Drain(int output, int complaints, Finished& finished) {
    pollfd pipes[] = {{output, POLLIN, 0}, {complaints, POLLIN, 0}};
    std::string* texts[] = {&finished.output, &finished.complaints};
    int open = 2;
    while (open > 0 && poll(pipes, 2, -1) > 0) {
        for (int i = 0; i < 2; ++i) {
            if (pipes[i].fd < 0 || pipes[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t count = read(pipes[i].fd, buffer, sizeof buffer);
            if (count > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(count));
            } else {
                pipes[i].fd = -1;
                --open;
            }
        }
    }
}

}  // namespace

void PrintTo(const Finished& finished, std::ostream* stream) {
    *stream << "status " << finished.status << "\noutput:\n"
            << finished.output << "complaints:\n"
            << finished.complaints;
}

Program::Program(const Words& words) {
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(complaints, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, complaints[1], STDERR_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int error =
        posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    close(complaints[1]);
    if (error != 0) throw std::runtime_error("cannot start " + words.front());
}

Program::~Program() {
    if (process > 0) {
        kill(process, SIGTERM);
        waitpid(process, nullptr, 0);
    }
    close(output[0]);
    close(complaints[0]);
}

void Program::Signal(int number) const {
    kill(process, number);
}

std::string Program::ReadLine() {
    std::string line;
    char byte = 0;
    while (read(output[0], &byte, 1) == 1 && byte != '\n')
        line += byte;
    return line;
}

Finished Program::Wait() {
    Finished finished{};
    Drain(output[0], complaints[0], finished);
    int status = 0;
    waitpid(process, &status, 0);
    process = -1;
    finished.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return finished;
}

Finished RunProgram(const Words& words) {
    return Program(words).Wait();
}

Words Simulated(Words boards, const std::string& script) {
    Words words = {"env", "SIM=" MARVANE_SIM, "CLIENT=" RAW_CLIENT, MARVANE_SIM};
    words.insert(words.end(), boards.begin(), boards.end());
    words.insert(words.end(), {"--", "sh", "-c", script});
    return words;
}

Finished RunSimulated(const Words& boards, const std::string& script) {
    return RunProgram(Simulated(boards, script));
}
