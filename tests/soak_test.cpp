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
#include <climits>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <string>
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

/// How many clients, round trips per client and bytes per round trip at most.
struct Load {
    int clients;
    int roundTrips;
    int maxSize;
};

#ifdef KT_SOAK_SANITIZED
constexpr Load kSoak{16, 100, 64 * 1024};
#else
constexpr Load kSoak{64, 500, 64 * 1024};
#endif
// The same clients first run a short round, after which the memory the server
// process needs for this load is in place.
constexpr int kWarmUpRoundTrips = 20;
// What the resident size may grow by between the warm-up and the end: more
// under the address sanitizer, whose quarantine keeps freed blocks resident.
#ifdef KT_SOAK_SANITIZED
constexpr long kMemoryMargin = 16L << 20;
#else
constexpr long kMemoryMargin = 4L << 20;
#endif

timeval duration(int ms) { return timeval{ms / 1000, (ms % 1000) * 1000}; }

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
/// peer closes, fails, or sends nothing for `idleMs`. Stopped and joined when
/// the object goes.
class EchoServer {
public:
    explicit EchoServer(int idleMs)
        : socket_("127.0.0.1", 0, SOCK_STREAM, KT::RSocket::CloseOnExec), idleMs_(idleMs) {
        // Bounds the wait of accept(), which then fails with EAGAIN.
        timeval limit = duration(kWaitMs);
        socket_.setOption(SO_RCVTIMEO, &limit, sizeof limit);
        socket_.listen(128);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;

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

    int accepted() const { return accepted_; }
    int interruptions() const { return interruptions_; }
    long long echoed() const { return echoed_; }
    int ended(Ending how) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return endings_[how];
    }
    std::vector<std::string> acceptFailures() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return acceptFailures_;
    }

private:
    void acceptLoop() {
        while (!stopping_) {
            try {
                // Built in place: a copy would duplicate the descriptor.
                std::unique_ptr<KT::RSocket> connection(new KT::RSocket(socket_.accept()));
                if (connection->descriptor == -1) continue;  // the peer gave up first
                ++accepted_;
                std::lock_guard<std::mutex> lock(mutex_);
                ++active_;
                handlers_.emplace_back([this, c = std::move(connection)] { serve(*c); });
            } catch (const KT::CInterruptedException&) {
                ++interruptions_;
            } catch (const KT::CException& e) {
                // A quiet spell longer than the accept limit is not a failure.
                if (stopping_ || std::strcmp(e.msg(), std::strerror(EAGAIN)) == 0) continue;
                std::lock_guard<std::mutex> lock(mutex_);
                acceptFailures_.push_back(e.msg());
            }
        }
    }

    void serve(KT::RSocket& connection) {
        timeval idle = duration(idleMs_), limit = duration(kWaitMs);
        connection.setOption(SO_RCVTIMEO, &idle, sizeof idle);
        connection.setOption(SO_SNDTIMEO, &limit, sizeof limit);
        std::vector<char> buffer(std::size_t(kSoak.maxSize));
        long long echoed = 0;
        Ending ending;
        for (;;) {
            int n = connection.read2(buffer.data(), int(buffer.size()));
            if (n <= 0) {
                bool quiet = n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
                ending = n == 0 ? PeerClosed : quiet ? TimedOut : Failed;
                break;
            }
            if (connection.write(buffer.data(), n) != n) {
                ending = Failed;
                break;
            }
            echoed += n;
        }
        connection.close();
        echoed_ += echoed;
        std::lock_guard<std::mutex> lock(mutex_);
        ++endings_[ending];
        if (--active_ == 0) idle_.notify_all();
    }

    KT::RServerSocket socket_;
    const int idleMs_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> accepted_{0};
    std::atomic<int> interruptions_{0};
    std::atomic<long long> echoed_{0};
    mutable std::mutex mutex_;
    std::condition_variable idle_;
    int active_ = 0;
    int endings_[kEndings] = {};
    std::vector<std::string> acceptFailures_;
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
    Moved& operator+=(const Moved& other) {
        roundTrips += other.roundTrips;
        bytes += other.bytes;
        broken += other.broken;
        return *this;
    }
};

/// Twice `maxSize` bytes drawn from `random`, so that a slice of up to
/// `maxSize` bytes can start at any of the first `maxSize`.
std::vector<char> randomBytes(std::mt19937& random, int maxSize) {
    std::vector<char> bytes(2 * std::size_t(maxSize));
    for (char& byte : bytes) byte = char(random());
    return bytes;
}

/// Sends `size` bytes and reads them back; true when they come back equal.
bool roundTrip(const KT::RSocket& socket, const char* sent, int size, std::vector<char>& echo) {
    return socket.write(sent, size) == size && socket.read(echo.data(), size) == size &&
           std::memcmp(echo.data(), sent, std::size_t(size)) == 0;
}

/// Connects to `server` and makes up to `roundTrips` round trips of random
/// sizes from 1 to `maxSize` bytes (drawn from `seed`), stopping early at the
/// first that does not come back equal or when `stop` is set.
Moved echoClient(sockaddr_in server, unsigned seed, int roundTrips, int maxSize,
                 const std::atomic<bool>* stop = nullptr) {
    Moved moved;
    Client client(server);
    if (!client.connected) {
        moved.broken = 1;
        return moved;
    }
    std::mt19937 random(seed);
    const std::vector<char> pattern = randomBytes(random, maxSize);
    std::vector<char> echo(static_cast<std::size_t>(maxSize));
    std::uniform_int_distribution<int> size(1, maxSize), start(0, maxSize - 1);
    for (int i = 0; i < roundTrips && !(stop && *stop); ++i) {
        int n = size(random);
        if (!roundTrip(client.socket, pattern.data() + start(random), n, echo)) {
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
    for (const Moved& one : moved) total += one;
    return total;
}

/// An echo client making round trips in a thread of its own until it is
/// stopped, at the latest when the object goes.
class SteadyClient {
public:
    SteadyClient(sockaddr_in server, unsigned seed, int maxSize)
        : peer_([this, server, seed, maxSize] {
              moved_ = echoClient(server, seed, INT_MAX, maxSize, &stop_);
          }) {}
    ~SteadyClient() { stop(); }

    /// Stops the client and returns what it moved.
    Moved stop() {
        stop_ = true;
        peer_.join();
        return moved_;
    }

private:
    std::atomic<bool> stop_{false};
    Moved moved_;
    kttest::Peer peer_;  // last: its thread starts once the rest exists
};

class SoakTest : public kttest::NoLeakTest {};

TEST_F(SoakTest, ConcurrentClientsGetEveryByteBackAndTheServerEndsAsItBegan) {
    const int descriptors = kttest::openDescriptors();
    EchoServer server(kWaitMs);
    const sockaddr_in address = server.address();

    Moved warmUp =
        concurrentClients(address, kSoak.clients, 1000, kWarmUpRoundTrips, kSoak.maxSize);
    ASSERT_EQ(warmUp.roundTrips, kSoak.clients * kWarmUpRoundTrips);
    ASSERT_TRUE(server.waitIdle());
    const long residentBefore = residentBytes();

    const auto start = std::chrono::steady_clock::now();
    Moved soak = concurrentClients(address, kSoak.clients, 1, kSoak.roundTrips, kSoak.maxSize);
    ASSERT_EQ(soak.broken, 0);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_TRUE(server.waitIdle());
    const long grown = residentBytes() - residentBefore;

    EXPECT_EQ(soak.roundTrips, kSoak.clients * kSoak.roundTrips);
    EXPECT_EQ(server.echoed(), warmUp.bytes + soak.bytes);
    EXPECT_EQ(server.accepted(), 2 * kSoak.clients);
    EXPECT_EQ(server.ended(PeerClosed), 2 * kSoak.clients);
    EXPECT_TRUE(server.acceptFailures().empty());
    // Every connection closed: only the listening socket is left.
    EXPECT_EQ(kttest::openDescriptors(), descriptors + 1);
    EXPECT_LT(grown, kMemoryMargin) << "resident size grew by " << grown << " bytes";

    RecordProperty("connections", kSoak.clients);
    RecordProperty("round_trips", soak.roundTrips);
    RecordProperty("bytes_each_way", std::to_string(soak.bytes));
    RecordProperty("seconds", std::to_string(seconds));
    std::printf(
        "soak: %d connections, %d round trips, %lld bytes each way in %.2f s; resident size %+ld "
        "bytes\n",
        kSoak.clients, soak.roundTrips, soak.bytes, seconds, grown);
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

    SteadyClient steadyClient(address, 7, 16 * 1024);

    // Resets in the middle of an echo: the peer has read part of it back.
    std::mt19937 random(11);
    const std::vector<char> payload = randomBytes(random, 64 * 1024);
    for (int i = 0; i < kResets; ++i) {
        Client client(address);
        ASSERT_TRUE(client.connected);
        std::vector<char> echo(1024);
        ASSERT_EQ(client.socket.write(payload.data(), 64 * 1024), 64 * 1024);
        ASSERT_EQ(client.socket.read(echo.data(), 1024), 1024);
        EXPECT_EQ(std::memcmp(echo.data(), payload.data(), 1024), 0);
        const linger abort{1, 0};
        client.socket.setOption(SO_LINGER, &abort, sizeof abort);
        client.socket.close();
    }

    // Peers that connect and send nothing: the server drops them after its
    // receive limit, well before theirs.
    {
        std::list<kttest::Peer> silent;
        std::atomic<int> dropped{0};
        for (int i = 0; i < kSilent; ++i)
            silent.emplace_back([&] {
                Client client(address);
                char byte;
                if (client.connected && client.socket.read(&byte, 1) == 0) ++dropped;
            });
        for (kttest::Peer& peer : silent) peer.join();
        EXPECT_EQ(dropped, kSilent);
    }

    // Peers that send half of what they have and shut their sending side:
    // they get exactly that half back, then the end of the stream.
    for (int i = 0; i < kHalfClosed; ++i) {
        Client client(address);
        ASSERT_TRUE(client.connected);
        const int half = 32 * 1024 + i;
        ASSERT_EQ(client.socket.write(payload.data(), half), half);
        // RSocket::shutdown() stops receiving; this is the sending side.
        ASSERT_EQ(::shutdown(client.socket.descriptor, SHUT_WR), 0);
        std::vector<char> echo(std::size_t(half) + 1);
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
    EXPECT_GT(server.interruptions(), 0);
    EXPECT_LE(server.interruptions(), kSignals);

    const Moved steady = steadyClient.stop();
    // Still serving.
    Moved after = echoClient(address, 13, 10, 64 * 1024);
    EXPECT_EQ(after.roundTrips, 10);

    ASSERT_TRUE(server.waitIdle());
    EXPECT_GT(steady.roundTrips, 0);
    EXPECT_EQ(steady.broken, 0);
    EXPECT_EQ(server.accepted(), 1 + kResets + kSilent + kHalfClosed + kStormClients + 1);
    EXPECT_EQ(server.ended(Failed), kResets);
    EXPECT_EQ(server.ended(TimedOut), kSilent);
    EXPECT_EQ(server.ended(PeerClosed), 1 + kHalfClosed + kStormClients + 1);
    EXPECT_TRUE(server.acceptFailures().empty());

    RecordProperty("interrupted_accepts", server.interruptions());
    RecordProperty("steady_round_trips", steady.roundTrips);
    std::printf(
        "faults: %d resets, %d silent, %d half-closed; %d of %d signals interrupted "
        "accept; the steady client made %d round trips\n",
        kResets, kSilent, kHalfClosed, server.interruptions(), kSignals, steady.roundTrips);
}

}  // namespace
