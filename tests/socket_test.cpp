#include "kt/KTSocket.h"

#include <sys/stat.h>

#include "support.h"

namespace {

using namespace kttest;
using namespace sites;

class RSocketTest : public NoLeakTest {};

ino_t inodeOf(int fd) {
    struct stat status {};
    ::fstat(fd, &status);
    return status.st_ino;
}

// A library client connected to a raw peer on loopback.
struct Connection {
    Connection() {
        EXPECT_EQ(client.connect(nullptr), 0);
        boundWaits(client.descriptor);
        peer = listener.accept();
    }
    RawListener listener;
    sockaddr_in address = listener.address();
    KT::RSocket client{&address, SOCK_STREAM, nullptr, 0};
    Fd peer;
};

TEST_F(RSocketTest, DefaultConstructedHoldsNothingAndIsRSocketSeesOnlyOpenDescriptors) {
    KT::RSocket socket;
    EXPECT_EQ(socket.descriptor, -1);
    EXPECT_TRUE(sameRecord(socket.remoteAddress, emptyRecord()));
    EXPECT_TRUE(sameRecord(socket.localAddress, emptyRecord()));
    EXPECT_STREQ(socket.getRemoteAddress(), "255.255.255.255");
    EXPECT_EQ(socket.getRemoteAddressUInt32(), 0xFFFFFFFFu);
    EXPECT_EQ(socket.getRemotePort(), 0);
    EXPECT_STREQ(socket.getLocalAddress(), "0.0.0.0");
    EXPECT_EQ(socket.getLocalAddressUInt32(), 0u);
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(socket.close(), 0);
    EXPECT_EQ(socket.shutdown(), 0);
    socket.reset();  // no socket type: no descriptor
    EXPECT_EQ(socket.descriptor, -1);
    // Without a descriptor any system call sets EBADF: lengths below 1 make none.
    char buffer[4] = {};
    for (int length : {0, -1}) {
        errno = 0;
        EXPECT_EQ(socket.read(buffer, length) + socket.write(buffer, length) +
                      socket.send(buffer, length, 0) + socket.receive(buffer, length, 0),
                  0);
        EXPECT_EQ(errno, 0);
    }
    EXPECT_EQ(socket.read(buffer, 1), -1);
    EXPECT_EQ(errno, EBADF);
    // isRSocket() answers -1 for every open descriptor.
    KT::RSocket made(nullptr, SOCK_STREAM, nullptr, 0);
    EXPECT_EQ(KT::RSocket::isRSocket(made.descriptor), -1);
    Fd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(KT::RSocket::isRSocket(file.get()), -1);
    int closed = ::dup(file.get());
    ::close(closed);
    EXPECT_EQ(KT::RSocket::isRSocket(closed), 0);
}

// A dotted address needs no lookup; a failed lookup throws its message and
// opens nothing, but one that fails without an error leaves INADDR_NONE.
TEST_F(RSocketTest, HostNameConstructorResolvesOrThrowsTheLookupMessage) {
    const std::tuple<const char*, int, const char*, const char*> rows[] = {
        {"10.0.0.1", HOST_NOT_FOUND, "10.0.0.1", nullptr},
        {"localhost", HOST_NOT_FOUND, "127.0.0.1", nullptr},
        {"unknown", NETDB_SUCCESS, "255.255.255.255", nullptr},
        {"unknown", NETDB_INTERNAL, nullptr,
         "Internal error in the network library, unrelated to the  network  or  name service."},
        {"unknown", HOST_NOT_FOUND, nullptr, "No such host is known."},
        {"unknown", TRY_AGAIN, nullptr, "No response from server"},
        {"unknown", NO_RECOVERY, nullptr,
         "Some unexpected server failure was encountered.  This is a  non-recoverable error."},
        {"unknown", NO_DATA, nullptr,
         "The requested  name  is  valid but does not have an IP  address."},
        {"unknown", 5, nullptr, "Unkown error."}, {"unknown", -2, nullptr, "Unkown error."},
    };
    for (const auto& [host, error, address, message] : rows) {
        SCOPED_TRACE(std::string(host) + " " + std::to_string(error));
        hostLookupError = error;
        const int lookups = hostLookups, open = openDescriptors();
        auto make = [host = host] { return KT::RSocket(host, 80, SOCK_STREAM, 0); };
        if (message) {
            expectThrow<KT::CNetworkException>(
                make, {"CNetworkException", kResolveLine, kSocketFile, kHostConstructor, message});
            EXPECT_EQ(openDescriptors(), open);
            continue;
        }
        KT::RSocket socket = make();
        EXPECT_EQ(hostLookups - lookups, host[0] == '1' ? 0 : 1);
        EXPECT_STREQ(socket.getRemoteAddress(), address);
        EXPECT_EQ(socket.getRemoteAddressUInt32(), ntohl(inet_addr(address)));
        sockaddr_in remote = loopback(80);
        remote.sin_addr.s_addr = inet_addr(address);
        EXPECT_TRUE(sameRecord(socket.remoteAddress, remote));
        EXPECT_TRUE(sameRecord(socket.localAddress, sockaddr_in{}));
        EXPECT_NE(socket.descriptor, -1);
        EXPECT_FALSE(socket.isConnected());
    }
    hostLookupError = HOST_NOT_FOUND;
}

TEST_F(RSocketTest, ConstructorsKeepTheRecordsAndAdoptedDescriptorAndThrowOnlyFromTheRecordForm) {
    sockaddr_in remote = loopback(1234);
    sockaddr_in local = loopback(0);
    KT::RSocket given(&remote, SOCK_DGRAM, &local, 0);
    EXPECT_TRUE(sameRecord(given.remoteAddress, remote));
    EXPECT_TRUE(sameRecord(given.localAddress, local));
    int type = 0;
    unsigned int size = sizeof type;
    EXPECT_EQ(given.getOption(SO_TYPE, &type, &size), 0);
    EXPECT_EQ(type, SOCK_DGRAM);
    // Close forgets the descriptor; reset makes a new one for the same records.
    EXPECT_EQ(given.close(), 0);
    EXPECT_EQ(given.descriptor, -1);
    EXPECT_EQ(given.close(), 0);
    given.reset();
    EXPECT_NE(given.descriptor, -1);
    EXPECT_TRUE(sameRecord(given.remoteAddress, remote));

    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    {
        KT::RSocket adopted(fd, SOCK_STREAM, nullptr, nullptr, KT::RSocket::CloseOnExec);
        EXPECT_EQ(adopted.descriptor, fd);
        EXPECT_FALSE(closeOnExec(fd));
        EXPECT_TRUE(sameRecord(adopted.remoteAddress, emptyRecord()));
        EXPECT_TRUE(sameRecord(adopted.localAddress, emptyRecord()));
    }
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1) << "the owner closes what it adopted";

    // A failing socket() throws only from the address-record constructor.
    const int noSuchType = 12345;
    expectThrow<KT::CNetworkException>(
        [] { KT::RSocket socket(nullptr, noSuchType, nullptr, 0); },
        {"CNetworkException", kSocketLine, kSocketFile, kRecordConstructor, std::strerror(EINVAL)});
    KT::RSocket named("127.0.0.1", 80, noSuchType, KT::RSocket::CloseOnExec);
    EXPECT_EQ(named.descriptor, -1);
}

TEST_F(RSocketTest, CloseOnExecMarksEveryDescriptorTheObjectMakes) {
    for (KT::UInt8 flags : {KT::UInt8(0), KT::RSocket::CloseOnExec}) {
        SCOPED_TRACE(int(flags));
        const bool marked = flags == KT::RSocket::CloseOnExec;
        sockaddr_in any = loopback(0);
        KT::RSocket made(nullptr, SOCK_STREAM, nullptr, flags);
        EXPECT_EQ(closeOnExec(made.descriptor), marked) << "address-record constructor";
        KT::RSocket named("127.0.0.1", 80, SOCK_STREAM, flags);
        EXPECT_EQ(closeOnExec(named.descriptor), marked) << "host-name constructor";
        KT::RSocket copy(made);
        EXPECT_EQ(closeOnExec(copy.descriptor), marked) << "copy";
        KT::RSocket assigned;
        assigned = made;
        EXPECT_EQ(closeOnExec(assigned.descriptor), marked) << "assignment";
        made.reset();
        EXPECT_EQ(closeOnExec(made.descriptor), marked) << "reset";
        ::fcntl(made.descriptor, F_SETFD, 0);
        made.bind(&any);
        EXPECT_EQ(closeOnExec(made.descriptor), marked) << "bind";
    }
}

// Peeking copies the pending bytes again until the buffer is full, read2()
// takes one chunk, and shutdown() stops receiving but not sending.
TEST_F(RSocketTest, MovesBytesBothWaysWithEveryTransferCall) {
    Connection c;
    EXPECT_TRUE(c.client.isConnected());
    EXPECT_EQ(c.client.write("hello", 5), 5);
    EXPECT_EQ(readRaw(c.peer.get(), 5), "hello");
    EXPECT_EQ(c.client.send("abc", 3, MSG_NOSIGNAL), 3);
    EXPECT_EQ(readRaw(c.peer.get(), 3), "abc");

    writeRaw(c.peer.get(), "world!xyz");
    char buffer[100];
    EXPECT_EQ(c.client.read(buffer, 6), 6);
    EXPECT_EQ(std::string(buffer, 6), "world!");
    EXPECT_EQ(c.client.receive(buffer, 3, 0), 3);
    EXPECT_EQ(std::string(buffer, 3), "xyz");

    writeRaw(c.peer.get(), "abcd");
    ASSERT_TRUE(waitPending(c.client.descriptor, 4));
    EXPECT_EQ(c.client.receive(buffer, 8, MSG_PEEK), 8);
    EXPECT_EQ(std::string(buffer, 8), "abcdabcd");
    EXPECT_EQ(c.client.read2(buffer, 100), 4);

    EXPECT_STREQ(c.client.getRemoteAddress(), "127.0.0.1");
    EXPECT_EQ(c.client.getRemotePort(), c.listener.port());
    EXPECT_STREQ(c.client.getLocalAddress(), "127.0.0.1");
    EXPECT_EQ(c.client.getLocalAddressUInt32(), 0x7F000001u);

    const int descriptor = c.client.descriptor;
    EXPECT_EQ(c.client.shutdown(), 0);
    EXPECT_EQ(c.client.descriptor, descriptor);
    EXPECT_EQ(c.client.read2(buffer, 1), 0);
    EXPECT_EQ(c.client.write("x", 1), 1);
    EXPECT_EQ(readRaw(c.peer.get(), 1), "x");
}

TEST_F(RSocketTest, WriteMovesEveryByteOfABufferLargerThanTheSystemTakesAtOnce) {
    Connection c;
    std::string data(8 << 20, '\0');
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = char(i * 7 + i / 4096);
    std::string received;
    {
        Peer reader([&] { received = readRaw(c.peer.get(), data.size()); });
        EXPECT_EQ(c.client.write(data.data(), int(data.size())), int(data.size()));
    }
    EXPECT_TRUE(received == data);
}

// A read after the peer's 40 bytes returns them when the peer closed, and
// fails with them in the buffer when it reset the connection.
TEST_F(RSocketTest, ReadReturnsWhatArrivedWhenThePeerClosesAndFailsOnAReset) {
    for (bool reset : {false, true}) {
        SCOPED_TRACE(reset ? "reset" : "close");
        Connection c;
        writeRaw(c.peer.get(), std::string(40, 'a'));
        if (reset) {
            ASSERT_TRUE(waitPending(c.client.descriptor, 40));
            linger abort{1, 0};
            ::setsockopt(c.peer.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        }
        c.peer.close();
        char buffer[100] = {};
        errno = 0;
        EXPECT_EQ(c.client.read(buffer, 100), reset ? -1 : 40);
        EXPECT_EQ(errno, reset ? ECONNRESET : 0);
        EXPECT_EQ(std::string(buffer, 40), std::string(40, 'a'));
    }
}

TEST_F(RSocketTest, RefusedConnectRenewsTheStreamDescriptor) {
    sockaddr_in refused = loopback(refusedPort());
    KT::RSocket socket(nullptr, SOCK_STREAM, nullptr, KT::RSocket::CloseOnExec);
    const ino_t before = inodeOf(socket.descriptor);
    errno = 0;
    EXPECT_EQ(socket.connect(&refused), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    ASSERT_NE(socket.descriptor, -1);
    EXPECT_NE(inodeOf(socket.descriptor), before) << "a new socket, maybe with the same number";
    EXPECT_TRUE(closeOnExec(socket.descriptor));
    EXPECT_TRUE(sameRecord(socket.remoteAddress, refused));
    EXPECT_FALSE(socket.isConnected());

    RawListener listener;
    sockaddr_in open = listener.address();
    EXPECT_EQ(socket.connect(&open), 0);
    EXPECT_TRUE(socket.isConnected());
    Fd peer = listener.accept();

    // Any other failure keeps the descriptor.
    const ino_t connected = inodeOf(socket.descriptor);
    EXPECT_EQ(socket.connect(nullptr), -1);
    EXPECT_EQ(errno, EISCONN);
    EXPECT_EQ(inodeOf(socket.descriptor), connected);
}

TEST_F(RSocketTest, CopiesAndAssignmentsUseTheirOwnDescriptorForTheSameConnection) {
    Connection c;
    {
        KT::RSocket copy(c.client);
        EXPECT_NE(copy.descriptor, c.client.descriptor);
        EXPECT_TRUE(sameRecord(copy.remoteAddress, c.client.remoteAddress));
        EXPECT_EQ(copy.write("a", 1), 1);
        EXPECT_EQ(readRaw(c.peer.get(), 1), "a");

        KT::RSocket target(nullptr, SOCK_DGRAM, nullptr, KT::RSocket::CloseOnExec);
        const int open = openDescriptors();
        target = c.client;  // closes its own descriptor first
        EXPECT_EQ(openDescriptors(), open);
        EXPECT_EQ(target.socketType, SOCK_STREAM);
        EXPECT_EQ(target.flags, 0);
        EXPECT_FALSE(closeOnExec(target.descriptor));
        EXPECT_TRUE(target.isConnected());
    }
    EXPECT_EQ(c.client.write("b", 1), 1);
    EXPECT_EQ(readRaw(c.peer.get(), 1), "b");

    KT::RSocket& same = c.client;
    c.client = same;
    EXPECT_EQ(c.client.descriptor, -1);
    EXPECT_EQ(KT::RSocket(c.client).descriptor, -1);
}

TEST_F(RSocketTest, BindThrowsOnAListeningAddressAndTakesOneLeftInTimeWait) {
    RawListener listener;
    sockaddr_in taken = listener.address();
    KT::RSocket socket(nullptr, SOCK_STREAM, nullptr, 0);
    expectThrow<KT::CNetworkException>(
        [&] { socket.bind(&taken); },
        {"CNetworkException", kBindLine, kSocketFile, kBind, std::strerror(EADDRINUSE)});
    EXPECT_TRUE(sameRecord(socket.localAddress, taken));

    // Bind allows address reuse first, so it succeeds where a plain bind fails.
    std::uint16_t port;
    {
        RawListener earlier;
        // The earlier server allowed reuse too, as servers on this port do.
        int reuse = 1;
        ::setsockopt(earlier.fd(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        port = earlier.port();
        Fd client = rawConnect(earlier.address());
        Fd server = earlier.accept();
        server.close();  // the side that closes first keeps the port in TIME_WAIT
        EXPECT_EQ(readRaw(client.get(), 1), "");
    }
    sockaddr_in address = loopback(port);
    Fd plain(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(::bind(plain.get(), asGeneric(&address), sizeof address), -1)
        << "the port should still be in TIME_WAIT";
    KT::RSocket reusing(nullptr, SOCK_STREAM, &address, 0);
    EXPECT_EQ(reusing.bind(nullptr), 0);
    EXPECT_STREQ(reusing.getLocalAddress(), "127.0.0.1");
    EXPECT_EQ(localPort(reusing.descriptor), port);
}

}  // namespace
