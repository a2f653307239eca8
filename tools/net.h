// What kt fetch, kt serve and kt demo share: bounded waits, whole sends,
// message heads as they cross the wire, and the request made from a URI.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "KTURISchemes.h"  // the scheme codes kt speaks: http and rtsp
#include "cli.h"
#include "kt/KTBuffer.h"
#include "kt/KTSocket.h"
#include "kt/KTURI.h"

namespace net {

/// Bounds every blocking receive and send on `socket` to `seconds` (on Linux
/// connect() and accept() too), so that no command can hang on a silent peer.
void setTimeouts(KT::RSocket& socket, int seconds);

/// Sends all of `text`. A peer that has gone fails the call (EPIPE) instead
/// of raising SIGPIPE. Returns false on failure, with the cause in errno.
bool sendAll(const KT::RSocket& socket, const std::string& text);
/// As above, for `size` bytes at `bytes`.
bool sendAll(const KT::RSocket& socket, const char* bytes, std::size_t size);

/// The port of the local end, as the system reports it now (0 when it
/// cannot).
KT::UInt16 localPort(const KT::RSocket& socket);
/// "ADDRESS:PORT" of the local end, as the system reports it now.
std::string localEnd(const KT::RSocket& socket);
/// "ADDRESS:PORT" of the peer the socket stores.
std::string remoteEnd(const KT::RSocket& socket);

/// The error for a failed receive or send: "WHAT: timed out" when a bounded
/// wait ran out, else "WHAT: " and the system's message for errno.
cli::RunError transferError(const std::string& what);

/// The text that the library's codec `codec` (such as
/// &KT::CBuffer::encodeBase64 or &KT::CBuffer::encodeHex) makes of `bytes`.
std::string encode(const std::string& bytes, void (KT::CBuffer::*codec)(const KT::CBuffer&, int));

/// A message head: the start line and header fields, as received.
struct Head {
    /// The head, up to and with the blank line that ends it.
    std::string text;
    /// Bytes read past the head in the same reads: the start of the body.
    std::string rest;

    /// The first line, without its line end.
    std::string startLine() const;
    /// The value of header field `name` (any case), without surrounding
    /// blanks; "" when absent.
    std::string field(const std::string& name) const;
};

/// Thrown by readHead() for a head or a start line longer than allowed.
struct HeadTooLarge : cli::RunError {
    using cli::RunError::RunError;
};

/// Limits on reading a head: its size, its start line's, and a moment by
/// which it must be complete (none by default: each wait is then bounded by
/// the socket's own timeout).
struct HeadLimits {
    std::size_t head = 65536;
    std::size_t line = 65536;
    std::chrono::steady_clock::time_point deadline{};
};

/// Reads from `socket` until the blank line that ends a head ("\r\n\r\n",
/// or bare "\n\n"). Throws HeadTooLarge past a limit, and cli::RunError when
/// the peer closes first, a wait fails or times out, or the deadline passes.
Head readHead(const KT::RSocket& socket, const HeadLimits& limits = {});

/// The reason phrase of an HTTP status code that kt serve and kt demo send.
const char* reason(int status);

/// An HTTP/1.0 response head with the given status, content type and length
/// (the connection closes after every response), then `extra` fields (each
/// ending in "\r\n").
std::string responseHead(int status, const std::string& type, long long length,
                         const std::string& extra = "");

/// The request that kt fetch and kt demo send for `uri`: an HTTP/1.0 GET for
/// http, an RTSP OPTIONS for rtsp, with Basic credentials when the URI names
/// a user. Throws cli::UsageError for any other scheme.
std::string requestFor(const KT::RURI& uri);

/// Opens the socket that `uri` names with getSocket(), bounds its waits to
/// `seconds` and connects it. Throws cli::UsageError when the URI names no
/// port or host, or a port that is not a number from 1 to 65535, and
/// cli::RunError naming the host when it does not resolve or the connection
/// fails.
ktbase::ref<KT::RSocket> connectTo(const KT::RURI& uri, int seconds);

/// A response's head with its parsed status line.
struct Response {
    Head head;
    int status = 0;
    std::string reason;
    /// The body's length from Content-Length; -1 when the body runs until
    /// the peer closes (HTTP without a length; an RTSP answer without one
    /// has no body).
    long long length = -1;
};

/// Reads a response head and parses its status line ("HTTP/1.0 200 OK",
/// "RTSP/1.0 200 OK") and Content-Length. Throws cli::RunError when either
/// is malformed, and as readHead().
Response readResponse(const KT::RSocket& socket);

/// Hands the body of `response` to `sink` as it arrives, starting with the
/// bytes read with the head. Throws cli::RunError when the peer closes before
/// the announced length, or a wait fails or times out.
void readBody(const KT::RSocket& socket, const Response& response,
              const std::function<void(const char*, std::size_t)>& sink);

}  // namespace net
