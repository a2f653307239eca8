#include "kt/KTServerSocket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "KTInternal.h"
#include "KTSocketInternal.h"
#include "kt/KTException.h"

namespace KT {

namespace {

const char kFile[] = "lib/kt/KTServerSocket.cpp";
const char kAcceptSignature[] = "KT::RSocket KT::RServerSocket::accept() const";

}  // namespace

// The socket is made by the RSocket part; if bind() throws, that part is
// destroyed and closes it.
RServerSocket::RServerSocket(sockaddr_in* local, int type, UInt8 flags)
    : RSocket(nullptr, type, local, flags) {
    bind(nullptr);
}

RServerSocket::RServerSocket(UInt16 port, int type, UInt8 flags)
    : RServerSocket(nullptr, port, type, flags) {}

RServerSocket::RServerSocket(const char* address, UInt16 port, int type, UInt8 flags)
    : RSocket(nullptr, type, nullptr, flags) {
    localAddress.sin_family = AF_INET;
    localAddress.sin_port = htons(port);
    if (!address) {
        localAddress.sin_addr.s_addr = htonl(INADDR_ANY);
    } else if (::inet_aton(address, &localAddress.sin_addr) == 0) {
        // The record keeps INADDR_NONE, the broadcast address, which some
        // systems let a stream socket bind: fail as bind() fails where it is
        // refused, rather than serve on an address nobody can connect to.
        // The RSocket part closes the descriptor as the exception leaves.
        detail::throwBindFailure(EADDRNOTAVAIL);
    }
    bind(nullptr);
}

RServerSocket::~RServerSocket() = default;

Result RServerSocket::listen(int backlog) const {
    if (::listen(descriptor, backlog) == -1)
        detail::raise<CNetworkException>(kFile, /*line=*/58,
                                         "KT::Result KT::RServerSocket::listen(int) const",
                                         std::strerror(errno));
    return 0;
}

RSocket RServerSocket::accept() const {
    sockaddr_in peer;
    std::memset(&peer, 0, sizeof peer);
    socklen_t length = sizeof peer;
    int fd = ::accept(descriptor, reinterpret_cast<sockaddr*>(&peer), &length);
    if (fd != -1) {
        markCloseOnExec(fd);
        return RSocket(fd, SOCK_STREAM, &peer, nullptr, CloseOnExec);
    }
    // A closed server and a peer that gave up are not failures: the caller
    // sees a socket without a descriptor and goes on.
    if (descriptor == -1) return RSocket();
    if (errno == EINTR)
        detail::raise<CInterruptedException>(kFile, /*line=*/77, kAcceptSignature,
                                             "Got Interrupted");
    if (errno == ECONNABORTED) return RSocket();
    detail::raise<CNetworkException>(kFile, /*line=*/80, kAcceptSignature, std::strerror(errno));
}

}  // namespace KT
