// Fetches a URI through KT::RURI: parse it, open its socket with
// getSocket(), send an HTTP/1.0 request and print the answer.
//
//     fetch_uri URI    fetches an http URI and prints the answer, head and body
//     fetch_uri        first starts a one-answer server on 127.0.0.1, so that
//                      it runs without any network
#include <kt/kt.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdio>
#include <string>
#include <thread>

static void boundWaits(KT::RSocket& socket) {
    timeval limit{10, 0};
    socket.setOption(SO_RCVTIMEO, &limit, sizeof limit);
    socket.setOption(SO_SNDTIMEO, &limit, sizeof limit);
}

// Returns 0 when the answer's status is 2xx.
static int fetch(const std::string& text) {
    try {
        KT::RURI uri(KT::CString(text.c_str()));  // scheme 3 is http; port 80 unless given
        if (uri.scheme != 3) {
            std::fprintf(stderr, "not an http URI: %s\n", text.c_str());
            return 1;
        }
        // The descriptor keeps the path decoded; the request wants it as written.
        std::string target = ktbase::url_path(text, false);
        std::string query = ktbase::url_query(text, false);
        KT::CString request = KT::CString::createWithFormat(
            "GET %s%s%s HTTP/1.0\r\nHost: %s\r\n\r\n", target.empty() ? "/" : target.c_str(),
            query.empty() ? "" : "?", query.c_str(), uri.host.c_str());

        // Resolves the host (KT::CNetworkException when it cannot); the handle
        // closes the socket when it goes.
        ktbase::ref<KT::RSocket> socket = uri.getSocket();
        if (!socket) return 1;  // port 0: nothing to connect to
        boundWaits(*socket);
        if (socket->connect(nullptr) != 0) {
            std::perror("connect");
            return 1;
        }
        socket->write(request.c_str(), request.length - 1);  // length counts the terminator

        // HTTP/1.0: the answer ends when the server closes.
        std::string answer;
        char chunk[4096];
        int n;
        while ((n = socket->read2(chunk, sizeof chunk)) > 0) answer.append(chunk, std::size_t(n));
        std::fwrite(answer.data(), 1, answer.size(), stdout);
        return answer.compare(0, 5, "HTTP/") == 0 && answer.size() > 9 && answer[9] == '2' ? 0 : 1;
    } catch (const KT::CException& e) {
        e.print();
        return 1;
    }
}

int main(int argc, char** argv) {
    if (argc > 1) return fetch(argv[1]);

    try {
        // A server for one request, on a port the system picks.
        KT::RServerSocket server("127.0.0.1", KT::UInt16(0), SOCK_STREAM, KT::RSocket::CloseOnExec);
        server.listen(1);
        boundWaits(server);  // accept() gives up after the timeout too
        sockaddr_in local{};
        socklen_t size = sizeof local;
        getsockname(server.descriptor, reinterpret_cast<sockaddr*>(&local), &size);

        std::thread responder([&server] {
            try {
                KT::RSocket client = server.accept();
                boundWaits(client);
                std::string request;  // read up to the blank line that ends it
                char chunk[512];
                int n;
                while (request.find("\r\n\r\n") == std::string::npos && (n = client.read2(chunk, sizeof chunk)) > 0)
                    request.append(chunk, std::size_t(n));
                const char answer[] = "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nHello from 127.0.0.1!\n";
                client.write(answer, sizeof answer - 1);
            } catch (const KT::CException& e) {
                e.print();
            }
        });  // the client socket closes as the thread ends: that ends the answer
        int status = fetch("http://127.0.0.1:" + std::to_string(ntohs(local.sin_port)) + "/hello");
        responder.join();
        return status;
    } catch (const KT::CException& e) {
        e.print();  // socket(), bind() or listen() failed
        return 1;
    }
}
