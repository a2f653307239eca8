#include "kt/KTServerSocket.h"
#include "allocation_faults.h"
#include "support.h"

// The library's accept() calls, the next of which a test can make fail with
// an error of its choice: the program is linked with --wrap=accept
// (tests/CMakeLists.txt).
namespace {
std::atomic<int> acceptError{0};
}  // namespace

extern "C" int __real_accept(int fd, sockaddr* address, socklen_t* length);
extern "C" int __wrap_accept(int fd, sockaddr* address, socklen_t* length) {
    if (const int error = acceptError.exchange(0)) {
        errno = error;
        return -1;
    }
    return __real_accept(fd, address, length);
}

namespace {

using namespace kttest;
using namespace sites;

class RServerSocketTest : public NoLeakTest {};

// A server listening on 127.0.0.1 whose accept() gives up after kWaitMs.
struct Server {
    explicit Server(KT::UInt8 flags = KT::RSocket::CloseOnExec)
        : socket("127.0.0.1", 0, SOCK_STREAM, flags) {
        boundWaits(socket.descriptor);
        socket.listen(16);
    }
    sockaddr_in address() const { return loopback(localPort(socket.descriptor)); }
    KT::RServerSocket socket;
};

TEST_F(RServerSocketTest, EachFormBindsWhereItSays) {
    KT::RServerSocket any(KT::UInt16(0), SOCK_STREAM, KT::RSocket::CloseOnExec);
    EXPECT_STREQ(any.getLocalAddress(), "0.0.0.0");
    EXPECT_NE(localPort(any.descriptor), 0);
    EXPECT_TRUE(sameRecord(any.remoteAddress, emptyRecord()));
    EXPECT_TRUE(closeOnExec(any.descriptor));
    boundWaits(any.descriptor);
    for (int backlog : {-1, 0, 1 << 30}) {  // goes to the system unchanged
        SCOPED_TRACE(backlog);
        EXPECT_EQ(any.listen(backlog), 0);
        Fd client = rawConnect(loopback(localPort(any.descriptor)));
        EXPECT_NE(any.accept().descriptor, -1);
    }

    sockaddr_in local = loopback(0);
    KT::RServerSocket record(&local, SOCK_STREAM, 0);
    EXPECT_STREQ(record.getLocalAddress(), "127.0.0.1");
    EXPECT_TRUE(sameRecord(record.localAddress, local));
    EXPECT_FALSE(closeOnExec(record.descriptor));
}

// The accepted descriptor is marked only when the server asks, but its own
// flags ask for marking from then on.
TEST_F(RServerSocketTest, AcceptedSocketDescribesBothEndsAndMovesBytes) {
    for (KT::UInt8 flags : {KT::RSocket::CloseOnExec, KT::UInt8(0)}) {
        SCOPED_TRACE(int(flags));
        Server server(flags);
        EXPECT_EQ(closeOnExec(server.socket.descriptor), flags != 0);
        Fd client = rawConnect(server.address());
        KT::RSocket accepted = server.socket.accept();
        ASSERT_NE(accepted.descriptor, -1);
        EXPECT_STREQ(accepted.getRemoteAddress(), "127.0.0.1");
        EXPECT_EQ(accepted.getRemotePort(), localPort(client.get()));
        EXPECT_STREQ(accepted.getLocalAddress(), "127.0.0.1");
        EXPECT_TRUE(sameRecord(accepted.localAddress, emptyRecord()));
        EXPECT_EQ(accepted.socketType, SOCK_STREAM);
        EXPECT_EQ(accepted.flags, KT::RSocket::CloseOnExec);
        EXPECT_EQ(closeOnExec(accepted.descriptor), flags != 0);
        EXPECT_TRUE(closeOnExec(KT::RSocket(accepted).descriptor));
        EXPECT_TRUE(accepted.isConnected());
        EXPECT_EQ(accepted.write("hi", 2), 2);
        EXPECT_EQ(readRaw(client.get(), 2), "hi");
    }
}

// A connection that its peer gave up before accept() took it is no failure:
// the caller gets a socket without a descriptor, and the next one is taken.
TEST_F(RServerSocketTest, AnAbortedConnectionGivesASocketWithoutDescriptor) {
    Server server;
    Fd client = rawConnect(server.address());
    acceptError = ECONNABORTED;
    const KT::RSocket aborted = server.socket.accept();
    EXPECT_EQ(aborted.descriptor, -1);
    EXPECT_TRUE(sameRecord(aborted.remoteAddress, emptyRecord()));
    EXPECT_NE(server.socket.accept().descriptor, -1);
}

// Each failure throws the system's message and leaves no descriptor open; a
// closed server's accept() returns nothing.
TEST_F(RServerSocketTest, FailuresThrowTheSystemMessageAndCloseTheDescriptor) {
    Server first;
    const std::uint16_t taken = localPort(first.socket.descriptor);
    KT::RServerSocket datagrams("127.0.0.1", 0, SOCK_DGRAM, 0),
        unlistened("127.0.0.1", 0, SOCK_STREAM, 0);
    sockaddr_in* noRecord = nullptr;
    auto bindFailure = [](int error) {
        return ThrowSite{"CNetworkException", kBindLine, kSocketFile, kBind, std::strerror(error)};
    };
    const ThrowSite bindSite = bindFailure(EADDRINUSE),
                    listenSite{"CNetworkException", kListenLine, kServerFile, kListen,
                               std::strerror(EOPNOTSUPP)};
    const std::tuple<const char*, std::function<void()>, ThrowSite> rows[] = {
        {"address in use", [&] { KT::RServerSocket("127.0.0.1", taken, SOCK_STREAM, 0); },
         bindSite},
        {"port form on a port in use", [&] { KT::RServerSocket(taken, SOCK_STREAM, 0); }, bindSite},
        {"unreadable address text binds 255.255.255.255",
         [] { KT::RServerSocket("nowhere", 0, SOCK_STREAM, 0); }, bindFailure(EADDRNOTAVAIL)},
        {"no record gives the empty record", [&] { KT::RServerSocket(noRecord, SOCK_STREAM, 0); },
         bindFailure(EAFNOSUPPORT)},
        {"no such socket type",
         [] { KT::RServerSocket(KT::UInt16(0), 12345, 0); },
         {"CNetworkException", kSocketLine, kSocketFile, kRecordConstructor,
          unknownSocketTypeMessage()}},
        {"listen on datagrams", [&] { datagrams.listen(1); }, listenSite},
        {"accept without listening",
         [&] { unlistened.accept(); },
         {"CNetworkException", kAcceptLine, kServerFile, kAccept, std::strerror(EINVAL)}}};
    for (const auto& [what, action, site] : rows) {
        SCOPED_TRACE(what);
        const int open = openDescriptors();
        expectThrow<KT::CNetworkException>(action, site);
        EXPECT_EQ(openDescriptors(), open);
    }
    EXPECT_EQ(unlistened.close(), 0);
    EXPECT_EQ(unlistened.accept().descriptor, -1);
    // Without memory for its report, a failure surfaces as the allocation's
    // own exception, and a failed constructor still closes its descriptor.
    const int open = openDescriptors();
    expectFailures({
        {"bind",
         [&] {
             whenThrownBy(bindSite, [&] { KT::RServerSocket("127.0.0.1", taken, SOCK_STREAM, 0); });
         },
         {44, 44}},
        {"listen", [&] { whenThrownBy(listenSite, [&] { datagrams.listen(1); }); }, {44, 44}},
    });
    EXPECT_EQ(openDescriptors(), open);
}

TEST_F(RServerSocketTest, SignalInterruptsAcceptAndTheNextAcceptWorks) {
    InterruptingSignal signal;
    Server server;
    std::atomic<bool> done{false};
    {
        // An accept() that no signal breaks throws another exception after
        // kWaitMs.
        Peer waiter([&] {
            try {
                expectThrow<KT::CInterruptedException>(
                    [&] { server.socket.accept(); },
                    {"CInterruptedException", kInterruptedLine, kServerFile, kAccept,
                     "Got Interrupted"});
            } catch (const KT::CException& other) {
                ADD_FAILURE() << other.msg();
            }
            done = true;
        });
        // The waiter may not be inside accept() yet when a signal arrives: send
        // it again until the waiter is out.
        for (int waited = 0; !done && waited < kWaitMs; waited += 20) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (!done) ::pthread_kill(waiter.handle(), SIGUSR1);
        }
    }
    Fd client = rawConnect(server.address());
    KT::RSocket next = server.socket.accept();
    EXPECT_NE(next.descriptor, -1);
    EXPECT_TRUE(next.isConnected());
}

}  // namespace
