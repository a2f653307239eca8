// kt serve under load, bounded: 64 clients make 200 requests each while 70
// connections stay silent and 5 trickle a byte at a time. Every request must
// get its whole answer, and afterwards the server must hold no more
// descriptors than before and little more memory.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support.h"

namespace {

constexpr int kClients = 64, kRequests = 200, kSilent = 70, kTrickling = 5;

int descriptorsOf(pid_t pid) {
    std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
    return int(std::distance(entries, std::filesystem::directory_iterator()));
}

long residentKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    while (status >> word)
        if (word == "VmRSS:" && status >> word) return std::stol(word);
    return -1;
}

TEST(ServeStress, LosesNothingAndLeaksNothing) {
    kttest::Folder root;
    root.write("a.txt", std::string(3000, 'k'));
    // Under AddressSanitizer freed memory waits in a quarantine of 256 MiB:
    // a small one lets the bound below speak of the server, not the tool.
    const char* options = std::getenv("ASAN_OPTIONS");
    ::setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":quarantine_size_mb=8").c_str(), 1);
    const std::string marker = "listening on 127.0.0.1:";
    kttest::Child server({kttest::ktProgram(), "serve", "--port", "0", "--root", root.path(), "--max-connections",
                          "160", "--timeout", "60"});
    const std::string line = server.read("\n");
    ASSERT_NE(line.find(marker), std::string::npos) << line;
    const sockaddr_in address = kttest::loopback(std::uint16_t(std::stoi(line.substr(line.find(marker) + marker.size()))));
    const int descriptors = descriptorsOf(server.pid());
    const long resident = residentKiB(server.pid());

    std::vector<kttest::Fd> silent;
    for (int i = 0; i < kSilent; ++i) silent.push_back(kttest::rawConnect(address));
    std::atomic<bool> done{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kTrickling; ++i)
        threads.emplace_back([&] {
            kttest::Fd client = kttest::rawConnect(address);
            for (const char* c = "GET /a.txt HTTP/1.0\r\n"; *c && !done; ++c) {
                ::send(client.get(), c, 1, MSG_NOSIGNAL);
                std::this_thread::sleep_for(std::chrono::milliseconds(500));
            }
        });
    const std::string expected = "HTTP/1.0 200 OK\r\nServer: kt\r\nContent-Type: text/plain\r\nContent-Length: 3000\r\n"
                                 "Connection: close\r\n\r\n" + std::string(3000, 'k');
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([&] {
            for (int r = 0; r < kRequests; ++r) {
                kttest::Fd client = kttest::rawConnect(address);
                kttest::writeRaw(client.get(), "GET /a.txt HTTP/1.0\r\n\r\n");
                answered += kttest::readRaw(client.get(), expected.size() + 1) == expected;
            }
        });
    for (std::thread& client : clients) client.join();
    done = true;
    for (std::thread& thread : threads) thread.join();
    silent.clear();
    EXPECT_EQ(answered, kClients * kRequests);

    // The server notices the closes on its own time: wait a little for them.
    for (int i = 0; i < 100 && descriptorsOf(server.pid()) != descriptors; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(descriptorsOf(server.pid()), descriptors);
    EXPECT_LT(residentKiB(server.pid()) - resident, 64 * 1024) << "KiB resident before: " << resident;
}

}  // namespace
