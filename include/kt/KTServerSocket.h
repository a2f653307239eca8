/// \file kt/KTServerSocket.h - the listening IPv4 socket.
#pragma once

#include "kt/KTSocket.h"

namespace KT {

/// The listening end of a TCP service: an RSocket bound as it is constructed,
/// which listens on request and returns each incoming connection as a new
/// RSocket.
///
///     KT::RServerSocket server(8080, SOCK_STREAM, KT::RSocket::CloseOnExec);
///     server.listen(16);
///     for (;;) {
///         KT::RSocket client = server.accept();
///         if (client.descriptor == -1) continue;  // the peer gave up
///         ...
///     }
///
/// Every constructor sets SO_REUSEADDR before binding and throws
/// KT::CNetworkException with the system's message when socket() or bind()
/// fails; no descriptor is left open then. listen() and accept() are const and
/// change nothing in the object, so several threads may accept on one server.
class KT_API RServerSocket : public RSocket {
public:
    /// Binds to `*local` (null: the empty record, on which bind fails).
    RServerSocket(sockaddr_in* local, int type, UInt8 flags);
    /// Binds to every local address (INADDR_ANY) on `port`; port 0 lets the
    /// system choose. Write it `KT::UInt16(0)`: a bare literal 0 would also
    /// name the null record of the first form.
    RServerSocket(UInt16 port, int type, UInt8 flags);
    /// Binds to the dotted `address` on `port`, or to every local address when
    /// `address` is null. A text that is not a dotted address leaves the
    /// address 255.255.255.255, on which bind fails.
    RServerSocket(const char* address, UInt16 port, int type, UInt8 flags);
    /// Closes the listening descriptor.
    ~RServerSocket() override;

    /// Starts listening with `backlog` passed to the system unchanged.
    /// Returns 0; throws KT::CNetworkException with the system's message on
    /// failure.
    Result listen(int backlog) const;
    /// Waits for one connection and returns it as a stream socket that owns
    /// the new descriptor, with the peer's record as its remote address, an
    /// empty local record and `flags` CloseOnExec. The new descriptor itself
    /// is marked close-on-exec only when this server's `flags` asks for it.
    /// Returns a socket without a descriptor (-1), throwing nothing, when this
    /// server has no descriptor or the peer gave up first (ECONNABORTED).
    /// Throws KT::CInterruptedException "Got Interrupted" when a signal broke
    /// the wait (the server keeps listening), and KT::CNetworkException with
    /// the system's message for any other failure.
    RSocket accept() const;
};

}  // namespace KT
