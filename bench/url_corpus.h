// The inputs that the URL benchmarks run over: one hundred URLs of the shapes
// met in practice, made from six schemes (http, https, rtsp, ftp, file,
// socket), with and without userinfo, port, params, query, fragment and
// escapes; and text to escape.
#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <vector>

inline const std::vector<std::string>& corpus() {
    static const std::vector<std::string> urls = [] {
        const char* schemes[] = {"http", "https", "rtsp", "ftp", "file", "socket"};
        const char* userinfos[] = {"", "bob@", "", "alice:s3cr%40t@", "", "WORK;carol:pw@"};
        const char* hosts[] = {"example.org", "192.168.1.20", "cam-07.local", "www.example.com",
                               "localhost"};
        const char* ports[] = {"", ":8080", "", ":554", ":21", ""};
        const char* paths[] = {"/",
                               "/index.html",
                               "/live/stream1",
                               "/pub/linux/kernel.tar.gz",
                               "/home/user/My%20Documents/report%202024.pdf",
                               "/a/b/c/d/e/f",
                               "/search"};
        const char* params[] = {"", ";type=i", "", "", ";jsessionid=A1B2C3"};
        const char* queries[] = {"", "?q=caf%C3%A9+au+lait&lang=fr", "", "?id=42&sort=desc&page=3",
                                 "?token=abc%2Fdef%3D%3D"};
        const char* fragments[] = {"", "#top", "", "", "#section-2.1", ""};
        std::vector<std::string> list;
        for (std::size_t i = 0; i < 100; ++i) {
            std::string url = std::string(schemes[i % 6]) + "://";
            if (url != "file://")
                url += std::string(userinfos[i % 6]) + hosts[i % 5] + ports[i % 6];
            url += std::string(paths[i % 7]) + params[i % 5] + queries[i % 5] + fragments[i % 6];
            list.push_back(url);
        }
        return list;
    }();
    return urls;
}

// Text in which about 30% of the bytes must be escaped: letters and digits,
// with spaces, slashes, separators, "~" and UTF-8 bytes mixed in.
inline std::string mixedText(std::size_t size) {
    const std::string plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
    const std::string escaped = " /&=?#~:@\xc3\xa9%+";
    std::mt19937 random(1);
    std::uniform_int_distribution<int> percent(0, 99);
    std::string text;
    text.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        const std::string& from = percent(random) < 30 ? escaped : plain;
        text += from[random() % from.size()];
    }
    return text;
}
