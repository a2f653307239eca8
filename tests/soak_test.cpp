// The server socket under load and under faults: an echo server built on
// RServerSocket serves many concurrent clients, every byte coming back equal,
// and keeps serving through peers that reset, stay silent or half-close, and
// through a storm of signals at its accept().
#include "kt/KTServerSocket.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "kt/KTException.h"
#include "kt/KTSocket.h"
#include "net_test_support.h"

#if defined(__SANITIZE_ADDRESS__)
#define KT_SOAK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_SOAK_SANITIZED 1
#endif
#endif

namespace {

using kttest::kWaitMs;

// How many clients at once, the round trips each makes, and what the resident
// size may grow by between the warm-up and the end: more under the address
// sanitizer, whose quarantine keeps freed blocks resident.
#ifdef KT_SOAK_SANITIZED
constexpr int kClients = 16, kRoundTrips = 100;
constexpr long kMemoryMargin = 16L << 20;
#else
constexpr int kClients = 64, kRoundTrips = 500;
constexpr long kMemoryMargin = 4L << 20;
#endif
constexpr int kMaxSize = 64 * 1024;  // bytes per round trip at most
// The same clients first run a short round, after which the memory the server
// process needs for this load is in place.
constexpr int kWarmUpRoundTrips = 20;

long residentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

/// How a connection's handler ended.
enum Ending { PeerClosed, TimedOut, Failed, kEndings };

/// An echo server on 127.0.0.1 (port chosen by the system): one thread
/// accepts, and one thread per connection sends back what it reads until the
/// peer closes, fails, or sends nothing for `idleMs`; the counters say what
/// happened. Stopped and joined when the object goes.
class EchoServer {
public:
    explicit EchoServer(int idleMs)
        : socket_("127.0.0.1", 0, SOCK_STREAM, KT::RSocket::CloseOnExec), idleMs_(idleMs) {
        kttest::boundWaits(socket_.descriptor);  // accept() then fails with EAGAIN
        socket_.listen(128);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }

    ~EchoServer() {
        stopping_ = true;
        // Shutting a listening socket down wakes the accept() waiting on it.
        socket_.shutdown();
        acceptor_.join();
        // Each handler ends within its own time limits.
        for (std::thread& handler : handlers_) handler.join();
    }

    sockaddr_in address() const { return kttest::loopback(kttest::localPort(socket_.descriptor)); }
    pthread_t acceptThread() { return acceptor_.native_handle(); }

    /// Waits until no handler is running, at most kWaitMs, and joins them;
    /// false if one is still running.
    bool waitIdle() {
        std::list<std::thread> finished;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (!idle_.wait_for(lock, std::chrono::milliseconds(kWaitMs),
                                [this] { return active_ == 0; }))
                return false;
            finished.swap(handlers_);
        }
        for (std::thread& handler : finished) handler.join();
        return true;
    }

    std::atomic<int> accepted{0}, interruptions{0}, ended[kEndings] = {};
    std::atomic<long long> echoed{0};

private:
    void acceptLoop() {
        while (!stopping_) {
            try {
                // Built in place: a copy would duplicate the descriptor.
                std::unique_ptr<KT::RSocket> connection(new KT::RSocket(socket_.accept()));
                if (connection->descriptor == -1) continue;  // the peer gave up first
                ++accepted;
                std::lock_guard<std::mutex> lock(mutex_);
                ++active_;
                handlers_.emplace_back([this, c = std::move(connection)] { serve(*c); });
            } catch (const KT::CInterruptedException&) {
                ++interruptions;
            } catch (const KT::CException& e) {
                // A quiet spell longer than the accept limit is not a failure.
                if (!stopping_ && std::strcmp(e.msg(), std::strerror(EAGAIN)) != 0)
                    ADD_FAILURE() << "accept failed: " << e.msg();
            }
        }
    }

    void serve(KT::RSocket& connection) {
        kttest::boundWaits(connection.descriptor);
        timeval idle{idleMs_ / 1000, idleMs_ % 1000 * 1000};
        connection.setOption(SO_RCVTIMEO, &idle, sizeof idle);
        std::vector<char> buffer(static_cast<std::size_t>(kMaxSize));
        int n;
        while ((n = connection.read2(buffer.data(), kMaxSize)) > 0 &&
               connection.write(buffer.data(), n) == n)
            echoed += n;
        // Here n > 0 means the write failed.
        const bool quiet = n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        ++ended[n == 0 ? PeerClosed : quiet ? TimedOut : Failed];
        connection.close();
        std::lock_guard<std::mutex> lock(mutex_);
        if (--active_ == 0) idle_.notify_all();
    }

    KT::RServerSocket socket_;
    const int idleMs_;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::condition_variable idle_;
    int active_ = 0;
    std::list<std::thread> handlers_;
    std::thread acceptor_;
};

/// A client socket connected to `server`, each of its waits bounded by
/// kWaitMs.
struct Client {
    explicit Client(sockaddr_in server)
        : socket(&server, SOCK_STREAM, nullptr, KT::RSocket::CloseOnExec) {
        kttest::boundWaits(socket.descriptor);
        connected = socket.connect(nullptr) == 0;
    }
    KT::RSocket socket;
    bool connected;
};

/// What clients moved: the round trips that came back equal, their bytes,
/// and the clients that could not connect or got back something else.
struct Moved {
    int roundTrips = 0;
    long long bytes = 0;
    int broken = 0;
};

/// Twice `maxSize` bytes drawn from `random`, so that a slice of up to
/// `maxSize` bytes can start at any of the first `maxSize`.
std::vector<char> randomBytes(std::mt19937& random, int maxSize) {
    std::vector<char> bytes(2 * std::size_t(maxSize));
    for (char& byte : bytes) byte = char(random());
    return bytes;
}

/// Connects to `server` and makes up to `roundTrips` round trips of random
/// sizes from 1 to `maxSize` bytes (drawn from `seed`), stopping early at the
/// first that does not come back equal or when `stop` is set.
Moved echoClient(sockaddr_in server, unsigned seed, int roundTrips, int maxSize,
                 const std::atomic<bool>* stop = nullptr) {
    Moved moved;
    Client client(server);
    moved.broken = !client.connected;
    std::mt19937 random(seed);
    const std::vector<char> pattern = randomBytes(random, maxSize);
    std::vector<char> echo(static_cast<std::size_t>(maxSize));
    std::uniform_int_distribution<int> size(1, maxSize), start(0, maxSize - 1);
    for (int i = 0; client.connected && i < roundTrips && !(stop && *stop); ++i) {
        const int n = size(random);
        const char* sent = pattern.data() + start(random);
        if (client.socket.write(sent, n) != n || client.socket.read(echo.data(), n) != n ||
            std::memcmp(echo.data(), sent, std::size_t(n)) != 0) {
            ++moved.broken;
            break;
        }
        ++moved.roundTrips;
        moved.bytes += n;
    }
    return moved;
}

/// `clients` echo clients at once, seeded from `seed` on; what they moved.
Moved concurrentClients(sockaddr_in server, int clients, unsigned seed, int roundTrips,
                        int maxSize) {
    std::vector<Moved> moved(static_cast<std::size_t>(clients));
    {
        std::list<kttest::Peer> peers;
        for (int i = 0; i < clients; ++i)
            peers.emplace_back([&, i] {
                moved[std::size_t(i)] = echoClient(server, seed + unsigned(i), roundTrips, maxSize);
            });
    }
    Moved total;
    for (const Moved& one : moved)
        total = {total.roundTrips + one.roundTrips, total.bytes + one.bytes,
                 total.broken + one.broken};
    return total;
}

/// An echo client making round trips in a thread of its own until it is
/// stopped, at the latest when the object goes.
struct SteadyClient {
    explicit SteadyClient(sockaddr_in server)
        : peer([this, server] { moved = echoClient(server, 7, INT_MAX, 16 * 1024, &stop); }) {}
    ~SteadyClient() { stop = true; }  // before the peer's destructor joins its thread
    std::atomic<bool> stop{false};
    Moved moved;
    kttest::Peer peer;  // last: its thread starts once the rest exists
};

class SoakTest : public kttest::NoLeakTest {};

TEST_F(SoakTest, ConcurrentClientsGetEveryByteBackAndTheServerEndsAsItBegan) {
    const int descriptors = kttest::openDescriptors();
    EchoServer server(kWaitMs);
    const sockaddr_in address = server.address();

    Moved warmUp = concurrentClients(address, kClients, 1000, kWarmUpRoundTrips, kMaxSize);
    ASSERT_EQ(warmUp.roundTrips, kClients * kWarmUpRoundTrips);
    ASSERT_TRUE(server.waitIdle());
    const long residentBefore = residentBytes();

    Moved soak = concurrentClients(address, kClients, 1, kRoundTrips, kMaxSize);
    ASSERT_EQ(soak.broken, 0);
    ASSERT_TRUE(server.waitIdle());
    const long grown = residentBytes() - residentBefore;

    EXPECT_EQ(soak.roundTrips, kClients * kRoundTrips);
    EXPECT_EQ(server.echoed, warmUp.bytes + soak.bytes);
    EXPECT_EQ(server.accepted, 2 * kClients);
    EXPECT_EQ(server.ended[PeerClosed], 2 * kClients);
    // Every connection closed: only the listening socket is left.
    EXPECT_EQ(kttest::openDescriptors(), descriptors + 1);
    EXPECT_LT(grown, kMemoryMargin) << "resident size grew by " << grown << " bytes";
    std::printf("soak: %d connections, %d round trips, %lld bytes each way; resident size %+ld\n",
                kClients, soak.roundTrips, soak.bytes, grown);
}

// Misbehaving peers, one kind after another, while a well-behaved client
// keeps making round trips; the server drops each bad peer its own way and
// the good client loses nothing.
TEST_F(SoakTest, ServerSurvivesResetsSilentAndHalfClosedPeersAndASignalStorm) {
    constexpr int kIdleMs = 1000;
    constexpr int kResets = 8, kSilent = 4, kHalfClosed = 4, kStormClients = 8, kSignals = 500;
    kttest::InterruptingSignal interrupting;
    EchoServer server(kIdleMs);
    const sockaddr_in address = server.address();
    std::mt19937 random(11);
    const std::vector<char> payload = randomBytes(random, kMaxSize);
    std::vector<char> echo(payload.size());
    SteadyClient steadyClient(address);

    // Resets in the middle of an echo: the peer has read part of it back.
    for (int i = 0; i < kResets; ++i) {
        Client client(address);
        ASSERT_TRUE(client.connected);
        ASSERT_EQ(client.socket.write(payload.data(), kMaxSize), kMaxSize);
        ASSERT_EQ(client.socket.read(echo.data(), 1024), 1024);
        EXPECT_EQ(std::memcmp(echo.data(), payload.data(), 1024), 0);
        const linger abort{1, 0};
        client.socket.setOption(SO_LINGER, &abort, sizeof abort);
    }

    // Peers that connect and send nothing: the server drops them after its
    // receive limit, well before theirs.
    std::atomic<int> dropped{0};
    {
        std::list<kttest::Peer> silent;
        for (int i = 0; i < kSilent; ++i)
            silent.emplace_back([&] {
                Client client(address);
                char byte;
                if (client.connected && client.socket.read(&byte, 1) == 0) ++dropped;
            });
    }
    EXPECT_EQ(dropped, kSilent);

    // Peers that send half of what they have and shut their sending side:
    // they get exactly that half back, then the end of the stream.
    for (int i = 0; i < kHalfClosed; ++i) {
        Client client(address);
        ASSERT_TRUE(client.connected);
        const int half = kMaxSize / 2 + i;
        ASSERT_EQ(client.socket.write(payload.data(), half), half);
        // RSocket::shutdown() stops receiving; this is the sending side.
        ASSERT_EQ(::shutdown(client.socket.descriptor, SHUT_WR), 0);
        EXPECT_EQ(client.socket.read(echo.data(), half + 1), half);
        EXPECT_EQ(std::memcmp(echo.data(), payload.data(), std::size_t(half)), 0);
    }

    // Signals at the accepting thread while clients connect.
    Moved stormed;
    {
        kttest::Peer clients(
            [&] { stormed = concurrentClients(address, kStormClients, 100, 20, 4096); });
        for (int i = 0; i < kSignals; ++i) {
            ::pthread_kill(server.acceptThread(), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    EXPECT_EQ(stormed.roundTrips, kStormClients * 20);
    EXPECT_GT(server.interruptions, 0);
    EXPECT_LE(server.interruptions, kSignals);
    steadyClient.stop = true;
    steadyClient.peer.join();
    const Moved steady = steadyClient.moved;
    // Still serving.
    EXPECT_EQ(echoClient(address, 13, 10, kMaxSize).roundTrips, 10);

    ASSERT_TRUE(server.waitIdle());
    EXPECT_GT(steady.roundTrips, 0);
    EXPECT_EQ(steady.broken, 0);
    EXPECT_EQ(server.accepted, 1 + kResets + kSilent + kHalfClosed + kStormClients + 1);
    EXPECT_EQ(server.ended[Failed], kResets);
    EXPECT_EQ(server.ended[TimedOut], kSilent);
    EXPECT_EQ(server.ended[PeerClosed], 1 + kHalfClosed + kStormClients + 1);
    std::printf(
        "faults: %d of %d signals interrupted accept; the steady client made %d round trips\n",
        server.interruptions.load(), kSignals, steady.roundTrips);
}

}  // namespace
