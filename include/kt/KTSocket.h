/// \file kt/KTSocket.h - the IPv4 client socket.
#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "kt/KTTypes.h"
#include "ktbase/refcount.h"

namespace KT {

/// One IPv4 socket descriptor with the local and remote address records that
/// belong to it: the library's connection object.
///
///     KT::RSocket socket("localhost", 8080, SOCK_STREAM, KT::RSocket::CloseOnExec);
///     if (socket.connect(nullptr) == 0) socket.write(request, length);
///
/// The object owns its descriptor and closes it when destroyed; copies take a
/// duplicate made with dup(), never the same number. Only construction, name
/// resolution and bind() throw (KT::CNetworkException); every other operation
/// wraps one system call and returns its result, -1 on failure with the cause
/// left in errno.
///
/// Address records are plain sockaddr_in values (network byte order inside).
/// An "empty" record, what a field holds when the caller gave none, is all
/// zero except its address, which is INADDR_NONE (255.255.255.255).
///
/// Not thread-safe as a whole; the const transfer calls only read
/// `descriptor`, so one thread may read while another writes.
class KT_API RSocket : public ktbase::object_refcount {
public:
    /// Bit of `flags`: mark every descriptor the object makes (socket(),
    /// reset(), copy, assignment, and again before bind()) close-on-exec.
    static constexpr UInt8 CloseOnExec = 2;

    /// No descriptor (-1), empty address records, `flags` and `socketType` 0.
    /// Makes no system call.
    RSocket();
    /// Adopts the open descriptor `fd` as it is (no system call, not marked
    /// close-on-exec) and takes ownership of it. The records are copied from
    /// `remote` and `local`; a null pointer gives an empty record.
    RSocket(int fd, int type, sockaddr_in* remote, sockaddr_in* local, UInt8 flags);
    /// Creates a new socket(AF_INET, type, 0) with copies of the given records
    /// (null: an empty record). Neither connects nor binds.
    /// Throws KT::CNetworkException with the system's message when socket()
    /// fails.
    RSocket(sockaddr_in* remote, int type, sockaddr_in* local, UInt8 flags);
    /// Aims a new socket(AF_INET, type, 0) at `host`:`port`. `host` (not null)
    /// is read as a dotted address first, else resolved with gethostbyname_r()
    /// (first address) into room of the call's own, so that threads resolving
    /// at the same time each get their own answer. `localAddress` is all zero, INADDR_ANY included. A
    /// failing socket() is not reported: `descriptor` is then -1.
    /// Throws KT::CNetworkException when the name does not resolve, with a
    /// fixed message per resolver error (e.g. "No such host is known."); no
    /// descriptor is open then. A resolver failure that leaves h_errno 0 is
    /// not an error: the remote address stays 255.255.255.255.
    RSocket(const char* host, UInt16 port, int type, UInt8 flags);
    /// Refers to the same connection through dup() of the other's descriptor
    /// (-1 when the other has none). Copies records, flags and type; never
    /// throws.
    RSocket(const RSocket& other);
    /// Closes this object's descriptor, then takes a dup() of the other's,
    /// with its records, flags and type. Assigning an object to itself
    /// therefore leaves it without a descriptor (-1).
    RSocket& operator=(const RSocket& other);
    /// Closes the descriptor.
    ~RSocket() override;

    /// Connects to `*address` (which is stored in `remoteAddress` even when
    /// the attempt fails), or to `remoteAddress` when `address` is null.
    /// Returns 0, or -1 with errno set. A stream connection that is refused
    /// (ECONNREFUSED) replaces the descriptor by a fresh one (see reset()), so
    /// the object is ready for another attempt; errno is kept.
    int connect(sockaddr_in* address);
    /// Binds to `*address` (stored in `localAddress`), or to `localAddress`
    /// when `address` is null, after setting SO_REUSEADDR. Returns 0.
    /// Throws KT::CNetworkException with the system's message on failure.
    Result bind(sockaddr_in* address);
    /// Closes the descriptor and forgets it (-1 before the system call).
    /// Returns 0 when there was none, else the result of close().
    int close();
    /// Closes the descriptor and makes a new one of the same type; the address
    /// records are kept. A failing socket() leaves `descriptor` -1.
    void reset();
    /// Shuts down the receiving direction only (SHUT_RD); the descriptor stays
    /// open and sending goes on. Returns 0 without a descriptor, else the
    /// result of shutdown().
    int shutdown();

    /// Reads exactly `length` bytes into `buffer` unless the peer closes
    /// first. Returns the bytes read (fewer when the peer closed), 0 when
    /// `length` < 1, or -1 on any error (bytes already read are then in
    /// `buffer` but not counted). No retry on EINTR or EAGAIN.
    int read(char* buffer, int length) const;
    /// One read() of up to `length` bytes (a negative length reads 0): returns
    /// its result as it is.
    int read2(char* buffer, int length) const;
    /// Writes all `length` bytes. Returns `length`, fewer if the system
    /// accepts no more (a write of 0), 0 when `length` < 1, or -1 on error.
    /// Writing to a peer that has closed raises SIGPIPE, which ends the
    /// process unless the program ignores or handles it (or uses send()
    /// with MSG_NOSIGNAL); the call then returns -1 with errno EPIPE.
    int write(const char* buffer, int length) const;
    /// As write(), with send() and `flags` passed on every call; MSG_NOSIGNAL
    /// among them turns SIGPIPE into a plain -1 with errno EPIPE.
    int send(const char* buffer, int length, int flags) const;
    /// As read(), with recv() and `flags` passed on every call (so MSG_PEEK
    /// copies the same pending bytes again at each advance).
    int receive(char* buffer, int length, int flags) const;

    /// setsockopt() at SOL_SOCKET; returns its result.
    int setOption(int name, const void* value, int length);
    /// getsockopt() at SOL_SOCKET; returns its result.
    int getOption(int name, void* value, unsigned int* length) const;

    /// Dotted text of the stored remote address, in inet_ntoa()'s static
    /// buffer (overwritten by the next call in the process: copy it to keep
    /// it). Asks nothing of the system.
    const char* getRemoteAddress() const;
    /// The stored remote address as a number in host order (10.0.0.1 is
    /// 0x0A000001).
    std::uint32_t getRemoteAddressUInt32() const;
    /// The stored remote port in host order.
    UInt16 getRemotePort() const;
    /// Dotted text of the local address as getsockname() reports it now
    /// ("0.0.0.0" when it cannot), in inet_ntoa()'s static buffer.
    const char* getLocalAddress() const;
    /// The local address as getsockname() reports it now, in host order (0
    /// when it cannot).
    std::uint32_t getLocalAddressUInt32() const;
    /// True when the descriptor has a peer (getpeername() succeeds); false
    /// without a system call when there is no descriptor. (Not const: the
    /// compiled interface has always named the non-const form.)
    bool isConnected();

    /// Returns -1 for any descriptor that fstat() accepts, whatever it is;
    /// for one it rejects, 0. (Only a failed fstat() reaches the socket test,
    /// whose record is then zero: callers cannot learn "is a socket" here.)
    static int isRSocket(int fd);

    /// The socket descriptor, or -1.
    int descriptor;
    /// The local end: what bind() binds to.
    sockaddr_in localAddress;
    /// The peer: what connect() connects to and the remote getters report.
    sockaddr_in remoteAddress;
    /// The option byte; only CloseOnExec has a meaning.
    UInt8 flags;
    /// The type given to socket() (SOCK_STREAM for TCP), for reset().
    int socketType;

protected:
    /// Marks `fd` close-on-exec when this object's `flags` asks for it.
    void markCloseOnExec(int fd) const;

private:
    /// Takes a dup() of the other's descriptor with its records, flags and
    /// type (the common part of copying and assignment).
    void duplicate(const RSocket& other);
};

}  // namespace KT
