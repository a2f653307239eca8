// Test helpers for the kt program's end-to-end suites: scratch folders, and
// running a program on given standard input within a time limit.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace test {

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// A folder of files for a test, removed with its content when the object goes.
class Folder {
public:
    Folder() {
        char name[] = "/tmp/kt-test-XXXXXX";
        path_ = ::mkdtemp(name) ? name : "";
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }
    /// Writes `content` to `name` under the folder (making parent folders);
    /// returns the file's path.
    std::string write(const std::string& name, const std::string& content) const {
        std::filesystem::path file = std::filesystem::path(path_) / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file.string();
    }

private:
    std::string path_;
};

struct ProcessResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status, or -1 when killed or not started
};

/// Runs `argv` (argv[0] is the program's path) with `input` on standard input.
/// The three standard streams are files, so that nothing waits on a pipe; the
/// child is killed when it outlives `limit`.
inline ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = "",
                                std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    ProcessResult result;
    const Folder streams;
    const std::string in = streams.write("in", input), out = streams.path() + "/out",
                      err = streams.path() + "/err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    int status = 0;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) == 0) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        pid_t ended = 0;
        while ((ended = waitpid(pid, &status, WNOHANG)) == 0) {
            if (std::chrono::steady_clock::now() > deadline) kill(pid, SIGKILL);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (ended == pid && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = readFile(out);
    result.err = readFile(err);
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
