/// \file kt/KTURI.h - the URI descriptor: a URI text split once into its parts.
#pragma once

#include "kt/KTSocket.h"
#include "kt/KTString.h"
#include "kt/KTTypes.h"
#include "ktbase/refcount.h"

namespace KT {

/// A resource address split once with the URL toolkit (ktbase::url_*) into a
/// scheme code, user, password, host, port and path, each percent-decoded,
/// beside the text as given. No validation of its own: whatever the toolkit
/// returns is stored, and any text yields some split.
///
///     KT::RURI address(KT::CString("rtsp://user:pw@camera.test/live"));
///     // address.scheme == 5, address.port == 554, address.path == "/live"
///     ktbase::ref<KT::RSocket> socket = address.getSocket();
///     if (socket && socket->connect(nullptr) == 0) ...
///
/// Scheme codes, matched byte for byte against the lower- or upper-case
/// spelling only ("Http" matches nothing):
///
///     0 no scheme   1 file   3 http (port 80)   4 ftp (port 21)
///     5 rtsp (port 554)   6 firewire   7 socket   -1 anything else
///
/// There is no code 2: code that switches on them must not assume they are
/// dense. The port is the URI's own when it names one, else the scheme's
/// default above, else 0.
class KT_API RURI : public ktbase::object_refcount {
public:
    /// Scheme -1, port 0, every string in the empty state (no memory).
    RURI();
    /// Keeps a copy of `uri` in `uri` and parses it with parseURI(). An
    /// argument in the empty state leaves the whole descriptor as the default
    /// constructor makes it. Throws KT::CException when memory runs out.
    explicit RURI(const CString& uri);
    /// Independent copies of the other's strings (the reference count is not
    /// copied). Throws KT::CException when memory runs out.
    RURI(const RURI& other);
    /// Replaces every field by a copy of the other's; the reference count is
    /// left alone. Assigning a descriptor to itself leaves it unchanged.
    /// Throws KT::CException when memory runs out.
    RURI& operator=(const RURI& other);
    /// Releases the strings.
    ~RURI() override;

    /// Fills `scheme`, `user`, `password`, `host`, `port` and `path` from
    /// `uri` (the `uri` field itself is left alone). Returns 0, or -1 without
    /// changing anything when `uri` is in the empty state. A port text is
    /// read as atoi() does and truncated to 16 bits: "70000" gives 4464, "abc"
    /// gives 0, "-1" gives 65535. Absent parts are stored as "" (never in the
    /// empty state). Throws KT::CException when memory runs out.
    int parseURI(const CString& uri);

    /// Returns a new stream socket aimed at `host`:`port` (whatever the
    /// scheme), marked close-on-exec and not yet connected, in a handle that
    /// holds the only reference to it; an empty handle when `port` is 0.
    /// Throws KT::CNetworkException when the host name does not resolve (see
    /// RSocket's host-name constructor).
    ktbase::ref<RSocket> getSocket() const;

    /// Scheme code from the table above; -1 when not parsed or not known.
    int scheme;
    /// User name from the authority.
    CString user;
    /// Password from the authority.
    CString password;
    /// Host name or dotted address.
    CString host;
    /// Port number; 0 for none.
    UInt16 port;
    /// Path, with its leading "/" when it has one.
    CString path;
    /// The text exactly as given to the constructor.
    CString uri;
};

}  // namespace KT
