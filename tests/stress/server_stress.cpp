// The server socket under load and under faults, bounded in time and count:
// an echo server built on RServerSocket serves many concurrent clients, every
// byte coming back equal and its resident size steady, and keeps serving
// through peers that reset, stay silent or half-close, and through a storm of
// signals at its accept().
#include <condition_variable>
#include <mutex>

#include "kt/KTServerSocket.h"
#include "support.h"

namespace {

using namespace kttest;

// How many clients at once, the round trips each makes, and what the resident
// size may grow by after the warm-up: more under the address sanitizer, whose
// quarantine keeps freed blocks resident.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kClients = 16, kRoundTrips = 100;
constexpr long kMemoryMargin = 16L << 20;
#else
constexpr int kClients = 64, kRoundTrips = 500;
constexpr long kMemoryMargin = 4L << 20;
#endif
constexpr int kMaxSize = 64 * 1024;  // bytes per round trip at most

long residentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

/// How a connection's handler ended.
enum Ending { PeerClosed, TimedOut, Failed, kEndings };

/// An echo server on 127.0.0.1: one thread accepts, and one thread per
/// connection sends back what it reads until the peer closes, fails, or sends
/// nothing for `idleMs`; the counters say what happened.
class EchoServer {
public:
    explicit EchoServer(int idleMs)
        : socket_("127.0.0.1", 0, SOCK_STREAM, KT::RSocket::CloseOnExec), idleMs_(idleMs) {
        boundWaits(socket_.descriptor);  // accept() then fails with EAGAIN
        socket_.listen(128);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    ~EchoServer() {
        stopping_ = true;
        socket_.shutdown();  // wakes the accept() waiting on the socket
        acceptor_.join();  // then the handlers, each within its own time limits
    }
    sockaddr_in address() const { return loopback(localPort(socket_.descriptor)); }
    pthread_t acceptThread() { return acceptor_.native_handle(); }
    /// Waits up to kWaitMs until no handler runs; false if one still does.
    bool waitIdle() {
        std::unique_lock<std::mutex> lock(mutex_);
        return idle_.wait_for(lock, std::chrono::milliseconds(kWaitMs),
                              [this] { return active_ == 0; });
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
        boundWaits(connection.descriptor);
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
    std::list<Peer> handlers_;
    std::thread acceptor_;
};

/// A library client connected to `server`, each of its waits bounded.
struct Client {
    explicit Client(sockaddr_in server)
        : socket(&server, SOCK_STREAM, nullptr, KT::RSocket::CloseOnExec) {
        boundWaits(socket.descriptor);
        connected = socket.connect(nullptr) == 0;
    }
    KT::RSocket socket;
    bool connected;
};

/// What clients moved: the round trips that came back equal, their bytes, and
/// the clients that could not connect or got back something else.
struct Moved {
    std::atomic<int> roundTrips{0}, broken{0};
    std::atomic<long long> bytes{0};
};

/// `clients` clients at once, each making `roundTrips` round trips of 1 to
/// `maxSize` random bytes (drawn from `seed` on), stopping at the first that
/// does not come back equal.
void echoClients(Moved& moved, sockaddr_in server, int clients, unsigned seed, int roundTrips,
                 int maxSize) {
    std::list<Peer> peers;
    for (int c = 0; c < clients; ++c)
        peers.emplace_back([&, c] {
            Client client(server);
            std::mt19937 random(seed + unsigned(c));
            const std::string pattern = randomBytes(2 * std::size_t(maxSize), random());
            std::string echo(std::size_t(maxSize), '\0');
            std::uniform_int_distribution<int> size(1, maxSize), start(0, maxSize - 1);
            for (int i = 0; i < roundTrips; ++i) {
                const int n = size(random);
                const char* sent = pattern.data() + start(random);
                if (!client.connected || client.socket.write(sent, n) != n ||
                    client.socket.read(&echo[0], n) != n || echo.compare(0, n, sent, n) != 0) {
                    ++moved.broken;
                    return;
                }
                ++moved.roundTrips;
                moved.bytes += n;
            }
        });
}

TEST(ServerStress, ConcurrentClientsGetEveryByteBackAndTheServerEndsAsItBegan) {
    const int descriptors = openDescriptors();
    EchoServer server(kWaitMs);
    Moved warmUp, load;
    echoClients(warmUp, server.address(), kClients, 1000, 20, kMaxSize);
    ASSERT_TRUE(server.waitIdle());
    const long residentBefore = residentBytes();
    echoClients(load, server.address(), kClients, 1, kRoundTrips, kMaxSize);
    ASSERT_TRUE(server.waitIdle());
    const long grown = residentBytes() - residentBefore;

    EXPECT_EQ(load.broken, 0);
    EXPECT_EQ(load.roundTrips, kClients * kRoundTrips);
    EXPECT_EQ(server.echoed, warmUp.bytes + load.bytes);
    EXPECT_EQ(server.ended[PeerClosed], 2 * kClients);
    EXPECT_EQ(openDescriptors(), descriptors + 1) << "only the listening socket is left";
    EXPECT_LT(grown, kMemoryMargin) << "resident size grew by " << grown << " bytes";
    std::printf("stress: %d connections, %d round trips, %lld bytes each way; resident size %+ld\n",
                kClients, load.roundTrips.load(), load.bytes.load(), grown);
}

// Misbehaving peers, one kind after another, while well-behaved clients keep
// making round trips: the server drops each bad peer its own way and the good
// clients lose nothing.
TEST(ServerStress, ServerSurvivesResetsSilentAndHalfClosedPeersAndASignalStorm) {
    constexpr int kIdleMs = 1000, kBad = 4, kSignals = 500;
    InterruptingSignal interrupting;
    EchoServer server(kIdleMs);
    const sockaddr_in address = server.address();
    const std::string payload = randomBytes(kMaxSize, 11);
    std::string echo(payload.size(), '\0');
    Moved steady, stormed;
    Peer steadyClients([&] { echoClients(steady, address, 2, 7, 2000, 16 * 1024); });

    std::list<Peer> silent;  // dropped after the server's receive limit, well before theirs
    for (int i = 0; i < kBad; ++i)
        silent.emplace_back([&] {
            Client client(address);
            char byte;
            EXPECT_EQ(client.socket.read(&byte, 1), 0);
        });
    for (int i = 0; i < 2 * kBad; ++i) {
        Client client(address);
        ASSERT_TRUE(client.connected);
        if (i % 2 == 0) {  // a reset in the middle of an echo
            ASSERT_EQ(client.socket.write(payload.data(), kMaxSize), kMaxSize);
            ASSERT_EQ(client.socket.read(&echo[0], 1024), 1024);
            EXPECT_EQ(echo.compare(0, 1024, payload, 0, 1024), 0);
            const linger abort{1, 0};
            client.socket.setOption(SO_LINGER, &abort, sizeof abort);
        } else {  // half of what it has, then its sending side shut: that half comes back
            const int half = kMaxSize / 2 + i;
            ASSERT_EQ(client.socket.write(payload.data(), half), half);
            ASSERT_EQ(::shutdown(client.socket.descriptor, SHUT_WR), 0);
            EXPECT_EQ(client.socket.read(&echo[0], half + 1), half);
            EXPECT_EQ(echo.compare(0, half, payload, 0, half), 0);
        }
    }
    {
        Peer clients([&] { echoClients(stormed, address, 8, 100, 20, 4096); });
        for (int i = 0; i < kSignals; ++i) {
            ::pthread_kill(server.acceptThread(), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    steadyClients.join();
    silent.clear();
    ASSERT_TRUE(server.waitIdle());
    EXPECT_EQ(stormed.roundTrips, 8 * 20);
    EXPECT_EQ(steady.roundTrips, 2 * 2000);
    EXPECT_GT(server.interruptions, 0);
    EXPECT_LE(server.interruptions, kSignals);
    EXPECT_EQ(server.accepted, 2 + 3 * kBad + 8);
    EXPECT_EQ(server.ended[Failed], kBad);
    EXPECT_EQ(server.ended[TimedOut], kBad);
    EXPECT_EQ(server.ended[PeerClosed], 2 + kBad + 8);
    std::printf("faults: %d of %d signals interrupted accept\n", server.interruptions.load(),
                kSignals);
}

}  // namespace
