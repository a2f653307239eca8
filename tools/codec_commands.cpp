// kt base64 / kt hex: stream a file through the library's codecs.
#include <cctype>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"
#include "kt/KTBuffer.h"

namespace {

// What tells the two codecs apart; the streaming around them is shared.
struct Codec {
    const char* name;
    long defaultWrap;
    std::size_t bytesPerGroup;  // plain bytes that encode without padding
    std::size_t charsPerGroup;  // characters that decode on their own
    void (KT::CBuffer::*encode)(const KT::CBuffer&, int);
    void (KT::CBuffer::*decode)(const KT::CBuffer&, int);
    bool (*isDigit)(unsigned char);
    const char* usage;
};

bool isBase64Char(unsigned char c) { return std::isalnum(c) || c == '+' || c == '/' || c == '='; }
bool isHexChar(unsigned char c) { return std::isxdigit(c) != 0; }

const Codec kBase64 = {
    "base64", 76, 3, 4, &KT::CBuffer::encodeBase64, &KT::CBuffer::decodeBase64, isBase64Char,
    "usage: kt base64 [-d] [-w N] [FILE]\n"
    "\n"
    "Encodes FILE (or standard input, also for '-') as Base64 to standard output, or\n"
    "decodes it with -d. Line breaks and blanks are ignored when decoding.\n"
    "\n"
    "  -d, --decode   decode instead of encoding\n"
    "  -w, --wrap N   wrap encoded lines after N characters (default 76, 0: never)\n"
    "  -h, --help     print this help\n"
    "\n"
    "Exit status: 0 on success, 1 on bad usage, 2 on unreadable or invalid input.\n"};

const Codec kHex = {
    "hex", 60, 1, 2, &KT::CBuffer::encodeHex, &KT::CBuffer::decodeHex, isHexChar,
    "usage: kt hex [-d] [-w N] [FILE]\n"
    "\n"
    "Writes the bytes of FILE (or standard input, also for '-') as upper-case hex\n"
    "digits to standard output, or turns hex digits of either case back into bytes\n"
    "with -d. Line breaks and blanks are ignored when decoding.\n"
    "\n"
    "  -d, --decode   decode instead of encoding\n"
    "  -w, --wrap N   wrap encoded lines after N characters (default 60, 0: never)\n"
    "  -h, --help     print this help\n"
    "\n"
    "Exit status: 0 on success, 1 on bad usage, 2 on unreadable or invalid input.\n"};

// Input is read in chunks of whole groups, so memory does not grow with it.
constexpr std::size_t kChunkGroups = 16384;

// Writes encoded text broken into lines of `wrap` characters.
class LineWriter {
public:
    LineWriter(std::FILE* out, long wrap) : out_(out), wrap_(std::size_t(wrap)) {}

    void write(const KT::UInt8* text, std::size_t size) {
        while (size > 0) {
            std::size_t room = wrap_ == 0 ? size : std::min(size, wrap_ - column_);
            cli::writeAll(out_, text, room);
            text += room;
            size -= room;
            column_ += room;
            wrote_ = true;
            if (wrap_ != 0 && column_ == wrap_) {
                cli::writeAll(out_, "\n", 1);
                column_ = 0;
            }
        }
    }
    /// Ends the last line, as line-wrapping encoders do.
    void finish() {
        if (wrap_ != 0 && column_ != 0 && wrote_) cli::writeAll(out_, "\n", 1);
    }

private:
    std::FILE* out_;
    std::size_t wrap_;
    std::size_t column_ = 0;
    bool wrote_ = false;
};

void encodeStream(const Codec& codec, std::FILE* in, std::FILE* out, long wrap) {
    std::string chunk(codec.bytesPerGroup * kChunkGroups, '\0');
    KT::CBuffer source, encoded;
    LineWriter lines(out, wrap);
    std::size_t got;
    while ((got = std::fread(chunk.data(), 1, chunk.size(), in)) > 0) {
        source.set(KT::SIntLeast32(got), reinterpret_cast<KT::UInt8*>(chunk.data()), KT::NoOwnership);
        encoded.clear();
        (encoded.*codec.encode)(source, 0);
        lines.write(encoded.data, std::size_t(encoded.length));
    }
    if (std::ferror(in)) throw cli::RunError("read failed");
    lines.finish();
}

void decodeStream(const Codec& codec, std::FILE* in, std::FILE* out) {
    std::string chunk(codec.charsPerGroup * kChunkGroups, '\0');
    std::string pending;  // digits not yet decoded: less than a group between chunks
    KT::CBuffer source, decoded;
    std::size_t got;
    while ((got = std::fread(chunk.data(), 1, chunk.size(), in)) > 0) {
        for (std::size_t i = 0; i < got; ++i) {
            unsigned char c = static_cast<unsigned char>(chunk[i]);
            if (std::isspace(c)) continue;
            if (!codec.isDigit(c))
                throw cli::RunError(std::string("invalid ") + codec.name + " input");
            pending += char(c);
        }
        std::size_t whole = pending.size() - pending.size() % codec.charsPerGroup;
        source.set(KT::SIntLeast32(whole), reinterpret_cast<KT::UInt8*>(pending.data()), KT::NoOwnership);
        decoded.clear();
        (decoded.*codec.decode)(source, 0);
        cli::writeAll(out, decoded.data, std::size_t(decoded.length));
        pending.erase(0, whole);
    }
    if (std::ferror(in)) throw cli::RunError("read failed");
    if (!pending.empty()) throw cli::RunError(std::string("truncated ") + codec.name + " input");
}

int runCodec(const Codec& codec, cli::Arguments& args) {
    bool decode = false;
    long wrap = codec.defaultWrap;
    std::string path;
    while (!args.empty()) {
        std::string arg = args.take();
        if (cli::isHelp(arg)) {
            std::fputs(codec.usage, stdout);
            return cli::Success;
        } else if (arg == "-d" || arg == "--decode") {
            decode = true;
        } else if (arg == "-w" || arg == "--wrap") {
            wrap = args.number(arg, 0, 1L << 30);
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw cli::UsageError("unknown option '" + arg + "'");
        } else if (path.empty()) {
            path = arg;
        } else {
            throw cli::UsageError("more than one input file");
        }
    }
    std::FILE* in = cli::openInput(path);
    try {
        if (decode) decodeStream(codec, in, stdout);
        else encodeStream(codec, in, stdout, wrap);
    } catch (...) {
        if (in != stdin) std::fclose(in);
        throw;
    }
    if (in != stdin) std::fclose(in);
    cli::closeStream(stdout, "-");
    return cli::Success;
}

}  // namespace

int runBase64(cli::Arguments& args) { return runCodec(kBase64, args); }
int runHex(cli::Arguments& args) { return runCodec(kHex, args); }
