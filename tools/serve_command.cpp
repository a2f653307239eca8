// kt serve: the files under a folder over HTTP/1.0, or an echo of every byte;
// one thread per connection, and a clean stop on SIGINT or SIGTERM.
#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "cli.h"
#include "commands.h"
#include "kt/KTException.h"
#include "kt/KTServerSocket.h"
#include "kt/url.h"
#include "net.h"

namespace {

const char kUsage[] =
    "usage: kt serve (--root DIR | --echo) [--bind ADDR] [--port N]\n"
    "                [--max-connections N] [--timeout SECONDS]\n"
    "\n"
    "Listens on ADDR and serves each connection on a thread of its own.\n"
    "\n"
    "  --root DIR            serve the files under DIR over HTTP/1.0: GET and\n"
    "                        HEAD, a folder by its index.html. A path that would\n"
    "                        leave DIR, by '..' (percent-encoded or not) or by a\n"
    "                        symbolic link, is refused with 403\n"
    "  --echo                send every byte back as it arrives\n"
    "  --bind ADDR           the IPv4 address to listen on (default 127.0.0.1)\n"
    "  --port N              the port (default 8080; 0: one the system picks)\n"
    "  --max-connections N   connections served at once (default 64); while\n"
    "                        that many are open, a new one is answered 503 with\n"
    "                        Retry-After at once and closed\n"
    "  --timeout SECONDS     with --root, the time a request head may take from\n"
    "                        the connection's start; with --echo, the longest\n"
    "                        silence (default 30)\n"
    "  -h, --help            print this help\n"
    "\n"
    "A request head over 16 KiB, or a request line over 8 KiB, is answered 431.\n"
    "Once listening it prints 'kt serve: listening on ADDR:PORT' (the port bound,\n"
    "also for --port 0) on standard output, then one line per request (or echo\n"
    "connection) on standard error, with control characters and bytes from 128\n"
    "up written as \\xNN.\n"
    "SIGINT or SIGTERM stops it: it takes no more connections, closes the open\n"
    "ones and exits.\n"
    "\n"
    "Exit status: 0 after a stop by signal, 1 on bad usage, 2 when it cannot\n"
    "listen or DIR is not a folder.\n";

struct Options {
    std::string bind = "127.0.0.1";
    long port = 8080;
    std::string root;
    bool echo = false;
    long maxConnections = 64;
    long timeout = 30;
};

// ---------------------------------------------------------------------------
// Stopping

// Set by the signal handler; read by the accept loop and the wait before it.
volatile std::sig_atomic_t gStop = 0;
// The listening descriptor, for the signal handler (-1: none).
volatile std::sig_atomic_t gListener = -1;

void onStopSignal(int) {
    int saved = errno;
    gStop = 1;
    // A signal that arrives just before accept() is entered cannot break it:
    // shutting the listener makes that accept() return at once as well.
    if (gListener >= 0) ::shutdown(gListener, SHUT_RD);
    errno = saved;
}

void installStopHandlers() {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a waiting accept() fails with EINTR
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// ---------------------------------------------------------------------------
// Connection threads

using Handler = std::function<void(const KT::RSocket&)>;

// The connections being served, one thread each, at most `limit` at once.
// A thread closes its socket under the lock, so that stopAll() never shuts
// a descriptor number that has been closed and reused meanwhile.
class Connections {
public:
    explicit Connections(std::size_t limit) : limit_(limit) {}
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;
    ~Connections() { stopAll(); }

    /// Joins the finished threads; returns true when `limit` connections
    /// are still open.
    bool full() {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto c = connections_.begin(); c != connections_.end();) {
            if (!c->finished) {
                ++c;
                continue;
            }
            c->thread.join();  // it has released the lock: only its exit is left
            c = connections_.erase(c);
        }
        return open_ >= limit_;
    }

    /// Serves `socket` with `handler` on a new thread.
    void start(ktbase::ref<KT::RSocket> socket, const Handler& handler) {
        std::lock_guard<std::mutex> lock(mutex_);
        Connection& c = connections_.emplace_back();
        c.socket = std::move(socket);
        ++open_;
        // The threads leave SIGINT and SIGTERM to this one, so that a signal
        // always lands in the accept() it must interrupt.
        sigset_t stopSignals, previous;
        sigemptyset(&stopSignals);
        sigaddset(&stopSignals, SIGINT);
        sigaddset(&stopSignals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
        c.thread = std::thread([this, &c, handler] { run(c, handler); });
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }

    /// Ends every connection still open, so that its thread returns at once,
    /// and joins all the threads.
    void stopAll() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            for (Connection& c : connections_)
                if (!c.finished) ::shutdown(c.socket->descriptor, SHUT_RDWR);
        }
        for (Connection& c : connections_)
            if (c.thread.joinable()) c.thread.join();
        connections_.clear();
    }

private:
    struct Connection {
        ktbase::ref<KT::RSocket> socket;
        std::thread thread;
        bool finished = false;
    };

    void run(Connection& c, const Handler& handler) {
        try {
            handler(*c.socket);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "kt serve: %s: %s\n", net::remoteEnd(*c.socket).c_str(), e.what());
        }
        std::lock_guard<std::mutex> lock(mutex_);
        c.socket->close();
        c.finished = true;
        --open_;
    }

    std::mutex mutex_;
    std::list<Connection> connections_;  // a list: threads hold references to their entries
    std::size_t open_ = 0;
    std::size_t limit_;
};

// ---------------------------------------------------------------------------
// The two services

void serveEcho(const KT::RSocket& socket) {
    char chunk[16384];
    long long echoed = 0;
    int n;
    while ((n = socket.read2(chunk, int(sizeof chunk))) > 0 && net::sendAll(socket, chunk, std::size_t(n)))
        echoed += n;
    std::fprintf(stderr, "kt serve: %s echoed %lld bytes\n", net::remoteEnd(socket).c_str(), echoed);
}

// What a request asks for: a status and, with 200, the file to send.
struct Target {
    int status;
    std::string file;
    bool body = true;  // false for HEAD
};

// The real path of `path` when it lies under `root` (itself a real path):
// symbolic links are followed by realpath() before the check, never after.
int resolve(const std::string& root, const std::string& path, std::string& real) {
    std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), std::free);
    if (!resolved) return errno == EACCES ? 403 : 404;
    real = resolved.get();
    std::string prefix = root == "/" ? root : root + "/";
    return real == root || real.compare(0, prefix.size(), prefix) == 0 ? 200 : 403;
}

Target target(const std::string& requestLine, const std::string& root) {
    // METHOD SP TARGET SP VERSION, and nothing else.
    std::size_t first = requestLine.find(' ');
    std::size_t second = first == std::string::npos ? first : requestLine.find(' ', first + 1);
    if (second == std::string::npos || requestLine.find(' ', second + 1) != std::string::npos) return {400, ""};
    std::string method = requestLine.substr(0, first);
    std::string path = requestLine.substr(first + 1, second - first - 1);
    if (requestLine.compare(second + 1, 5, "HTTP/") != 0 || path.empty() || path[0] != '/') return {400, ""};
    if (method != "GET" && method != "HEAD") return {405, ""};

    // Decoded exactly once: "%2e%2e" is caught as ".." here, and "%252e%252e"
    // stays the harmless name "%2e%2e".
    path = ktbase::url_decode(path.substr(0, path.find_first_of("?#")));
    for (std::size_t start = 0; start != std::string::npos;) {
        std::size_t end = path.find('/', start + 1);
        if (path.compare(start, end == std::string::npos ? end : end - start, "/..") == 0) return {403, ""};
        start = end;
    }
    Target t{0, "", method == "GET"};
    t.status = resolve(root, root + path, t.file);
    struct stat info;
    if (t.status == 200 && ::stat(t.file.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        t.status = resolve(root, t.file + "/index.html", t.file);
    // Only plain files: opening a FIFO or a device could block or never end.
    if (t.status == 200 && (::stat(t.file.c_str(), &info) != 0 || !S_ISREG(info.st_mode))) t.status = 403;
    return t;
}

const char* contentType(const std::string& file) {
    static const std::pair<const char*, const char*> kTypes[] = {
        {".html", "text/html"},       {".htm", "text/html"},        {".txt", "text/plain"},
        {".css", "text/css"},         {".js", "text/javascript"},   {".json", "application/json"},
        {".png", "image/png"},        {".jpg", "image/jpeg"},       {".jpeg", "image/jpeg"},
        {".gif", "image/gif"},        {".svg", "image/svg+xml"},    {".pdf", "application/pdf"},
    };
    for (const auto& [suffix, type] : kTypes) {
        std::size_t size = std::strlen(suffix);
        if (file.size() >= size && file.compare(file.size() - size, size, suffix) == 0) return type;
    }
    return "application/octet-stream";
}

// A request line for the log: quotes, backslashes, control characters and
// bytes from 128 up as \xNN, so that no client can forge or break a line.
std::string logged(const std::string& line) {
    std::string out;
    for (unsigned char c : line) {
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            out += char(c);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            out += escape;
        }
    }
    return out;
}

void logRequest(const KT::RSocket& socket, const std::string& line, int status) {
    std::fprintf(stderr, "kt serve: %s \"%s\" %d\n", net::remoteEnd(socket).c_str(), logged(line).c_str(), status);
}

// Sends a short error answer (and its body unless `body` is false).
void sendError(const KT::RSocket& socket, int status, bool body = true) {
    std::string text = std::to_string(status) + " " + net::reason(status) + "\n";
    std::string extra = status == 405 ? "Allow: GET, HEAD\r\n" : status == 503 ? "Retry-After: 1\r\n" : "";
    net::sendAll(socket, net::responseHead(status, "text/plain", (long long)text.size(), extra) + (body ? text : ""));
}

// Ends a connection whose request was not read to its end: closing with
// unread bytes would reset it and could destroy the answer on its way, so
// the rest is read and dropped first, within a second.
void closeAfterAnswer(const KT::RSocket& socket) {
    ::shutdown(socket.descriptor, SHUT_WR);
    timeval second{1, 0};
    ::setsockopt(socket.descriptor, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    char chunk[16384];
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end && ::recv(socket.descriptor, chunk, sizeof chunk, 0) > 0) {
    }
}

void serveFiles(const KT::RSocket& socket, const std::string& root, std::chrono::seconds timeout) {
    net::Head request;
    net::HeadLimits limits{16384, 8192, std::chrono::steady_clock::now() + timeout};
    try {
        request = net::readHead(socket, limits);
    } catch (const net::HeadTooLarge&) {
        logRequest(socket, "-", 431);
        sendError(socket, 431);
        return closeAfterAnswer(socket);
    } catch (const cli::RunError&) {
        return;  // the client went away or kept silent: nobody to answer
    }
    std::string line = request.startLine();
    Target t = target(line, root);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(nullptr, std::fclose);
    struct stat info;
    if (t.status == 200) {
        file.reset(std::fopen(t.file.c_str(), "rbe"));
        if (!file || ::fstat(fileno(file.get()), &info) != 0) t.status = errno == EACCES ? 403 : 404;
    }
    logRequest(socket, line, t.status);
    if (t.status != 200) return sendError(socket, t.status, t.body);
    if (!net::sendAll(socket, net::responseHead(200, contentType(t.file), (long long)info.st_size)) || !t.body)
        return;
    char chunk[65536];
    std::size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0 && net::sendAll(socket, chunk, n)) {
    }
}

// ---------------------------------------------------------------------------

Options parse(cli::Arguments& args, bool& help) {
    Options o;
    while (!args.empty()) {
        std::string arg = args.take();
        if (cli::isHelp(arg)) {
            help = true;
            return o;
        } else if (arg == "--bind") {
            o.bind = args.value(arg);
            in_addr address;
            if (::inet_aton(o.bind.c_str(), &address) == 0)
                throw cli::UsageError("option --bind takes an IPv4 address, not '" + o.bind + "'");
        } else if (arg == "--port") {
            o.port = args.number(arg, 0, 65535);
        } else if (arg == "--root") {
            o.root = args.value(arg);
        } else if (arg == "--echo") {
            o.echo = true;
        } else if (arg == "--max-connections") {
            o.maxConnections = args.number(arg, 1, 1024);
        } else if (arg == "--timeout") {
            o.timeout = args.number(arg, 1, 86400);
        } else {
            throw cli::UsageError("unknown argument '" + arg + "'");
        }
    }
    if (o.echo == !o.root.empty()) throw cli::UsageError("give either --root DIR or --echo");
    return o;
}

// The real path of the folder to serve.
std::string realFolder(const std::string& path) {
    std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
    struct stat info;
    if (!real || ::stat(real.get(), &info) != 0)
        throw cli::RunError("cannot use '" + path + "': " + std::strerror(errno));
    if (!S_ISDIR(info.st_mode)) throw cli::RunError("'" + path + "' is not a folder");
    return real.get();
}

}  // namespace

int runServe(cli::Arguments& args) {
    bool help = false;
    Options o = parse(args, help);
    if (help) {
        std::fputs(kUsage, stdout);
        return cli::Success;
    }
    std::string root = o.echo ? "" : realFolder(o.root);
    std::chrono::seconds timeout(o.timeout);
    Handler handler = o.echo ? Handler(serveEcho)
                             : [root, timeout](const KT::RSocket& s) { serveFiles(s, root, timeout); };

    std::unique_ptr<KT::RServerSocket> listener;
    try {
        listener.reset(new KT::RServerSocket(o.bind.c_str(), KT::UInt16(o.port), SOCK_STREAM,
                                             KT::RSocket::CloseOnExec));
        listener->listen(128);
    } catch (const KT::CNetworkException& e) {
        std::string why = e.msg();
        if (!why.empty()) why[0] = char(std::tolower(static_cast<unsigned char>(why[0])));
        throw cli::RunError("cannot listen on " + o.bind + ":" + std::to_string(o.port) + ": " + why);
    }
    KT::RServerSocket& server = *listener;
    std::printf("kt serve: listening on %s\n", net::localEnd(server).c_str());
    std::fflush(stdout);

    gListener = server.descriptor;
    installStopHandlers();
    Connections connections(std::size_t(o.maxConnections));
    while (!gStop) {
        ktbase::ref<KT::RSocket> client;
        try {
            client = ktbase::ref<KT::RSocket>(new KT::RSocket(server.accept()));
        } catch (const KT::CInterruptedException&) {
            continue;  // waitForSlot() tells a stop from any other signal
        } catch (const KT::CNetworkException&) {
            if (gStop) break;  // the handler shut the listener before accept() began
            throw;
        }
        if (client->descriptor == -1) continue;  // the peer gave up before it was taken
        if (connections.full()) {
            // Answered here and now, so that a busy server never keeps a
            // client waiting in silence; what the client sent already is
            // dropped, so that the close does not reset the answer.
            logRequest(*client, "-", 503);
            sendError(*client, 503);
            char chunk[16384];
            while (::recv(client->descriptor, chunk, sizeof chunk, MSG_DONTWAIT) > 0) {
            }
            client->close();
            continue;
        }
        net::setTimeouts(*client, int(o.timeout));
        connections.start(std::move(client), handler);
    }
    connections.stopAll();
    gListener = -1;
    server.close();
    std::fputs("kt serve: stopped\n", stderr);
    return cli::Success;
}
