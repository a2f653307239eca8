// Every url_set_X / url_new_X with a fuzzed URL and value: nothing throws,
// url_new_X leaves its argument alone and equals url_set_X on a copy, and on
// URLs of the full form a component set to its own value changes nothing.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz_support.h"
#include "kt/url.h"

namespace {

using Getter = std::string (*)(const std::string&, bool);
using Setter = std::string& (*)(std::string&, const std::string&, bool);
using Copier = std::string (*)(const std::string&, const std::string&, bool);
using Map = std::map<std::string, std::string>;
using MapSetter = std::string& (*)(std::string&, const Map&, bool, char, char);
using MapCopier = std::string (*)(const std::string&, const Map&, bool, char, char);

struct Component {
    Getter get;
    Setter set;
    Copier copy;
};

const Component kComponents[] = {
    {ktbase::url_scheme, ktbase::url_set_scheme, ktbase::url_new_scheme},
    {ktbase::url_authority, ktbase::url_set_authority, ktbase::url_new_authority},
    {ktbase::url_path, ktbase::url_set_path, ktbase::url_new_path},
    {ktbase::url_params, ktbase::url_set_params, ktbase::url_new_params},
    {ktbase::url_query, ktbase::url_set_query, ktbase::url_new_query},
    {ktbase::url_fragment, ktbase::url_set_fragment, ktbase::url_new_fragment},
    {ktbase::url_domain, ktbase::url_set_domain, ktbase::url_new_domain},
    {ktbase::url_user, ktbase::url_set_user, ktbase::url_new_user},
    {ktbase::url_password, ktbase::url_set_password, ktbase::url_new_password},
    {ktbase::url_host, ktbase::url_set_host, ktbase::url_new_host},
    {ktbase::url_service, ktbase::url_set_service, ktbase::url_new_service},
};

struct MapComponent {
    MapSetter set;
    MapCopier copy;
};

const MapComponent kMapComponents[] = {
    {ktbase::url_set_params, ktbase::url_new_params},
    {ktbase::url_set_query, ktbase::url_new_query},
    {ktbase::url_set_fragment, ktbase::url_new_fragment},
};

// Up to `count` bytes of `text` from `start`, with every delimiter of the
// URL model left out, or "x" if nothing is left: a component that can neither
// end early nor split.
std::string plain(const std::string& text, std::size_t start, std::size_t count) {
    std::string out;
    for (std::size_t i = start; i < text.size() && i - start < count; ++i)
        if (std::string(":/;?#@").find(text[i]) == std::string::npos) out += text[i];
    return out.empty() ? "x" : out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t choice = input.byte();
    const bool encode = choice & 1;
    const std::string url = input.text();
    const std::string value = input.text();

    const Component& c = kComponents[(choice >> 1) % 11];
    std::string copy = url;
    std::string changed = c.copy(url, value, encode);
    FUZZ_CHECK(c.set(copy, value, encode) == changed);
    FUZZ_CHECK(copy == changed);

    Map map;
    while (!input.empty()) {
        std::string key = input.text();
        map[key] = input.text();
    }
    const MapComponent& m = kMapComponents[(choice >> 5) % 3];
    copy = url;
    changed = m.copy(url, map, encode, '&', '=');
    m.set(copy, map, encode, '&', '=');
    // The in-place params form encodes its joined text once more.
    if (m.set != static_cast<MapSetter>(ktbase::url_set_params)) FUZZ_CHECK(copy == changed);

    // A full-form URL built from the pieces: every component set to its own
    // value, and set to empty then back, leaves it unchanged.
    const std::string full = plain(url, 0, 8) + "://" + plain(value, 0, 4) + ";" +
                             plain(value, 4, 4) + ":" + plain(value, 8, 4) + "@" +
                             plain(value, 12, 6) + ":" + plain(value, 18, 4) + "/" +
                             plain(url, 8, 8) + ";" + plain(url, 16, 4) + "?" + plain(url, 20, 4) +
                             "#" + plain(url, 24, std::string::npos);
    for (const Component& part : kComponents) {
        const std::string own = part.get(full, false);
        FUZZ_CHECK(part.copy(full, own, false) == full);
    }
    for (int i = 0; i < 6; ++i) {
        const std::string own = kComponents[i].get(full, false);
        FUZZ_CHECK(kComponents[i].copy(kComponents[i].copy(full, "", false), own, false) == full);
    }
    return 0;
}
