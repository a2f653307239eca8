#include "kt/KTSocket.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "allocation_faults.h"
#include "support.h"

namespace {

using namespace kttest;
using namespace sites;

class RSocketTest : public NoLeakTest {};

// Runs the steps of a script (tests/data/socket_cases.txt) on one socket and
// one raw peer on loopback.
Results runScript(const Case& row) {
    RawListener listener;
    sockaddr_in open = listener.address(), any = loopback(0);
    const std::uint16_t refusedAt = refusedPort();
    sockaddr_in refused = loopback(refusedAt);
    const int lookups = hostLookups, descriptors = openDescriptors();
    std::optional<KT::RSocket> socket(std::in_place);
    Fd peer;
    ino_t inode = 0;
    int error = 0;
    auto port = [&](std::uint16_t number) {
        return number == listener.port() ? "L" : number == refusedAt ? "R" : std::to_string(number);
    };
    auto describe = [&](const sockaddr_in& record) {
        return std::to_string(record.sin_family) + "/" + ::inet_ntoa(record.sin_addr) + ":" +
               port(ntohs(record.sin_port)) +
               (std::count(record.sin_zero, record.sin_zero + 8, 0) == 8 ? "" : "!");
    };
    Results out = runSteps(row.arguments, [&](const Step& step, Results& out) {
        const std::string& name = step.name;
        const int number = step.number[0], second = step.number[1];
        const auto flags = KT::UInt8(second);
        const char* bytes = step.value.c_str();
        const int size = int(step.value.size());
        char buffer[101] = {};
        auto put = [&](const auto&... values) { out.insert(out.end(), {result(values)...}); };
        if (name == "errno") put(std::strerror(error));
        errno = 0;
        try {
            if (name == "default") socket.emplace();
            else if (name == "new") socket.emplace(nullptr, number, nullptr, flags);
            else if (name == "given") {
                sockaddr_in remote = loopback(1234);
                socket.emplace(&remote, number, &any, flags);
            } else if (name == "host") {
                socket.emplace(bytes + step.value.rfind(',') + 1, 80, number, flags);
            } else if (name == "adopt")
                socket.emplace(::socket(AF_INET, SOCK_STREAM, 0), SOCK_STREAM, nullptr, nullptr,
                               KT::UInt8(number));
            else if (name == "copy") {
                const KT::RSocket copy(*socket);
                socket.emplace(copy);
            } else if (name == "assign") {
                KT::RSocket target(nullptr, number, nullptr, flags);
                const int before = openDescriptors();
                target = *socket;
                put(openDescriptors() - before, target.socketType, target.flags,
                    closeOnExec(target.descriptor));
                socket.emplace(target);
            } else if (name == "self") {
                KT::RSocket& same = *socket;
                *socket = same;
            } else if (name == "lookup") hostLookupError = number;
            else if (name == "room") hostLookupRoom = std::size_t(number);
            else if (name == "connect" || name == "refuse" || name == "reconnect") {
                boundWaits(socket->descriptor);
                sockaddr_in* to = name == "connect" ? &open : name == "refuse" ? &refused : nullptr;
                put(socket->connect(to));
            } else if (name == "accept") peer = listener.accept();
            else if (name == "transfers")
                put(socket->read(buffer, number) + socket->write(buffer, number) +
                    socket->send(buffer, number, 0) + socket->receive(buffer, number, 0));
            else if (name == "write") put(socket->write(bytes, size));
            else if (name == "send") put(socket->send(bytes, size, MSG_NOSIGNAL));
            else if (name == "read") put(socket->read(buffer, number), buffer);
            else if (name == "read2") put(socket->read2(buffer, number), buffer);
            else if (name == "receive") put(socket->receive(buffer, number, second), buffer);
            else if (name == "large") {
                const std::string data = randomBytes(std::size_t(number), 7);
                std::string received;
                {
                    Peer reader([&] { received = readRaw(peer.get(), data.size()); });
                    put(socket->write(data.data(), number));
                }
                put(received == data);
            } else if (name == "peer") put(readRaw(peer.get(), std::size_t(number)));
            else if (name == "give") {
                writeRaw(peer.get(), step.value);
                EXPECT_TRUE(waitPending(socket->descriptor, size));
            } else if (name == "hangup" || name == "abort") {
                const linger abort{1, 0};
                if (name == "abort")
                    ::setsockopt(peer.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
                peer.close();
            } else if (name == "close") put(socket->close());
            else if (name == "shutdown") put(socket->shutdown());
            else if (name == "reset") socket->reset();
            else if (name == "bind") put(socket->bind(&any));
            else if (name == "fd") put(socket->descriptor == -1 ? "none" : "open");
            else if (name == "fds") put(openDescriptors() - descriptors);
            else if (name == "lookups") put(hostLookups - lookups);
            else if (name == "isrsocket") put(KT::RSocket::isRSocket(socket->descriptor));
            else if (name == "inode") {
                struct stat status {};
                ::fstat(socket->descriptor, &status);
                put(std::exchange(inode, status.st_ino) == status.st_ino ? "same" : "new");
            } else if (name == "cloexec") put(closeOnExec(socket->descriptor));
            else if (name == "unmark") ::fcntl(socket->descriptor, F_SETFD, 0);
            else if (name == "type") {
                int type = 0;
                unsigned int length = sizeof type;
                put(socket->getOption(SO_TYPE, &type, &length), type, socket->socketType,
                    socket->flags);
            } else if (name == "remote")
                put(socket->getRemoteAddress(), socket->getRemoteAddressUInt32(),
                    port(socket->getRemotePort()));
            else if (name == "local")
                put(socket->getLocalAddress(), socket->getLocalAddressUInt32());
            else if (name == "records")
                put(describe(socket->remoteAddress), describe(socket->localAddress));
            else if (name == "connected") put(socket->isConnected());
            else return name == "errno";
        } catch (const KT::CNetworkException& e) {
            const bool lookup = name == "host";
            expectSite(e, {"CNetworkException", unsigned(lookup ? kResolveLine : kSocketLine),
                           kSocketFile, lookup ? kHostConstructor : kRecordConstructor, e.msg()});
            // The table has the system's words for an unknown socket type.
            const bool unknownType = std::strcmp(e.msg(), unknownSocketTypeMessage()) == 0;
            put("thrown", unknownType ? std::strerror(EINVAL) : e.msg());
        }
        error = errno;
        return true;
    });
    hostLookupError = HOST_NOT_FOUND;
    hostLookupRoom = 0;
    return out;
}

TEST_F(RSocketTest, Cases) { runCases("socket_cases.txt", {{"socket", runScript}}); }

// Each thread resolves a name of its own, over and over, while the others
// resolve theirs: every socket must get its own name's address.
TEST_F(RSocketTest, ThreadsResolveTheirOwnNames) {
    constexpr int kThreads = 8, kRounds = 200;
    std::array<int, kThreads> wrong{};
    {
        std::list<Peer> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([t, &wrong] {
                const std::string name = "host" + std::to_string(t + 1);
                for (int round = 0; round < kRounds; ++round) {
                    const KT::RSocket socket(name.c_str(), 80, SOCK_STREAM, 0);
                    wrong[t] += socket.remoteAddress.sin_addr.s_addr != htonl(0x0A000001u + t);
                }
            });
    }
    EXPECT_EQ(wrong, (std::array<int, kThreads>{}));
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
