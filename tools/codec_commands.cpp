// kt base64 / kt hex: stream a file through the library's codecs, in large
// blocks, checking encoded input strictly before the library decodes it.
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "kt/KTBuffer.h"

namespace {

using CodecCall = void (KT::CBuffer::*)(const KT::CBuffer&, int);

// What tells the two codecs apart; the streaming around them is shared.
struct Codec {
    const char* name;
    long defaultWrap;
    std::size_t bytesPerGroup;  // plain bytes that encode without padding
    std::size_t charsPerGroup;  // characters that decode on their own
    CodecCall encode;
    CodecCall decode;
    const char* alphabet;  // what decodes, besides the padding '=' of Base64
    const char* ranges;    // the same as pairs of first and last character
    bool padded;
    const char* shortInput;  // the fault of input that ends inside a group
    const char* usage;
};

const Codec kBase64 = {
    "base64", 76, 3, 4, &KT::CBuffer::encodeBase64, &KT::CBuffer::decodeBase64,
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", "AZaz09++//", true, "truncated input",
    "usage: kt base64 [-d [-i]] [-w N] [FILE]\n"
    "\n"
    "Encodes FILE (or standard input, also for '-') as Base64 to standard output, or\n"
    "decodes it with -d. Blanks and line breaks are skipped when decoding; any other\n"
    "character outside the alphabet, padding before the end or an incomplete last\n"
    "group is an error that names its byte offset (counted from 0).\n"
    "\n"
    "  -d, --decode           decode instead of encoding\n"
    "  -i, --ignore-garbage   when decoding, skip bytes outside the alphabet\n"
    "  -w, --wrap N           wrap encoded lines after N characters (default 76,\n"
    "                         0: never)\n"
    "  -h, --help             print this help\n"
    "\n"
    "Exit status: 0 on success, 1 on bad usage, 2 on unreadable or invalid input.\n"};

const Codec kHex = {
    "hex", 60, 1, 2, &KT::CBuffer::encodeHex, &KT::CBuffer::decodeHex, "0123456789ABCDEFabcdef", "09AFaf",
    false,
    "odd number of hex digits",
    "usage: kt hex [-d [-i]] [--lower] [-w N] [FILE]\n"
    "\n"
    "Writes the bytes of FILE (or standard input, also for '-') as hex digits to\n"
    "standard output, or turns hex digits of either case back into bytes with -d.\n"
    "Blanks and line breaks are skipped when decoding; any other non-hex character\n"
    "or an odd number of digits is an error that names its byte offset (from 0).\n"
    "\n"
    "  -d, --decode           decode instead of encoding\n"
    "  -i, --ignore-garbage   when decoding, skip bytes that are not hex digits\n"
    "  --lower                write a-f instead of A-F\n"
    "  -w, --wrap N           wrap encoded lines after N characters (default 60,\n"
    "                         0: never)\n"
    "  -h, --help             print this help\n"
    "\n"
    "Exit status: 0 on success, 1 on bad usage, 2 on unreadable or invalid input.\n"};

// Blocks of 48 KiB: a block and the text made of it stay in the processor's
// cache (larger ones measured slower), calls are still few, and memory stays
// a few blocks whatever the input's size.
constexpr std::size_t kBlock = 3 << 14;

std::size_t readBlock(std::FILE* in, char* block, std::size_t size) {
    std::size_t got = std::fread(block, 1, size, in);
    if (got < size && std::ferror(in)) throw cli::RunError(std::string("read failed: ") + std::strerror(errno));
    return got;
}

// Runs a library codec over `size` bytes at `bytes` into `target`, which it
// empties first (the hex forms add to the old length).
void runCodec(CodecCall codec, const char* bytes, std::size_t size, KT::CBuffer& target) {
    KT::CBuffer source;
    // Borrowed, not copied: the codec only reads its source.
    source.set(KT::SIntLeast32(size), reinterpret_cast<KT::UInt8*>(const_cast<char*>(bytes)), KT::NoOwnership);
    target.clear();
    (target.*codec)(source, 0);
}

// Writes encoded text broken into lines of `wrap` characters.
class LineWriter {
public:
    LineWriter(std::FILE* out, long wrap) : out_(out), wrap_(std::size_t(wrap)) {}

    void write(const char* text, std::size_t size) {
        if (wrap_ == 0) return cli::writeAll(out_, text, size);
        if (lines_.size() < size + size / wrap_ + 1) lines_.resize(size + size / wrap_ + 1);
        char* line = lines_.data();
        while (size > 0) {
            std::size_t room = std::min(size, wrap_ - column_);
            std::memcpy(line, text, room);
            line += room;
            text += room;
            size -= room;
            column_ += room;
            if (column_ == wrap_) {
                *line++ = '\n';
                column_ = 0;
            }
        }
        cli::writeAll(out_, lines_.data(), std::size_t(line - lines_.data()));
    }
    /// Ends the last line, as line-wrapping encoders do.
    void finish() {
        if (column_ != 0) cli::writeAll(out_, "\n", 1);
    }

private:
    std::FILE* out_;
    std::size_t wrap_;
    std::size_t column_ = 0;
    std::vector<char> lines_;  // kept from block to block
};

// Hex digits in lower case. The library writes A-F; setting bit 0x20 lowers
// them and leaves '0'-'9' as they are, so eight digits go at once.
void toLower(char* text, std::size_t size) {
    std::size_t i = 0;
    for (std::uint64_t word; i + 8 <= size; i += 8) {
        std::memcpy(&word, text + i, 8);
        word |= 0x2020202020202020u;
        std::memcpy(text + i, &word, 8);
    }
    for (; i < size; ++i) text[i] = char(text[i] | 0x20);
}

void encodeStream(const Codec& codec, std::FILE* in, std::FILE* out, long wrap, bool lower) {
    std::unique_ptr<char[]> block(new char[kBlock]);
    KT::CBuffer encoded;
    LineWriter lines(out, wrap);
    while (std::size_t got = readBlock(in, block.get(), kBlock)) {
        runCodec(codec.encode, block.get(), got, encoded);
        char* text = reinterpret_cast<char*>(encoded.data);
        std::size_t size = std::size_t(encoded.length);
        if (lower) toLower(text, size);
        lines.write(text, size);
    }
    lines.finish();
}

// How the decoder treats each input byte.
enum Class : unsigned char { Digit, Skip, Pad, Bad };

#if defined(__SSE2__)
// An alphabet as byte ranges for 16 bytes at once; five ranges cover Base64,
// and hex repeats one of its three.
struct Ranges {
    static constexpr int kCount = 5;
    __m128i first[kCount], span[kCount];

    explicit Ranges(const char* pairs) {
        std::size_t pairsGiven = std::strlen(pairs) / 2;
        for (std::size_t i = 0; i < kCount; ++i) {
            const char* pair = pairs + 2 * (i % pairsGiven);
            first[i] = _mm_set1_epi8(pair[0]);
            span[i] = _mm_set1_epi8(char(pair[1] - pair[0]));
        }
    }

    // The number of leading digits among the 16 bytes at `in`: most of
    // encoded text is long runs of digits.
    std::size_t leadingDigits(const unsigned char* in) const {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in)), inside = _mm_setzero_si128();
        for (int i = 0; i < kCount; ++i) {
            // Unsigned c - first <= span, with min() standing in for the
            // unsigned comparison SSE2 lacks.
            __m128i shifted = _mm_sub_epi8(bytes, first[i]);
            inside = _mm_or_si128(inside, _mm_cmpeq_epi8(_mm_min_epu8(shifted, span[i]), shifted));
        }
        unsigned outside = ~unsigned(_mm_movemask_epi8(inside)) & 0xFFFF;
        return outside == 0 ? 16 : std::size_t(__builtin_ctz(outside));
    }
};
#endif

// Checks encoded text as it streams by, keeps its digits and hands whole
// groups to the library, which itself accepts anything.
class Decoder {
public:
    Decoder(const Codec& codec, bool ignoreGarbage, std::FILE* out)
        : codec_(codec),
          out_(out),
#if defined(__SSE2__)
          ranges_(codec.ranges),
#endif
          digits_(new char[kBlock + codec.charsPerGroup]) {
        classes_.fill(ignoreGarbage ? Skip : Bad);
        for (const char* c = codec.alphabet; *c; ++c) classes_[static_cast<unsigned char>(*c)] = Digit;
        for (unsigned char blank : {' ', '\t', '\r', '\n'}) classes_[blank] = Skip;
        if (codec.padded) classes_['='] = Pad;
    }

    void feed(const char* bytes, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            if (padAt_ < 0) i += compact(bytes + i, size - i);
            if (i < size) tail(static_cast<unsigned char>(bytes[i]), offset_ + i);
        }
        offset_ += size;
        decodeWholeGroups();
    }

    void finish() {
        std::size_t missing = codec_.charsPerGroup - kept_ % codec_.charsPerGroup;
        if (kept_ % codec_.charsPerGroup != 0 && missing != pads_)
            throw failure(codec_.shortInput, offset_);
        std::memset(digits_.get() + kept_, '=', pads_);
        kept_ += pads_;
        decode(kept_);
    }

private:
    // Copies digits up to the first byte that is not a digit or a blank, and
    // returns how many bytes it read: runs of digits sixteen at a time where
    // the processor can, else byte by byte without branching on the byte.
    std::size_t compact(const char* bytes, std::size_t size) {
        const unsigned char* in = reinterpret_cast<const unsigned char*>(bytes);
        char* out = digits_.get() + kept_;
        std::size_t n = 0, i = 0;
#if defined(__SSE2__)
        const Ranges ranges = ranges_;  // a copy the compiler may keep in registers
#endif
        while (i < size) {
#if defined(__SSE2__)
            if (size - i >= 16) {
                std::size_t run = ranges.leadingDigits(in + i);
                std::memcpy(out + n, in + i, 16);
                n += run;
                i += run;
                if (run == 16) continue;
            }
#endif
            unsigned char kind = classes_[in[i]];
            if (kind > Skip) break;
            out[n] = char(in[i]);
            n += kind == Digit;
            ++i;
        }
        kept_ += n;
        return i;
    }

    // One byte at or after the first '=' or invalid byte.
    void tail(unsigned char c, unsigned long long at) {
        switch (classes_[c]) {
            case Skip: return;
            case Bad: {
                char shown[8];
                std::snprintf(shown, sizeof shown, c >= 0x20 && c < 0x7F ? "%c" : "\\x%02X", c);
                throw failure(std::string("invalid character '") + shown + "'", at);
            }
            case Digit: throw failure("padding before the end", (unsigned long long)padAt_);
            default:
                // '=' may complete a group of two or three digits, and only that.
                if (padAt_ < 0) padAt_ = (long long)at;
                if (kept_ % 4 < 2 || kept_ % 4 + ++pads_ > 4) throw failure("misplaced padding", at);
        }
    }

    void decodeWholeGroups() {
        std::size_t whole = kept_ - kept_ % codec_.charsPerGroup;
        decode(whole);
        std::memmove(digits_.get(), digits_.get() + whole, kept_ - whole);
        kept_ -= whole;
    }

    void decode(std::size_t count) {
        runCodec(codec_.decode, digits_.get(), count, decoded_);
        cli::writeAll(out_, decoded_.data, std::size_t(decoded_.length));
    }

    // The error for a fault at `at`; what decoded before it is written first,
    // as other decoders do.
    cli::RunError failure(const std::string& what, unsigned long long at) {
        decodeWholeGroups();
        return cli::RunError(what + " at byte offset " + std::to_string(at));
    }

    const Codec& codec_;
    std::FILE* out_;
    std::array<unsigned char, 256> classes_;
#if defined(__SSE2__)
    Ranges ranges_;
#endif
    std::unique_ptr<char[]> digits_;  // digits not yet decoded
    std::size_t kept_ = 0;
    unsigned long long offset_ = 0;  // of the next block in the input
    long long padAt_ = -1;           // of the first '=', once seen
    std::size_t pads_ = 0;
    KT::CBuffer decoded_;
};

void decodeStream(const Codec& codec, std::FILE* in, std::FILE* out, bool ignoreGarbage) {
    std::unique_ptr<char[]> block(new char[kBlock]);
    Decoder decoder(codec, ignoreGarbage, out);
    while (std::size_t got = readBlock(in, block.get(), kBlock)) decoder.feed(block.get(), got);
    decoder.finish();
}

int runCodec(const Codec& codec, cli::Arguments& args) {
    bool decode = false, ignoreGarbage = false, lower = false;
    long wrap = codec.defaultWrap;
    std::string path;
    while (!args.empty()) {
        std::string arg = args.take();
        if (cli::isHelp(arg)) {
            std::fputs(codec.usage, stdout);
            return cli::Success;
        } else if (arg == "-d" || arg == "--decode") {
            decode = true;
        } else if (arg == "-i" || arg == "--ignore-garbage") {
            ignoreGarbage = true;
        } else if (arg == "--lower" && &codec == &kHex) {
            lower = true;
        } else if (arg == "-w" || arg == "--wrap") {
            wrap = args.number(arg, 0, 1L << 30);
        } else {
            cli::takeOperand(arg, path, "more than one input file");
        }
    }
    std::unique_ptr<std::FILE, void (*)(std::FILE*)> in(cli::openInput(path), [](std::FILE* stream) {
        if (stream != stdin) std::fclose(stream);
    });
    if (decode) decodeStream(codec, in.get(), stdout, ignoreGarbage);
    else encodeStream(codec, in.get(), stdout, wrap, lower);
    cli::closeStream(stdout, "-");
    return cli::Success;
}

}  // namespace

int runBase64(cli::Arguments& args) { return runCodec(kBase64, args); }
int runHex(cli::Arguments& args) { return runCodec(kHex, args); }
