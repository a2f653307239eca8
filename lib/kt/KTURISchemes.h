// Private: the schemes the URI descriptor knows, the code RURI::scheme holds
// for each and the port a URI of the scheme means when it names none. The one
// list of them: KTURI.cpp matches texts against it, the kt tool reads codes by
// these names.
#pragma once

#include "kt/KTTypes.h"

namespace KT {

/// The scheme codes; -1 for a scheme that is not listed. There is no code 2.
enum URISchemeCode : int {
    kUnknownScheme = -1,
    kNoScheme = 0,
    kFileScheme = 1,
    kHttpScheme = 3,
    kFtpScheme = 4,
    kRtspScheme = 5,
    kFirewireScheme = 6,
    kSocketScheme = 7,
};

/// A known scheme: a text matches it when it is one of the two spellings
/// byte for byte ("Http" matches nothing).
struct URIScheme {
    const char* lowerCase;
    const char* upperCase;
    URISchemeCode code;
    UInt16 defaultPort;
};

/// Tried in this order; the empty scheme is a URI without one.
inline constexpr URIScheme kURISchemes[] = {
    {"", "", kNoScheme, 0},          {"file", "FILE", kFileScheme, 0},
    {"http", "HTTP", kHttpScheme, 80}, {"ftp", "FTP", kFtpScheme, 21},
    {"rtsp", "RTSP", kRtspScheme, 554}, {"firewire", "FIREWIRE", kFirewireScheme, 0},
    {"socket", "SOCKET", kSocketScheme, 0},
};

}  // namespace KT
