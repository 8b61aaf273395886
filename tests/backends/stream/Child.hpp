#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

namespace oru::test {

/// A child process with its standard output in a pipe; killed at the end.
class Child {
public:
    explicit Child(std::vector<std::string> command) {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            return;
        }
        pid = fork();
        if (pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            std::vector<char*> arguments;
            for (std::string& word : command) {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
        close(ends[1]);
        output = fdopen(ends[0], "r");
    }
    ~Child() {
        kill();
        if (output != nullptr) {
            std::fclose(output);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void kill() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            pid = -1;
        }
    }
    [[nodiscard]] pid_t id() const { return pid; }
    std::string line() {
        char text[512] = "";
        return std::fgets(text, sizeof(text), output) != nullptr ? text : "";
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

}  // namespace oru::test
