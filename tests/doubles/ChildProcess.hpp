#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

namespace oru::doubles {

/// A program beside the test, its standard output in a pipe; killed at the end. A fork without exec would be unsafe:
/// the log has threads.
class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> command) {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        std::vector<char*> words;
        for (std::string& word : command) {
            words.push_back(word.data());
        }
        words.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        if (::posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ) != 0) {
            pid = -1;
        }
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        output = ::fdopen(ends[0], "r");
    }
    ~ChildProcess() {
        kill();
        if (output != nullptr) {
            std::fclose(output);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// False under an emulator that cannot start its own kind of program.
    [[nodiscard]] bool hasStarted() const { return pid > 0; }
    [[nodiscard]] pid_t id() const { return pid; }
    void kill() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            (void)exitStatus();
        }
    }
    /// Waits for the end; -1 for one by a signal.
    int exitStatus() {
        int status = -1;
        ::waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// Waits until the child has written something, which stays to be read.
    void waitForOutput() { std::ungetc(std::fgetc(output), output); }
    /// Waits for the next line; empty at the end.
    std::string line() {
        char text[512] = "";
        return std::fgets(text, sizeof text, output) != nullptr ? text : "";
    }
    std::string rest() {
        std::string all;
        for (std::string next = line(); !next.empty(); next = line()) {
            all += next;
        }
        return all;
    }

private:
    pid_t pid = -1;
    FILE* output = nullptr;
};

}  // namespace oru::doubles
