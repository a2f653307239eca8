// An echo server on KT::RServerSocket: every byte a client sends comes back.
//
//     echo_server         serves one client that it starts itself on a thread,
//                         and exits 0 when the client's bytes came back equal
//     echo_server PORT    serves clients on 127.0.0.1:PORT, one after another,
//                         until SIGINT stops it (try: nc 127.0.0.1 PORT)
#include <kt/kt.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

// Bounds every wait of `socket` (accept() included) to five seconds.
static void boundWaits(KT::RSocket& socket) {
    timeval limit{5, 0};
    socket.setOption(SO_RCVTIMEO, &limit, sizeof limit);
    socket.setOption(SO_SNDTIMEO, &limit, sizeof limit);
}

static volatile std::sig_atomic_t interrupted = 0;

// SIGINT without SA_RESTART: a waiting accept() then throws
// KT::CInterruptedException, so the server stops cleanly instead of dying.
static void stopOnInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    sigaction(SIGINT, &action, nullptr);
}

// Sends back what `client` sends until it closes; returns the bytes echoed.
static long echo(const KT::RSocket& client) {
    char chunk[4096];
    long total = 0;
    int n;
    // read2() returns whatever has arrived; read() would wait for a full chunk.
    while ((n = client.read2(chunk, sizeof chunk)) > 0 && client.write(chunk, n) == n) total += n;
    return total;
}

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a client that leaves early fails write(), not the program
    try {
        // Loopback only. Port 0 lets the system pick one; the UInt16 cast
        // keeps a literal 0 from reading as a null address record.
        KT::RServerSocket server("127.0.0.1", KT::UInt16(argc > 1 ? std::atoi(argv[1]) : 0), SOCK_STREAM,
                                 KT::RSocket::CloseOnExec);
        server.listen(16);
        if (argc > 1) {
            stopOnInterrupt();
            try {
                while (!interrupted) {
                    KT::RSocket client = server.accept();
                    if (client.descriptor == -1) continue;  // the peer gave up before it was taken
                    long echoed = echo(client);
                    std::printf("%s:%u: %ld bytes echoed\n", client.getRemoteAddress(), client.getRemotePort(), echoed);
                }
            } catch (const KT::CInterruptedException&) {
                // SIGINT came while accept() waited
            }
            std::puts("interrupted: stopped");
            return 0;
        }

        // The port the system picked, from the listening descriptor.
        sockaddr_in local{};
        socklen_t size = sizeof local;
        getsockname(server.descriptor, reinterpret_cast<sockaddr*>(&local), &size);
        KT::UInt16 port = ntohs(local.sin_port);

        const std::string message = "Hello, echo!";
        std::string back(message.size(), '\0');
        std::thread client([&] {
            KT::RSocket socket("127.0.0.1", port, SOCK_STREAM, KT::RSocket::CloseOnExec);
            boundWaits(socket);
            if (socket.connect(nullptr) != 0) return;
            socket.write(message.data(), int(message.size()));
            // read() waits for all the bytes; closing the socket then ends the echo.
            back.resize(std::size_t(std::max(0, socket.read(&back[0], int(back.size())))));
        });
        long echoed = 0;
        try {
            boundWaits(server);
            KT::RSocket peer = server.accept();
            boundWaits(peer);
            echoed = echo(peer);
        } catch (const KT::CException& e) {
            e.print();
        }
        client.join();
        std::printf("sent \"%s\", %ld bytes echoed, got back \"%s\"\n", message.c_str(), echoed, back.c_str());
        return back == message ? 0 : 1;
    } catch (const KT::CException& e) {
        e.print();  // socket() or bind() failed, e.g. the port is taken
        return 1;
    }
}
