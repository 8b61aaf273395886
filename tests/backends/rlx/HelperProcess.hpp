#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

namespace oru::rlx_test {

/// rlx_record_helper as a child; its output comes through a pipe. A fork without exec would be unsafe: the log has
/// threads.
class HelperProcess {
public:
    explicit HelperProcess(std::vector<std::string> arguments) {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        output = ends[0];
        arguments.insert(arguments.begin(), RLX_RECORD_HELPER);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        started = ::posix_spawn(&child, RLX_RECORD_HELPER, &actions, nullptr, pointers.data(), environ) == 0;
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
    }
    ~HelperProcess() {
        (void)killAndCount();
        ::close(output);
    }
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    /// False under an emulator that cannot start its own kind of program.
    [[nodiscard]] bool hasStarted() const { return started; }
    /// Blocks until the child has written something.
    void waitForOutput() {
        char first = 0;
        written += ::read(output, &first, 1) == 1 ? 1 : 0;
    }
    [[nodiscard]] int exitStatus() {
        int status = -1;
        ::waitpid(child, &status, 0);
        started = false;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// Ends the child with SIGKILL; how many bytes it had written.
    std::size_t killAndCount() {
        if (started) {
            ::kill(child, SIGKILL);
            (void)exitStatus();
            std::vector<char> block(65'536);
            ssize_t count = 0;
            while ((count = ::read(output, block.data(), block.size())) > 0) {
                written += static_cast<std::size_t>(count);
            }
        }
        return written;
    }

private:
    pid_t child = -1;
    int output = -1;
    bool started = false;
    std::size_t written = 0;
};

}  // namespace oru::rlx_test
