// Loopback throughput and connection rate of RSocket and RServerSocket, each
// beside the same work done with the system calls directly, so that the cost
// of the library's loops and bookkeeping shows as the ratio of the two. Each
// benchmark is named BM_<work>_<contender>; bench/table.py groups them by
// work. Only 127.0.0.1 is used, on ports the system picks.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <thread>

#include "kt/KTServerSocket.h"
#include "kt/KTSocket.h"

namespace {

constexpr int kChunk = 64 << 10;
constexpr std::int64_t kTotal = std::int64_t(256) << 20;
constexpr KT::UInt8 kFlags = KT::RSocket::CloseOnExec;

sockaddr_in boundAddress(int fd) {
    sockaddr_in record;
    socklen_t length = sizeof record;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&record), &length);
    return record;
}

// Moves `total` bytes in chunks of at most kChunk through `step`, which
// returns what it moved (<= 0 ends the transfer). Returns the bytes moved.
template <class Step>
std::int64_t pump(std::int64_t total, Step step) {
    std::int64_t left = total;
    while (left > 0) {
        int n = step(int(std::min<std::int64_t>(kChunk, left)));
        if (n <= 0) break;
        left -= n;
    }
    return total - left;
}

// ---------------------------------------------------------------- the library

struct Library {
    // A server on 127.0.0.1 with one connection to it.
    struct Pair {
        KT::RServerSocket server{"127.0.0.1", KT::UInt16(0), SOCK_STREAM, kFlags};
        int listening = server.listen(16);
        sockaddr_in address = boundAddress(server.descriptor);
        KT::RSocket client{&address, SOCK_STREAM, nullptr, kFlags};
        KT::RSocket accepted = connectAndAccept();

        KT::RSocket connectAndAccept() {
            client.connect(nullptr);
            return server.accept();
        }
    };

    static std::int64_t send(Pair& pair, const char* data, std::int64_t total) {
        return pump(total, [&](int n) { return pair.client.write(data, n); });
    }
    static std::int64_t receive(Pair& pair, char* buffer, std::int64_t total) {
        return pump(total, [&](int n) { return pair.accepted.read(buffer, n); });
    }
    // One connection made, taken and closed by both ends.
    static bool connectOnce(Pair& pair) {
        KT::RSocket client(&pair.address, SOCK_STREAM, nullptr, kFlags);
        if (client.connect(nullptr) != 0) return false;
        KT::RSocket accepted = pair.server.accept();
        return accepted.descriptor != -1;
    }
};

// ---------------------------------------------------------------- the system calls

struct Raw {
    // The same server and connection, made with the same system calls.
    struct Pair {
        Pair() {
            server = newSocket();
            int reuse = 1;
            ::setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
            // 127.0.0.1 on port 0: the system picks the port.
            sockaddr_in local{};
            local.sin_family = AF_INET;
            local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ::bind(server, reinterpret_cast<sockaddr*>(&local), sizeof local);
            ::listen(server, 16);
            address = boundAddress(server);
            client = newSocket();
            ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
            accepted = acceptOne(server);
        }
        ~Pair() {
            ::close(accepted);
            ::close(client);
            ::close(server);
        }
        int server, client, accepted;
        sockaddr_in address;
    };

    static int newSocket() {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        return fd;
    }
    static int acceptOne(int server) {
        sockaddr_in peer;
        std::memset(&peer, 0, sizeof peer);
        socklen_t length = sizeof peer;
        int fd = ::accept(server, reinterpret_cast<sockaddr*>(&peer), &length);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        return fd;
    }
    // A write or read of exactly `n` bytes unless the stream ends, as the
    // library's loops do.
    template <class Call>
    static int whole(int n, Call call) {
        int done = 0;
        while (done < n) {
            ssize_t moved = call(done, n - done);
            if (moved <= 0) return moved < 0 ? -1 : done;
            done += int(moved);
        }
        return done;
    }

    static std::int64_t send(Pair& pair, const char* data, std::int64_t total) {
        return pump(total, [&](int n) {
            return whole(n, [&](int at, int count) {
                return ::write(pair.client, data + at, size_t(count));
            });
        });
    }
    static std::int64_t receive(Pair& pair, char* buffer, std::int64_t total) {
        return pump(total, [&](int n) {
            return whole(n, [&](int at, int count) {
                return ::read(pair.accepted, buffer + at, size_t(count));
            });
        });
    }
    static bool connectOnce(Pair& pair) {
        int client = newSocket();
        bool ok =
            ::connect(client, reinterpret_cast<sockaddr*>(&pair.address), sizeof pair.address) == 0;
        int accepted = ok ? acceptOne(pair.server) : -1;
        ok = ok && accepted != -1;
        ::close(accepted);
        ::close(client);
        return ok;
    }
};

// ---------------------------------------------------------------- benchmarks

// The chunks the transfers write from and read into: the same page-aligned
// memory for both contenders, so that neither copies at a luckier alignment.
alignas(4096) char outgoing[kChunk];
alignas(4096) char incoming[kChunk];

// Keeps the calling thread, and the threads it starts, on the processor it is
// running on, until the object goes.
class OneProcessor {
public:
    OneProcessor() {
        ::sched_getaffinity(0, sizeof saved_, &saved_);
        cpu_set_t here;
        CPU_ZERO(&here);
        CPU_SET(::sched_getcpu(), &here);
        ::sched_setaffinity(0, sizeof here, &here);
    }
    ~OneProcessor() { ::sched_setaffinity(0, sizeof saved_, &saved_); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t saved_;
};

// 256 MiB from the client to the accepted end in 64 KiB writes and reads,
// the reader on a thread of its own. Left to the scheduler, the same transfer
// costs up to half as much again depending on whether the two threads meet on
// one processor, which would drown the difference sought: both ends share one.
template <class Api>
void loopbackBulk(benchmark::State& state) {
    OneProcessor pinned;
    typename Api::Pair pair;
    std::memset(outgoing, 'k', sizeof outgoing);
    for (auto _ : state) {
        std::int64_t received = 0;
        std::thread reader([&] { received = Api::receive(pair, incoming, kTotal); });
        std::int64_t sent = Api::send(pair, outgoing, kTotal);
        reader.join();
        benchmark::DoNotOptimize(incoming);
        if (sent != kTotal || received != kTotal) {
            state.SkipWithError("transfer cut short");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * kTotal);
}

// Connect, accept and close both ends, one connection per iteration.
template <class Api>
void connectAccept(benchmark::State& state) {
    typename Api::Pair pair;
    for (auto _ : state) {
        if (!Api::connectOnce(pair)) {
            state.SkipWithError("connection failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_LoopbackBulk_Kt(benchmark::State& state) { loopbackBulk<Library>(state); }
void BM_LoopbackBulk_Raw(benchmark::State& state) { loopbackBulk<Raw>(state); }
void BM_ConnectAccept_Kt(benchmark::State& state) { connectAccept<Library>(state); }
void BM_ConnectAccept_Raw(benchmark::State& state) { connectAccept<Raw>(state); }

// Timed by the CPU time of the process (both threads and the kernel's work for
// them), which waits for a processor that other programs hold do not inflate.
// The two contenders make the same system calls, so their ratio sits at 1 and
// the targets lie close to it: fifteen short repetitions, interleaved with the
// other contender's, give a median that a spell of load elsewhere on the
// machine moves less than five long ones would.
constexpr int kRepetitions = 15;
BENCHMARK(BM_LoopbackBulk_Kt)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2)
    ->Repetitions(kRepetitions)
    ->MeasureProcessCPUTime();
BENCHMARK(BM_LoopbackBulk_Raw)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.2)
    ->Repetitions(kRepetitions)
    ->MeasureProcessCPUTime();
// Bounded, so that the closed connections waiting out TIME_WAIT (90000 in all)
// stay below the system's limit on them, commonly 131072.
BENCHMARK(BM_ConnectAccept_Kt)
    ->Iterations(3000)
    ->Repetitions(kRepetitions)
    ->MeasureProcessCPUTime();
BENCHMARK(BM_ConnectAccept_Raw)
    ->Iterations(3000)
    ->Repetitions(kRepetitions)
    ->MeasureProcessCPUTime();

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
