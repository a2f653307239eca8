// kt demo: one HTTP round trip on the loopback interface through the URI
// descriptor, the server socket and the client socket, showing what crossed.
#include <sys/socket.h>

#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <thread>

#include "KTURISchemes.h"
#include "cli.h"
#include "commands.h"
#include "kt/KTServerSocket.h"
#include "kt/KTString.h"
#include "kt/KTURI.h"
#include "kt/url.h"
#include "net.h"

namespace {

const char kUsage[] =
    "usage: kt demo\n"
    "\n"
    "Shows libkt at work on this machine alone: starts an RServerSocket on\n"
    "127.0.0.1 with a port that the system picks and serves one connection on a\n"
    "thread; parses 'http://user:pw@127.0.0.1:PORT/hello?x=1#top' with KT::RURI;\n"
    "opens the socket it names with getSocket(), sends an HTTP request and reads\n"
    "the reply. Prints the parsed URI, both ends of the connection and the bytes\n"
    "that crossed, the reply's body also in hex and Base64.\n"
    "\n"
    "Exit status: 0 when the round trip succeeded, 1 on bad usage, 2 otherwise.\n";

// Loopback answers at once: only a fault would wait this long (seconds).
constexpr int kTimeout = 5;

// What the server's side saw and sent.
struct ServerSide {
    std::string local, remote;  // the ends, as the accepted socket reports them
    std::string request, reply;
};

// The user named by Basic credentials, decoded with the library's codec.
std::string basicUser(const std::string& authorization) {
    const std::string scheme = "Basic ";
    if (authorization.compare(0, scheme.size(), scheme) != 0) return "stranger";
    KT::CString encoded(authorization.substr(scheme.size()).c_str());
    KT::CString decoded;
    decoded.decodeBase64(encoded, encoded.correction());
    std::string pair = decoded.c_str();
    return pair.substr(0, pair.find(':'));
}

// Accepts one connection, reads its request and greets the user.
void serveOnce(const KT::RServerSocket& server, ServerSide& seen) {
    KT::RSocket connection = server.accept();
    if (connection.descriptor == -1) throw cli::RunError("server: the client gave up");
    net::setTimeouts(connection, kTimeout);
    seen.local = net::localEnd(connection);
    seen.remote = net::remoteEnd(connection);
    net::Head request = net::readHead(connection);
    seen.request = request.text + request.rest;
    std::string line = request.startLine();  // GET TARGET HTTP/1.0
    std::string target = line.substr(line.find(' ') + 1);
    target = target.substr(0, target.find(' '));
    std::string body = "Hello, " + basicUser(request.field("Authorization")) + "! You asked for " + target + ".\n";
    seen.reply = net::responseHead(200, "text/plain", (long long)body.size()) + body;
    if (!net::sendAll(connection, seen.reply)) throw net::transferError("server: send failed");
}

const char* schemeName(int code) {
    if (code == KT::kNoScheme) return "none";
    for (const KT::URIScheme& scheme : KT::kURISchemes)
        if (scheme.code == code) return scheme.lowerCase;
    return "unknown";
}

void printDescriptor(const KT::RURI& uri) {
    std::string text = uri.uri.c_str();
    std::string pairs;
    for (const auto& [key, value] : ktbase::url_query_kvmap(text, true, '&', '='))
        pairs += (pairs.empty() ? "" : ", ") + key + " = " + value;
    std::printf("2. KT::RURI parses \"%s\"\n", text.c_str());
    std::printf("   scheme    %d (%s)\n", uri.scheme, schemeName(uri.scheme));
    std::printf("   user      %s\n", uri.user.c_str());
    std::printf("   password  %s\n", uri.password.c_str());
    std::printf("   host      %s\n", uri.host.c_str());
    std::printf("   port      %u\n", unsigned(uri.port));
    std::printf("   path      %s\n", uri.path.c_str());
    std::printf("   query     %s   (ktbase::url_query_kvmap: %s)\n", ktbase::url_query(text, true).c_str(),
                pairs.c_str());
    std::printf("   fragment  %s   (ktbase::url_fragment)\n\n", ktbase::url_fragment(text, true).c_str());
}

// Prints a message line by line behind a margin, line ends made visible.
void printMessage(const std::string& message) {
    for (std::size_t start = 0; start < message.size();) {
        std::size_t end = message.find('\n', start);
        std::string line = message.substr(start, end == std::string::npos ? end : end - start);
        bool crlf = !line.empty() && line.back() == '\r';
        if (crlf) line.pop_back();
        std::printf("   | %s%s\n", line.c_str(), end == std::string::npos ? "" : crlf ? "\\r\\n" : "\\n");
        start = end == std::string::npos ? end : end + 1;
    }
}

// Prints `text` in lines of 64 characters, the first behind `label`.
void printWrapped(const char* label, const std::string& text) {
    for (std::size_t start = 0; start < text.size(); start += 64)
        std::printf("   %-7s %s\n", start == 0 ? label : "", text.substr(start, 64).c_str());
}

}  // namespace

int runDemo(cli::Arguments& args) {
    if (!args.empty()) {
        if (!cli::isHelp(args.peek())) throw cli::UsageError("demo takes no arguments");
        std::fputs(kUsage, stdout);
        return cli::Success;
    }
    std::puts("kt demo: one HTTP round trip over 127.0.0.1 through libkt's URI and socket classes\n");

    KT::RServerSocket server("127.0.0.1", KT::UInt16(0), SOCK_STREAM, KT::RSocket::CloseOnExec);
    server.listen(1);
    net::setTimeouts(server, kTimeout);  // bounds accept() as well
    KT::UInt16 port = net::localPort(server);
    std::printf("1. RServerSocket(\"127.0.0.1\", 0) listens on %s (the system picked port %u)\n\n",
                net::localEnd(server).c_str(), unsigned(port));

    ServerSide seen;
    std::exception_ptr serverFailure;
    std::thread serverThread([&] {
        try {
            serveOnce(server, seen);
        } catch (...) {
            serverFailure = std::current_exception();
        }
    });
    // However the client's side ends, the server's thread is joined; its own
    // waits are bounded, so this cannot hang.
    struct Joiner {
        std::thread& thread;
        ~Joiner() {
            if (thread.joinable()) thread.join();
        }
    } joiner{serverThread};

    KT::RURI uri{KT::CString(("http://user:pw@127.0.0.1:" + std::to_string(port) + "/hello?x=1#top").c_str())};
    printDescriptor(uri);
    ktbase::ref<KT::RSocket> socket = net::connectTo(uri, kTimeout);
    std::string request = net::requestFor(uri);
    if (!net::sendAll(*socket, request)) throw net::transferError("send failed");
    net::Response response = net::readResponse(*socket);
    std::string body;
    net::readBody(*socket, response, [&](const char* bytes, std::size_t size) { body.append(bytes, size); });
    serverThread.join();
    if (serverFailure) std::rethrow_exception(serverFailure);

    std::string client = net::localEnd(*socket), peer = net::remoteEnd(*socket);
    std::printf("3. getSocket() and connect(): client %s -> server %s\n", client.c_str(), peer.c_str());
    std::printf("   the server's accept() saw client %s -> server %s\n\n", seen.remote.c_str(), seen.local.c_str());
    std::printf("4. request: %zu bytes, client -> server\n", request.size());
    printMessage(request);
    std::string reply = response.head.text + body;
    std::printf("\n5. reply: %zu bytes, server -> client: status %d %s, body of %zu bytes\n", reply.size(),
                response.status, response.reason.c_str(), body.size());
    printMessage(reply);
    std::printf("\n6. the body through the library's codecs\n");
    printWrapped("hex", net::encode(body, &KT::CBuffer::encodeHex));
    printWrapped("Base64", net::encode(body, &KT::CBuffer::encodeBase64));

    if (seen.request != request || seen.reply != reply || seen.remote != client || seen.local != peer)
        throw cli::RunError("the two ends disagree about what crossed");
    std::printf("\nBoth ends agree: %zu bytes out, %zu bytes back.\n", request.size(), reply.size());
    return cli::Success;
}
