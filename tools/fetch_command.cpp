// kt fetch: one request to the host and port a URI names; the answer's body
// to standard output or a file.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "cli.h"
#include "commands.h"
#include "kt/KTURI.h"
#include "net.h"

namespace {

const char kUsage[] =
    "usage: kt fetch [-o FILE] [--head] [--timeout SECONDS] URI\n"
    "\n"
    "Sends an HTTP/1.0 GET for an http URI, or an RTSP OPTIONS for an rtsp URI, to\n"
    "the host and port that the URI names, and writes the body of the answer to\n"
    "standard output. A user and password in the URI go as Basic credentials.\n"
    "\n"
    "  -o, --output FILE   write the body to FILE (made only for a 2xx answer)\n"
    "  --head              print the response head to standard output; the body\n"
    "                      is then written only with -o (always on for rtsp)\n"
    "  --timeout SECONDS   the longest wait to connect and for each read or\n"
    "                      write (default 30)\n"
    "  -h, --help          print this help\n"
    "\n"
    "A progress bar goes to standard error when that is a terminal and the\n"
    "answer gives the body's length.\n"
    "\n"
    "Exit status: 0 for a 2xx answer, 1 on bad usage (also a URI that is not http\n"
    "or rtsp, or names no host or port), 2 when the host is unknown, the\n"
    "connection fails or times out, or the answer has another status.\n";

// A bar on standard error, redrawn when the percentage changes; nothing when
// standard error is not a terminal or the total is unknown.
class Progress {
public:
    explicit Progress(long long total) : total_(total > 0 && ::isatty(STDERR_FILENO) ? total : 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // A transfer that failed half-way leaves the bar's line open: end it, so
    // that the error starts a line of its own.
    ~Progress() {
        if (shown_ >= 0 && done_ < total_) std::fputc('\n', stderr);
    }

    void advance(std::size_t bytes) {
        if (total_ == 0) return;
        done_ += (long long)bytes;
        int percent = int(done_ * 100 / total_);
        if (percent == shown_) return;
        shown_ = percent;
        int filled = percent * kWidth / 100;
        std::fprintf(stderr, "\r[%s%s] %3d%%  %lld/%lld bytes", std::string(std::size_t(filled), '#').c_str(),
                     std::string(std::size_t(kWidth - filled), ' ').c_str(), percent, done_, total_);
        if (done_ >= total_) std::fputc('\n', stderr);
    }

private:
    static constexpr int kWidth = 40;
    long long total_;
    long long done_ = 0;
    int shown_ = -1;
};

}  // namespace

int runFetch(cli::Arguments& args) {
    std::string output, text;
    bool head = false;
    long timeout = 30;
    while (!args.empty()) {
        std::string arg = args.take();
        if (cli::isHelp(arg)) {
            std::fputs(kUsage, stdout);
            return cli::Success;
        } else if (arg == "-o" || arg == "--output") {
            output = args.value(arg);
        } else if (arg == "--head") {
            head = true;
        } else if (arg == "--timeout") {
            timeout = args.number(arg, 1, 86400);
        } else {
            cli::takeOperand(arg, text, "more than one URI");
        }
    }
    if (text.empty()) throw cli::UsageError("no URI given");

    KT::RURI uri{KT::CString(text.c_str())};
    std::string request = net::requestFor(uri);
    // An RTSP answer says what it has to say in its head.
    head = head || uri.scheme == KT::kRtspScheme;
    ktbase::ref<KT::RSocket> socket = net::connectTo(uri, int(timeout));
    if (!net::sendAll(*socket, request)) throw net::transferError("send failed");
    net::Response response = net::readResponse(*socket);
    if (head) cli::writeAll(stdout, response.head.text.data(), response.head.text.size());
    if (response.status / 100 != 2)
        throw cli::RunError("server answered " + std::to_string(response.status) + " " + response.reason);
    if (head && output.empty()) {
        cli::closeStream(stdout, "-");
        return cli::Success;
    }

    std::FILE* out = cli::openOutput(output);
    try {
        Progress progress(response.length);
        net::readBody(*socket, response, [&](const char* bytes, std::size_t size) {
            cli::writeAll(out, bytes, size);
            progress.advance(size);
        });
    } catch (...) {
        if (out != stdout) {
            std::fclose(out);
            std::remove(output.c_str());  // no half a file
        }
        throw;
    }
    cli::closeStream(out, output);
    if (out != stdout) cli::closeStream(stdout, "-");  // the head, with --head
    return cli::Success;
}
