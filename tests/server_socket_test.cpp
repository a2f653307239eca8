#include "kt/KTServerSocket.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "kt/KTException.h"
#include "net_test_support.h"
#include "test_support.h"

namespace {

using kttest::Fd;
using kttest::loopback;
using kttest::readRaw;

using namespace kttest::sites;

class RServerSocketTest : public kttest::NoLeakTest {};

// A server listening on 127.0.0.1 whose accept() gives up after kWaitMs.
struct Server {
    explicit Server(KT::UInt8 flags = KT::RSocket::CloseOnExec)
        : socket("127.0.0.1", 0, SOCK_STREAM, flags) {
        kttest::boundWaits(socket.descriptor);
        socket.listen(16);
    }
    sockaddr_in address() const { return loopback(kttest::localPort(socket.descriptor)); }
    KT::RServerSocket socket;
};

TEST_F(RServerSocketTest, EachFormBindsWhereItSays) {
    KT::RServerSocket any(KT::UInt16(0), SOCK_STREAM, KT::RSocket::CloseOnExec);
    EXPECT_STREQ(any.getLocalAddress(), "0.0.0.0");
    EXPECT_NE(kttest::localPort(any.descriptor), 0);
    EXPECT_TRUE(kttest::sameRecord(any.remoteAddress, kttest::emptyRecord()));
    EXPECT_TRUE(kttest::closeOnExec(any.descriptor));
    EXPECT_EQ(any.listen(4), 0);
    Fd client = kttest::rawConnect(loopback(kttest::localPort(any.descriptor)));
    EXPECT_NE(any.accept().descriptor, -1);

    sockaddr_in local = loopback(0);
    KT::RServerSocket record(&local, SOCK_STREAM, 0);
    EXPECT_STREQ(record.getLocalAddress(), "127.0.0.1");
    EXPECT_TRUE(kttest::sameRecord(record.localAddress, local));
    EXPECT_FALSE(kttest::closeOnExec(record.descriptor));
}

TEST_F(RServerSocketTest, AcceptedSocketDescribesBothEndsAndMovesBytes) {
    Server server;
    Fd client = kttest::rawConnect(server.address());
    KT::RSocket accepted = server.socket.accept();
    ASSERT_NE(accepted.descriptor, -1);
    EXPECT_STREQ(accepted.getRemoteAddress(), "127.0.0.1");
    EXPECT_EQ(accepted.getRemotePort(), kttest::localPort(client.get()));
    EXPECT_STREQ(accepted.getLocalAddress(), "127.0.0.1");
    EXPECT_TRUE(kttest::sameRecord(accepted.localAddress, kttest::emptyRecord()));
    EXPECT_EQ(accepted.socketType, SOCK_STREAM);
    EXPECT_EQ(accepted.flags, KT::RSocket::CloseOnExec);
    EXPECT_TRUE(kttest::closeOnExec(accepted.descriptor));
    EXPECT_TRUE(accepted.isConnected());
    EXPECT_EQ(accepted.write("hi", 2), 2);
    EXPECT_EQ(readRaw(client.get(), 2), "hi");
}

TEST_F(RServerSocketTest, AcceptedDescriptorIsMarkedOnlyWhenTheServerAsks) {
    Server server(0);
    EXPECT_FALSE(kttest::closeOnExec(server.socket.descriptor));
    Fd client = kttest::rawConnect(server.address());
    KT::RSocket accepted = server.socket.accept();
    EXPECT_FALSE(kttest::closeOnExec(accepted.descriptor));
    // Its own flags ask for marking from now on.
    EXPECT_EQ(accepted.flags, KT::RSocket::CloseOnExec);
    KT::RSocket copy(accepted);
    EXPECT_TRUE(kttest::closeOnExec(copy.descriptor));
}

TEST_F(RServerSocketTest, FailedConstructionThrowsTheSystemMessageAndClosesTheDescriptor) {
    Server first;
    const std::uint16_t taken = kttest::localPort(first.socket.descriptor);
    sockaddr_in* noRecord = nullptr;
    struct Row {
        const char* what;
        void (*construct)(std::uint16_t, sockaddr_in*);
        int error;
    };
    const Row rows[] = {
        {"address in use",
         [](std::uint16_t port, sockaddr_in*) {
             KT::RServerSocket second("127.0.0.1", port, SOCK_STREAM, 0);
         },
         EADDRINUSE},
        {"port form on a port in use",
         [](std::uint16_t port, sockaddr_in*) { KT::RServerSocket second(port, SOCK_STREAM, 0); },
         EADDRINUSE},
        {"unreadable address text binds 255.255.255.255",
         [](std::uint16_t, sockaddr_in*) {
             KT::RServerSocket server("localhost", 0, SOCK_STREAM, 0);
         },
         EADDRNOTAVAIL},
        {"no record gives the empty record",
         [](std::uint16_t, sockaddr_in* record) {
             KT::RServerSocket server(record, SOCK_STREAM, 0);
         },
         EAFNOSUPPORT},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const int open = kttest::openDescriptors();
        kttest::expectThrow<KT::CNetworkException>(
            [&] { row.construct(taken, noRecord); },
            {"CNetworkException", kSocketFile, kBindLine, kBind, std::strerror(row.error)});
        EXPECT_EQ(kttest::openDescriptors(), open);
    }
    kttest::expectThrow<KT::CNetworkException>(
        [] { KT::RServerSocket server(KT::UInt16(0), 12345, 0); },
        {"CNetworkException", kSocketFile, kSocketLine, kRecordConstructor, std::strerror(EINVAL)});
}

TEST_F(RServerSocketTest, ListenFailureThrowsTheSystemMessage) {
    KT::RServerSocket datagrams("127.0.0.1", 0, SOCK_DGRAM, 0);
    kttest::expectThrow<KT::CNetworkException>(
        [&] { datagrams.listen(1); },
        {"CNetworkException", kServerFile, kListenLine, kListen, std::strerror(EOPNOTSUPP)});
}

// Without memory for its report, a failure surfaces as the allocation's own
// exception, and a failed constructor still closes its descriptor.
TEST_F(RServerSocketTest, ReportsThatRunOutOfMemoryLeaveNothingOpen) {
    Server first;
    const std::uint16_t taken = kttest::localPort(first.socket.descriptor);
    KT::RServerSocket datagrams("127.0.0.1", 0, SOCK_DGRAM, 0);
    const kttest::ThrowSite bindSite{"CNetworkException", kBindLine, kSocketFile, kBind,
                                     std::strerror(EADDRINUSE)};
    const kttest::ThrowSite listenSite{"CNetworkException", kListenLine, kServerFile, kListen,
                                       std::strerror(EOPNOTSUPP)};
    const int open = kttest::openDescriptors();
    kttest::expectFailures({
        {"bind",
         [&] {
             kttest::whenThrownBy(bindSite,
                                  [&] { KT::RServerSocket("127.0.0.1", taken, SOCK_STREAM, 0); });
         },
         {44, 44}},
        {"listen",
         [&] { kttest::whenThrownBy(listenSite, [&] { datagrams.listen(1); }); },
         {44, 44}},
    });
    EXPECT_EQ(kttest::openDescriptors(), open);
}

TEST_F(RServerSocketTest, BacklogGoesToTheSystemUnchanged) {
    for (int backlog : {-1, 0, 1 << 30}) {
        SCOPED_TRACE(backlog);
        KT::RServerSocket server("127.0.0.1", 0, SOCK_STREAM, 0);
        kttest::boundWaits(server.descriptor);
        EXPECT_EQ(server.listen(backlog), 0);
        Fd client = kttest::rawConnect(loopback(kttest::localPort(server.descriptor)));
        EXPECT_NE(server.accept().descriptor, -1);
    }
}

TEST_F(RServerSocketTest, AcceptFailsWithoutListeningAndReturnsNothingAfterClose) {
    KT::RServerSocket server("127.0.0.1", 0, SOCK_STREAM, 0);
    kttest::expectThrow<KT::CNetworkException>(
        [&] { server.accept(); },
        {"CNetworkException", kServerFile, kAcceptLine, kAccept, std::strerror(EINVAL)});
    EXPECT_EQ(server.close(), 0);
    EXPECT_EQ(server.accept().descriptor, -1);
}

TEST_F(RServerSocketTest, SignalInterruptsAcceptAndTheNextAcceptWorks) {
    kttest::InterruptingSignal signal;
    Server server;
    std::atomic<bool> done{false};
    std::exception_ptr thrown;
    {
        kttest::Peer waiter([&] {
            try {
                server.socket.accept();
            } catch (...) {
                thrown = std::current_exception();
            }
            done = true;
        });
        // The waiter may not be inside accept() yet when a signal arrives: send
        // it again until the waiter is out.
        for (int waited = 0; !done && waited < kttest::kWaitMs; waited += 20) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (!done) ::pthread_kill(waiter.handle(), SIGUSR1);
        }
    }
    ASSERT_TRUE(thrown);
    kttest::expectThrow<KT::CInterruptedException>(
        [&] { std::rethrow_exception(thrown); },
        {"CInterruptedException", kServerFile, kInterruptedLine, kAccept, "Got Interrupted"});

    Fd client = kttest::rawConnect(server.address());
    KT::RSocket next = server.socket.accept();
    EXPECT_NE(next.descriptor, -1);
    EXPECT_TRUE(next.isConnected());
}

TEST_F(RServerSocketTest, SeveralThreadsAcceptOnOneServer) {
    constexpr int kThreads = 4;
    Server server;
    // Each waiter records the peer port it got and the byte that peer sent.
    std::vector<std::pair<int, char>> got(kThreads, {-1, 0});
    std::vector<Fd> clients;
    {
        std::list<kttest::Peer> waiters;
        for (int i = 0; i < kThreads; ++i)
            waiters.emplace_back([&, i] {
                KT::RSocket accepted = server.socket.accept();
                char byte = 0;
                if (accepted.read(&byte, 1) == 1) got[i] = {accepted.getRemotePort(), byte};
            });
        for (int i = 0; i < kThreads; ++i) {
            clients.push_back(kttest::rawConnect(server.address()));
            kttest::writeRaw(clients.back().get(), std::string(1, char('A' + i)));
        }
    }
    std::map<int, char> sent;
    for (int i = 0; i < kThreads; ++i)
        sent[kttest::localPort(clients[std::size_t(i)].get())] = char('A' + i);
    std::map<int, char> received(got.begin(), got.end());
    EXPECT_EQ(received, sent);
}

TEST_F(RServerSocketTest, ServesAResponseToCurl) {
    if (!kttest::onPath("curl")) GTEST_SKIP() << "curl is not installed";
    Server server;
    const std::string url =
        "http://127.0.0.1:" + std::to_string(kttest::localPort(server.socket.descriptor)) +
        "/greeting";
    kttest::Child curl(
        {"curl", "--silent", "--show-error", "--noproxy", "*", "--max-time", "5", url});
    ASSERT_TRUE(curl.started());

    KT::RSocket accepted = server.socket.accept();
    ASSERT_NE(accepted.descriptor, -1);
    kttest::boundWaits(accepted.descriptor);
    std::string request;
    char chunk[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        int n = accepted.read2(chunk, sizeof chunk);
        if (n <= 0) break;
        request.append(chunk, std::size_t(n));
    }
    EXPECT_EQ(request.substr(0, request.find("\r\n")), "GET /greeting HTTP/1.1");
    const std::string response =
        "HTTP/1.1 200 OK\r\nContent-Length: 12\r\nConnection: close\r\n\r\nhello, curl\n";
    EXPECT_EQ(accepted.write(response.data(), int(response.size())), int(response.size()));
    accepted.close();

    EXPECT_EQ(curl.read(), "hello, curl\n");
    EXPECT_EQ(curl.wait(), 0);
}

}  // namespace
