#include "kt/KTSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <type_traits>
#include <vector>

#include "KTInternal.h"
#include "KTSocketInternal.h"
#include "kt/KTException.h"

namespace KT {

namespace {

const char kFile[] = "lib/kt/KTSocket.cpp";

// Records always travel with the size of the IPv4 record.
constexpr socklen_t kRecordSize = sizeof(sockaddr_in);
static_assert(kRecordSize == 16, "IPv4 address records are 16 bytes");
// getOption() hands the caller's length straight to getsockopt().
static_assert(std::is_same<socklen_t, unsigned int>::value, "socklen_t is unsigned int");

// What an address field holds when the caller supplied none.
sockaddr_in emptyRecord() {
    sockaddr_in record;
    std::memset(&record, 0, sizeof record);
    record.sin_addr.s_addr = INADDR_NONE;
    return record;
}

sockaddr_in recordOrEmpty(const sockaddr_in* record) { return record ? *record : emptyRecord(); }

sockaddr* asGeneric(sockaddr_in* record) { return reinterpret_cast<sockaddr*>(record); }

// The record getsockname() gives now; zero when it cannot describe the
// descriptor, so that the callers report 0.0.0.0.
sockaddr_in localRecord(int descriptor) {
    sockaddr_in record;
    std::memset(&record, 0, sizeof record);
    socklen_t length = kRecordSize;
    ::getsockname(descriptor, asGeneric(&record), &length);
    return record;
}

// The loop shared by read(), write(), send() and receive(): calls `transfer`
// with the rest of the buffer until all `length` bytes are moved, the system
// moves none (peer closed) or an error ends it. Interrupted and would-block
// calls end it like any error: the caller decides whether to try again.
template <class Byte, class Transfer>
int transferAll(Byte* buffer, int length, Transfer transfer) {
    if (length < 1) return 0;
    int done = 0;
    while (done < length) {
        ssize_t n = transfer(buffer + done, static_cast<size_t>(length - done));
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<int>(n);
    }
    return done;
}

// The resolver's room for one answer: it starts at a size that holds the
// usual one and doubles while the resolver asks for more, up to a bound.
constexpr std::size_t kResolverRoom = 1024;
constexpr std::size_t kResolverRoomLimit = std::size_t(1) << 20;

// Writes the first IPv4 address of `host` to `address`; false when there is
// none, with the resolver's error code (as h_errno would hold it) in `error`.
// Each call has its own answer, so that threads never see each other's.
bool resolve(const char* host, in_addr& address, int& error) {
    std::vector<char> room(kResolverRoom);
    hostent entry{};
    hostent* found = nullptr;
    while (::gethostbyname_r(host, &entry, room.data(), room.size(), &found, &error) == ERANGE &&
           room.size() < kResolverRoomLimit)
        room.resize(room.size() * 2);
    if (!found) return false;
    std::memcpy(&address, found->h_addr_list[0], sizeof address);
    return true;
}

}  // namespace

namespace detail {

const char* resolverMessage(int error) {
    switch (error) {
        case NETDB_SUCCESS:
            return nullptr;
        case NETDB_INTERNAL:
            return "Internal error in the network library, unrelated to the  network  or  name "
                   "service.";
        case HOST_NOT_FOUND:
            return "No such host is known.";
        case TRY_AGAIN:
            return "No response from server";
        case NO_RECOVERY:
            return "Some unexpected server failure was encountered.  This is a  non-recoverable "
                   "error.";
        case NO_DATA:
            return "The requested  name  is  valid but does not have an IP  address.";
        default:
            return "Unkown error.";
    }
}

void throwBindFailure(int error) {
    raise<CNetworkException>(kFile, /*line=*/102, "KT::Result KT::RSocket::bind(sockaddr_in*)",
                             std::strerror(error));
}

}  // namespace detail

// ---------------------------------------------------------------- lifetime

RSocket::RSocket()
    : descriptor(-1),
      localAddress(emptyRecord()),
      remoteAddress(emptyRecord()),
      flags(0),
      socketType(0) {}

RSocket::RSocket(int fd, int type, sockaddr_in* remote, sockaddr_in* local, UInt8 flags)
    : descriptor(fd),
      localAddress(recordOrEmpty(local)),
      remoteAddress(recordOrEmpty(remote)),
      flags(flags),
      socketType(type) {}

RSocket::RSocket(sockaddr_in* remote, int type, sockaddr_in* local, UInt8 flags)
    : descriptor(::socket(AF_INET, type, 0)),
      localAddress(recordOrEmpty(local)),
      remoteAddress(recordOrEmpty(remote)),
      flags(flags),
      socketType(type) {
    if (descriptor == -1)
        detail::raise<CNetworkException>(
            kFile, /*line=*/131, "KT::RSocket::RSocket(sockaddr_in*, int, sockaddr_in*, KT::UInt8)",
            std::strerror(errno));
    markCloseOnExec(descriptor);
}

RSocket::RSocket(const char* host, UInt16 port, int type, UInt8 flags)
    : descriptor(-1), flags(flags), socketType(type) {
    std::memset(&localAddress, 0, sizeof localAddress);
    std::memset(&remoteAddress, 0, sizeof remoteAddress);
    remoteAddress.sin_family = AF_INET;
    remoteAddress.sin_port = htons(port);
    // The name is resolved before the descriptor exists, so that a failure
    // leaves nothing open. "255.255.255.255" reads as INADDR_NONE and so goes
    // to the resolver too.
    remoteAddress.sin_addr.s_addr = ::inet_addr(host);
    if (remoteAddress.sin_addr.s_addr == INADDR_NONE) {
        int error = NETDB_SUCCESS;
        if (!resolve(host, remoteAddress.sin_addr, error))
            if (const char* message = detail::resolverMessage(error))
                detail::raise<CNetworkException>(
                    kFile, /*line=*/153,
                    "KT::RSocket::RSocket(const char*, KT::UInt16, int, KT::UInt8)", message);
    }
    descriptor = ::socket(AF_INET, type, 0);
    markCloseOnExec(descriptor);
}

RSocket::RSocket(const RSocket& other) : ktbase::object_refcount() { duplicate(other); }

RSocket& RSocket::operator=(const RSocket& other) {
    // Deliberately unguarded: assigned to itself, the object duplicates the
    // descriptor it has just closed and so ends without one (-1).
    close();
    duplicate(other);
    return *this;
}

RSocket::~RSocket() { close(); }

void RSocket::duplicate(const RSocket& other) {
    flags = other.flags;
    socketType = other.socketType;
    descriptor = ::dup(other.descriptor);
    markCloseOnExec(descriptor);
    localAddress = other.localAddress;
    remoteAddress = other.remoteAddress;
}

void RSocket::markCloseOnExec(int fd) const {
    if ((flags & CloseOnExec) && fd != -1) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

// ---------------------------------------------------------------- connection

int RSocket::connect(sockaddr_in* address) {
    if (address) remoteAddress = *address;
    if (::connect(descriptor, asGeneric(&remoteAddress), kRecordSize) == 0) return 0;
    // A refused stream socket cannot be used again; hand the caller a fresh
    // one, keeping the cause for it to read.
    if (errno == ECONNREFUSED && socketType == SOCK_STREAM) {
        reset();
        errno = ECONNREFUSED;
    }
    return -1;
}

Result RSocket::bind(sockaddr_in* address) {
    if (address) localAddress = *address;
    // Lets a server come back on its port while old connections linger in
    // TIME_WAIT.
    int reuse = 1;
    setOption(SO_REUSEADDR, &reuse, sizeof reuse);
    markCloseOnExec(descriptor);
    if (::bind(descriptor, asGeneric(&localAddress), kRecordSize) != 0)
        detail::throwBindFailure(errno);
    return 0;
}

int RSocket::close() {
    if (descriptor == -1) return 0;
    // Forget the descriptor first: whatever close() reports, it is gone.
    int old = descriptor;
    descriptor = -1;
    return ::close(old);
}

void RSocket::reset() {
    close();
    descriptor = ::socket(AF_INET, socketType, 0);
    markCloseOnExec(descriptor);
}

int RSocket::shutdown() { return descriptor == -1 ? 0 : ::shutdown(descriptor, SHUT_RD); }

// ---------------------------------------------------------------- transfer

int RSocket::read(char* buffer, int length) const {
    return transferAll(buffer, length,
                       [this](char* at, size_t count) { return ::read(descriptor, at, count); });
}

int RSocket::read2(char* buffer, int length) const {
    // A negative length goes to the system as 0: as a size it would let the
    // system write far past the caller's buffer.
    return static_cast<int>(
        ::read(descriptor, buffer, static_cast<size_t>(length < 0 ? 0 : length)));
}

int RSocket::write(const char* buffer, int length) const {
    return transferAll(buffer, length, [this](const char* at, size_t count) {
        return ::write(descriptor, at, count);
    });
}

int RSocket::send(const char* buffer, int length, int flags) const {
    return transferAll(buffer, length, [this, flags](const char* at, size_t count) {
        return ::send(descriptor, at, count, flags);
    });
}

int RSocket::receive(char* buffer, int length, int flags) const {
    return transferAll(buffer, length, [this, flags](char* at, size_t count) {
        return ::recv(descriptor, at, count, flags);
    });
}

// ---------------------------------------------------------------- options and addresses

int RSocket::setOption(int name, const void* value, int length) {
    return ::setsockopt(descriptor, SOL_SOCKET, name, value, static_cast<socklen_t>(length));
}

int RSocket::getOption(int name, void* value, unsigned int* length) const {
    return ::getsockopt(descriptor, SOL_SOCKET, name, value, length);
}

const char* RSocket::getRemoteAddress() const { return ::inet_ntoa(remoteAddress.sin_addr); }

std::uint32_t RSocket::getRemoteAddressUInt32() const {
    return ntohl(remoteAddress.sin_addr.s_addr);
}

UInt16 RSocket::getRemotePort() const { return ntohs(remoteAddress.sin_port); }

const char* RSocket::getLocalAddress() const {
    return ::inet_ntoa(localRecord(descriptor).sin_addr);
}

std::uint32_t RSocket::getLocalAddressUInt32() const {
    return ntohl(localRecord(descriptor).sin_addr.s_addr);
}

bool RSocket::isConnected() {
    if (descriptor == -1) return false;
    sockaddr_in peer;
    socklen_t length = kRecordSize;
    return ::getpeername(descriptor, asGeneric(&peer), &length) != -1;
}

int RSocket::isRSocket(int fd) {
    // Zeroed first, so that the branch after a failed fstat() reads a defined
    // record (and so always answers 0).
    struct stat status;
    std::memset(&status, 0, sizeof status);
    if (::fstat(fd, &status) != -1) return -1;
    return (status.st_mode & S_IFMT) == S_IFSOCK ? 1 : 0;
}

}  // namespace KT
