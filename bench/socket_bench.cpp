// Loopback throughput and connection rate of RSocket and RServerSocket, each
// beside the same work done with the system calls directly, so that the cost
// of the library's loops and bookkeeping shows as the ratio of the two.
//
//     build/bench/bin/socket_bench --benchmark_repetitions=5
//         --benchmark_report_aggregates_only=true

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "kt/KTServerSocket.h"
#include "kt/KTSocket.h"

namespace {

constexpr int kChunk = 64 << 10;
constexpr std::int64_t kTotal = std::int64_t(256) << 20;
constexpr KT::UInt8 kFlags = KT::RSocket::CloseOnExec;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in record;
    std::memset(&record, 0, sizeof record);
    record.sin_family = AF_INET;
    record.sin_port = htons(port);
    record.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return record;
}

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
            sockaddr_in any = loopback(0);
            ::bind(server, reinterpret_cast<sockaddr*>(&any), sizeof any);
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

// 256 MiB from the client to the accepted end in 64 KiB writes and reads,
// the reader on a thread of its own.
template <class Api>
void BM_LoopbackThroughput(benchmark::State& state) {
    typename Api::Pair pair;
    std::vector<char> out(kChunk, 'k');
    std::vector<char> in(kChunk);
    for (auto _ : state) {
        std::int64_t received = 0;
        std::thread reader([&] { received = Api::receive(pair, in.data(), kTotal); });
        std::int64_t sent = Api::send(pair, out.data(), kTotal);
        reader.join();
        benchmark::DoNotOptimize(in.data());
        if (sent != kTotal || received != kTotal) {
            state.SkipWithError("transfer cut short");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * kTotal);
}

// Connect, accept and close both ends, one connection per iteration.
template <class Api>
void BM_ConnectionRate(benchmark::State& state) {
    typename Api::Pair pair;
    for (auto _ : state) {
        if (!Api::connectOnce(pair)) {
            state.SkipWithError("connection failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_TEMPLATE(BM_LoopbackThroughput, Library)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_LoopbackThroughput, Raw)->Unit(benchmark::kMillisecond)->UseRealTime();
// Bounded, so that the closed connections waiting out TIME_WAIT stay few.
BENCHMARK_TEMPLATE(BM_ConnectionRate, Library)->Iterations(20000)->UseRealTime();
BENCHMARK_TEMPLATE(BM_ConnectionRate, Raw)->Iterations(20000)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
