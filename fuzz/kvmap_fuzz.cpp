// The key/value readers with fuzzed separators, and the map forms of the
// setters read back: a map written with encoding comes back unchanged.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz_support.h"
#include "kt/url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const char pair = char(input.byte());
    const char kv = char(input.byte());
    const bool decode = input.byte() & 1;
    const std::string url = input.text();

    std::map<std::string, std::string> filled = {{"kept", "earlier"}};
    ktbase::url_query_kvmap(filled, url, decode, pair, kv);
    std::map<std::string, std::string> fresh = ktbase::url_query_kvmap(url, decode, pair, kv);
    for (const auto& [key, value] : fresh) FUZZ_CHECK(filled.at(key) == value);
    FUZZ_CHECK(filled.size() <= fresh.size() + 1);
    ktbase::url_params_kvmap(url, decode, pair, kv);
    ktbase::url_fragment_kvmap(url, decode, pair, kv);

    // Keys must be non-empty to be written; "%00" is never decoded, so NUL
    // bytes are left out.
    std::map<std::string, std::string> map;
    while (!input.empty()) {
        std::string key = input.text();
        std::string value = input.text();
        if (!key.empty()) map[key] = value;
    }
    const std::string query = ktbase::url_new_query("s://h/p", map, true, '&', '=');
    FUZZ_CHECK(ktbase::url_query_kvmap(query, true, '&', '=') == map);
    const std::string fragment = ktbase::url_new_fragment("s://h/p", map, true, '&', '=');
    FUZZ_CHECK(ktbase::url_fragment_kvmap(fragment, true, '&', '=') == map);
    return 0;
}
