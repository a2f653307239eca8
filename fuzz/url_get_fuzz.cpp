// Every URL getter, raw and decoded, on any text: a raw component is a piece
// of the URL, its decoded form is url_decode() of it, and percent-encoding
// round-trips.
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "kt/url.h"

namespace {

using Getter = std::string (*)(const std::string&, bool);

const Getter kGetters[] = {
    ktbase::url_scheme, ktbase::url_authority, ktbase::url_path,     ktbase::url_params,
    ktbase::url_query,  ktbase::url_fragment,  ktbase::url_domain,   ktbase::url_user,
    ktbase::url_password, ktbase::url_host,    ktbase::url_service,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);
    for (Getter get : kGetters) {
        std::string raw = get(url, false);
        FUZZ_CHECK(url.find(raw) != std::string::npos);
        FUZZ_CHECK(get(url, true) == ktbase::url_decode(raw));
    }
    // "%00" is never decoded, so a NUL byte does not come back.
    if (url.find('\0') == std::string::npos)
        for (bool slashes : {false, true}) {
            std::string encoded = ktbase::url_encode(url, slashes);
            FUZZ_CHECK(encoded.find_first_of(slashes ? "/ #?;:@" : " #?;:@") == std::string::npos);
            FUZZ_CHECK(ktbase::url_decode(encoded) == url);
        }
    return 0;
}
