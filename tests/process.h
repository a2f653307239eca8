// Test helper: runs a program with given standard input and collects its
// standard output, standard error and exit status, within a time limit.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

extern char** environ;

namespace test {

struct ProcessResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status, or -1 when killed or not started
};

/// Runs `argv` (argv[0] is the program's path) with `input` on standard input.
/// The child is killed when it outlives `limit`.
inline ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = "",
                                std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    ProcessResult result;
    signal(SIGPIPE, SIG_IGN);  // a child that stops reading must not end the test
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) return result;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (spawned != 0) {
        close(in[1]);
        close(out[0]);
        close(err[0]);
        return result;
    }
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    std::size_t written = 0;
    int inFd = in[1];
    if (input.empty()) {
        close(inFd);
        inFd = -1;
    }
    auto deadline = std::chrono::steady_clock::now() + limit;
    bool outOpen = true, errOpen = true;
    char chunk[65536];
    while ((outOpen || errOpen) && std::chrono::steady_clock::now() < deadline) {
        pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (poll(fds, inFd >= 0 ? 3 : 2, 100) < 0) break;
        for (int i = 0; i < 2; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP))) continue;
            ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
            if (n > 0) (i == 0 ? result.out : result.err).append(chunk, std::size_t(n));
            else (i == 0 ? outOpen : errOpen) = false;
        }
        if (inFd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t n = write(inFd, input.data() + written, input.size() - written);
            if (n > 0) written += std::size_t(n);
            if (n < 0 || written == input.size()) {
                close(inFd);
                inFd = -1;
            }
        }
    }
    if (inFd >= 0) close(inFd);
    close(out[0]);
    close(err[0]);
    if (outOpen || errOpen) kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!outOpen && !errOpen && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

/// `size` bytes of input for a program, the same for the same `seed`.
inline std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = char(generator() & 0xFF);
    return bytes;
}

/// The kt program of this build.
inline std::string ktProgram() { return std::string(KT_TEST_BINARY_DIR) + "/bin/kt"; }

/// Runs the kt program with `args`.
inline ProcessResult kt(std::vector<std::string> args, const std::string& input = "",
                        std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    args.insert(args.begin(), ktProgram());
    return runProcess(args, input, limit);
}

}  // namespace test
