// kt - the libkt command-line tool.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "kt/kt.h"

namespace {

int runVersion(cli::Arguments& args) {
    if (!args.empty() && cli::isHelp(args.peek())) {
        std::fputs("usage: kt version\n\nPrints the build identification of libkt.\n", stdout);
        return cli::Success;
    }
    if (!args.empty()) throw cli::UsageError("version takes no arguments");
    std::puts(__rev__lib_kt__kt__);
    return cli::Success;
}

struct Command {
    const char* name;
    int (*run)(cli::Arguments&);
    const char* summary;
};

const Command kCommands[] = {
    {"base64", runBase64, "encode or decode Base64 (standard input or a file)"},
    {"demo", runDemo, "one HTTP round trip on 127.0.0.1 through the URI and socket classes"},
    {"fetch", runFetch, "fetch an http URI (or the OPTIONS of an rtsp one)"},
    {"hex", runHex, "encode or decode hexadecimal (standard input or a file)"},
    {"serve", runServe, "serve files over HTTP, or echo bytes, until SIGINT or SIGTERM"},
    {"url", runUrl, "split, change, resolve, normalize and check URLs; percent-code"},
    {"version", runVersion, "print the build identification of libkt"},
};

void printUsage(std::FILE* out) {
    std::fputs("usage: kt COMMAND [ARGS...]\n\nCommands:\n", out);
    for (const Command& command : kCommands) std::fprintf(out, "  %-9s %s\n", command.name, command.summary);
    std::fputs("\n'kt COMMAND --help' describes a command.\n"
               "Exit status: 0 on success, 1 on bad usage, 2 on a failure at run time.\n",
               out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printUsage(stderr);
        return cli::BadUsage;
    }
    // A reader that goes away shows as EPIPE on the next write, which every
    // command handles, instead of a signal that kills mid-way.
    std::signal(SIGPIPE, SIG_IGN);
    std::string name = argv[1];
    if (cli::isHelp(name) || name == "help") {
        printUsage(stdout);
        return cli::Success;
    }
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        cli::Arguments args(argc, argv, 2);
        try {
            return command.run(args);
        } catch (const cli::UsageError& e) {
            std::fprintf(stderr, "kt %s: %s (see kt %s --help)\n", command.name, e.what(), command.name);
            return cli::BadUsage;
        } catch (const cli::OutputClosed&) {
            return cli::Success;
        } catch (const cli::RunError& e) {
            std::fprintf(stderr, "kt %s: %s\n", command.name, e.what());
        } catch (const KT::CException& e) {
            std::fprintf(stderr, "kt %s:%s\n", command.name, e.getString().c_str());
        } catch (const std::exception& e) {
            std::fprintf(stderr, "kt %s: %s\n", command.name, e.what());
        }
        return cli::Failure;
    }
    std::fprintf(stderr, "kt: unknown command '%s' (see kt --help)\n", name.c_str());
    return cli::BadUsage;
}
