#include "net.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

#include "kt/KTException.h"
#include "kt/KTString.h"
#include "kt/url.h"

namespace net {

void setTimeouts(KT::RSocket& socket, int seconds) {
    timeval limit{seconds, 0};
    socket.setOption(SO_RCVTIMEO, &limit, sizeof limit);
    socket.setOption(SO_SNDTIMEO, &limit, sizeof limit);
}

bool sendAll(const KT::RSocket& socket, const char* bytes, std::size_t size) {
    return size == 0 || socket.send(bytes, int(size), MSG_NOSIGNAL) == int(size);
}

bool sendAll(const KT::RSocket& socket, const std::string& text) {
    return sendAll(socket, text.data(), text.size());
}

KT::UInt16 localPort(const KT::RSocket& socket) {
    sockaddr_in record{};
    socklen_t length = sizeof record;
    ::getsockname(socket.descriptor, reinterpret_cast<sockaddr*>(&record), &length);
    return ntohs(record.sin_port);
}

// The address texts live in inet_ntoa()'s buffer: copy them at once.
std::string localEnd(const KT::RSocket& socket) {
    return std::string(socket.getLocalAddress()) + ":" + std::to_string(localPort(socket));
}

std::string remoteEnd(const KT::RSocket& socket) {
    return std::string(socket.getRemoteAddress()) + ":" + std::to_string(socket.getRemotePort());
}

cli::RunError transferError(const std::string& what) {
    // A bounded receive or send that runs out fails with EAGAIN; a bounded
    // connect with EINPROGRESS.
    int error = errno;  // before anything here can change it
    bool timedOut = error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS;
    return cli::RunError(what + ": " + (timedOut ? "timed out" : std::strerror(error)));
}

std::string encode(const std::string& bytes, void (KT::CBuffer::*codec)(const KT::CBuffer&, int)) {
    KT::CBuffer source;
    // Borrowed, not copied: the codec only reads its source.
    source.set(KT::SIntLeast32(bytes.size()),
               reinterpret_cast<KT::UInt8*>(const_cast<char*>(bytes.data())), KT::NoOwnership);
    KT::CString text;  // a string, for the terminator that c_str() needs
    (text.*codec)(source, 0);
    return text.c_str();
}

std::string Head::startLine() const {
    std::string line = text.substr(0, text.find('\n'));
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

namespace {

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r";
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool sameLetters(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

// Where the head in `data` ends (past its blank line), or npos.
std::size_t headEnd(const std::string& data) {
    std::size_t crlf = data.find("\r\n\r\n"), lf = data.find("\n\n");
    if (crlf != std::string::npos && (lf == std::string::npos || crlf < lf)) return crlf + 4;
    return lf == std::string::npos ? lf : lf + 2;
}

}  // namespace

std::string Head::field(const std::string& name) const {
    std::size_t start = text.find('\n');
    while (start != std::string::npos && start + 1 < text.size()) {
        std::size_t end = text.find('\n', start + 1);
        std::string line = text.substr(start + 1, end == std::string::npos ? end : end - start - 1);
        std::size_t colon = line.find(':');
        if (colon != std::string::npos && sameLetters(trimmed(line.substr(0, colon)), name))
            return trimmed(line.substr(colon + 1));
        start = end;
    }
    return "";
}

Head readHead(const KT::RSocket& socket, const HeadLimits& limits) {
    std::string data;
    char chunk[4096];
    for (;;) {
        std::size_t end = headEnd(data), line = data.find('\n');
        if (std::min(line, data.size()) > limits.line)
            throw HeadTooLarge("start line longer than " + std::to_string(limits.line) + " bytes");
        if (std::min(end, data.size()) > limits.head)
            throw HeadTooLarge("head longer than " + std::to_string(limits.head) + " bytes");
        if (end != std::string::npos) return Head{data.substr(0, end), data.substr(end)};
        if (limits.deadline != std::chrono::steady_clock::time_point{}) {
            // Each wait gets only the time left, so that a peer sending a
            // byte now and then cannot stretch the whole.
            auto left = std::chrono::duration_cast<std::chrono::microseconds>(limits.deadline -
                                                                              std::chrono::steady_clock::now());
            if (left.count() <= 0) throw cli::RunError("head not complete in time");
            timeval wait{time_t(left.count() / 1000000), suseconds_t(left.count() % 1000000)};
            ::setsockopt(socket.descriptor, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        }
        int n = socket.read2(chunk, int(sizeof chunk));
        if (n < 0) throw transferError("receive failed");
        if (n == 0) throw cli::RunError("connection closed before the end of the head");
        data.append(chunk, std::size_t(n));
    }
}

const char* reason(int status) {
    switch (status) {
        case 200: return "OK";
        case 400: return "Bad Request";
        case 403: return "Forbidden";
        case 404: return "Not Found";
        case 405: return "Method Not Allowed";
        case 431: return "Request Header Fields Too Large";
        case 503: return "Service Unavailable";
        default: return "Unknown";
    }
}

std::string responseHead(int status, const std::string& type, long long length, const std::string& extra) {
    return "HTTP/1.0 " + std::to_string(status) + " " + reason(status) +
           "\r\nServer: kt\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(length) +
           "\r\nConnection: close\r\n" + extra + "\r\n";
}

std::string requestFor(const KT::RURI& uri) {
    // The wire wants the path as written (percent-encoded), not the decoded
    // one the descriptor keeps.
    std::string text = uri.uri.c_str();
    std::string target = ktbase::url_path(text, false);
    if (target.empty()) target = "/";
    if (std::string params = ktbase::url_params(text, false); !params.empty()) target += ";" + params;
    if (std::string query = ktbase::url_query(text, false); !query.empty()) target += "?" + query;
    std::string authority = std::string(uri.host.c_str()) + ":" + std::to_string(uri.port);
    std::string credentials;
    if (*uri.user.c_str())
        credentials = "Authorization: Basic " +
                      encode(std::string(uri.user.c_str()) + ":" + uri.password.c_str(),
                             &KT::CBuffer::encodeBase64) +
                      "\r\n";
    if (uri.scheme == KT::kHttpScheme)
        return "GET " + target + " HTTP/1.0\r\nHost: " + authority + "\r\nUser-Agent: kt\r\nAccept: */*\r\n" +
               credentials + "\r\n";
    if (uri.scheme == KT::kRtspScheme)
        return "OPTIONS rtsp://" + authority + target + " RTSP/1.0\r\nCSeq: 1\r\nUser-Agent: kt\r\n" +
               credentials + "\r\n";
    throw cli::UsageError("'" + text + "' is neither an http nor an rtsp URI");
}

ktbase::ref<KT::RSocket> connectTo(const KT::RURI& uri, int seconds) {
    std::string text = uri.uri.c_str(), host = uri.host.c_str();
    if (host.empty()) throw cli::UsageError("no host in '" + text + "'");
    // The descriptor keeps the port in 16 bits, so 83617 would quietly become
    // 18081: the written port is checked before anything is opened.
    std::string port = ktbase::url_service(text, false);
    bool digits = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!port.empty() && (!digits || std::stol(port) < 1 || std::stol(port) > 65535))
        throw cli::UsageError("port '" + port + "' is not a number from 1 to 65535");
    ktbase::ref<KT::RSocket> socket;
    try {
        socket = uri.getSocket();
    } catch (const KT::CNetworkException& e) {
        throw cli::RunError("cannot resolve host '" + host + "': " + e.msg());
    }
    if (!socket) throw cli::UsageError("no port in '" + text + "'");
    setTimeouts(*socket, seconds);
    if (socket->connect(nullptr) != 0)
        throw transferError("cannot connect to " + std::string(uri.host.c_str()) + ":" + std::to_string(uri.port));
    return socket;
}

Response readResponse(const KT::RSocket& socket) {
    Response response;
    response.head = readHead(socket);
    std::string line = response.head.startLine();
    // PROTOCOL/VERSION, a blank, three digits, then a blank and the reason.
    std::size_t blank = line.find(' ');
    bool known = line.compare(0, 5, "HTTP/") == 0 || line.compare(0, 5, "RTSP/") == 0;
    bool wellFormed = known && blank != std::string::npos && line.size() >= blank + 4 &&
                      std::all_of(line.begin() + long(blank) + 1, line.begin() + long(blank) + 4,
                                  [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }) &&
                      (line.size() == blank + 4 || line[blank + 4] == ' ');
    if (!wellFormed) throw cli::RunError("malformed status line '" + line + "'");
    response.status = std::stoi(line.substr(blank + 1, 3));
    response.reason = line.size() > blank + 5 ? line.substr(blank + 5) : "";
    std::string length = response.head.field("Content-Length");
    if (!length.empty()) {
        bool digits = length.size() <= 18 && std::all_of(length.begin(), length.end(), [](char c) {
                          return std::isdigit(static_cast<unsigned char>(c));
                      });
        if (!digits) throw cli::RunError("malformed Content-Length '" + length + "'");
        response.length = std::stoll(length);
    } else if (line.compare(0, 5, "RTSP/") == 0) {
        response.length = 0;  // an RTSP connection stays open: no length, no body
    }
    return response;
}

void readBody(const KT::RSocket& socket, const Response& response,
              const std::function<void(const char*, std::size_t)>& sink) {
    bool untilClose = response.length < 0;
    unsigned long long want = untilClose ? ~0ULL : (unsigned long long)response.length;
    unsigned long long got = std::min<unsigned long long>(response.head.rest.size(), want);
    if (got > 0) sink(response.head.rest.data(), std::size_t(got));
    std::vector<char> chunk(65536);
    while (got < want) {
        int n = socket.read2(chunk.data(), int(std::min<unsigned long long>(chunk.size(), want - got)));
        if (n < 0) throw transferError("receive failed");
        if (n == 0) {
            if (untilClose) return;
            throw cli::RunError("connection closed after " + std::to_string(got) + " of " + std::to_string(want) +
                                " body bytes");
        }
        sink(chunk.data(), std::size_t(n));
        got += (unsigned long long)n;
    }
}

}  // namespace net
