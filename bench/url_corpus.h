// The URLs that the URL benchmarks run over: one hundred of the shapes met in
// practice, made from six schemes (http, https, rtsp, ftp, file, socket),
// with and without userinfo, port, params, query, fragment and escapes.
#pragma once

#include <cstddef>
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
