// kt - the libkt command-line tool.
#include <cstdio>
#include <cstring>

#include "kt/kt.h"

namespace {

const char kUsage[] =
    "usage: kt COMMAND [ARGS...]\n"
    "\n"
    "Commands:\n"
    "  version    print the build identification of libkt\n"
    "  help       print this help\n"
    "\n"
    "Options:\n"
    "  -h, --help print this help\n"
    "\n"
    "Exit status: 0 on success, 1 on bad usage, 2 on a failure at run time.\n";

bool isHelp(const char* arg) {
    return std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0 ||
           std::strcmp(arg, "help") == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    const char* command = argv[1];
    if (isHelp(command)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (std::strcmp(command, "version") == 0) {
        if (argc > 2 && isHelp(argv[2])) {
            std::puts("usage: kt version\n\nPrints the build identification of libkt.");
            return 0;
        }
        std::puts(__rev__lib_kt__kt__);
        return 0;
    }
    std::fprintf(stderr, "kt: unknown command '%s' (see kt --help)\n", command);
    return 1;
}
