// The part of libkt's binary interface that the ABI client's behaviour checks
// touch, declared anew from the class descriptions, never taken from the
// library's headers (which the client guards). Fields come in their described
// order and types, so the compiler puts them where an executable built against
// the original interface reads them; CData's constructor is inline, as those
// callers compiled it. Each class declares only its destructor as
// virtual, for the table pointer: nothing here calls through a table, whose
// slots abi_vtables.txt names instead, and abi_symbols.txt names every other
// exported function.
#pragma once

#include <netinet/in.h>

namespace ktbase {
namespace e {

// libktcore's exception base: three words after the table pointer (private
// there; public here so that the client can see where they lie).
class base {
public:
    virtual ~base();

    const char* file_;
    unsigned line_;
    const char* extra_;
};

}  // namespace e

// libktcore's reference count: an inline virtual destructor and a count,
// whose tail padding the derived class's first field takes.
class object_refcount {
public:
    virtual ~object_refcount() {}

    int count_;
};

}  // namespace ktbase

namespace KT {

typedef unsigned char UInt8;
typedef unsigned short UInt16;

class CBuffer {
public:
    CBuffer(int size);
    virtual ~CBuffer();

    UInt8* data;
    int capacity;
    int length;
    int owner;
};

class CData : public CBuffer {
public:
    CData(int size) : CBuffer(size), cursor(data) {}
    ~CData();
    template <class T>
    void put(T value);

    UInt8* cursor;
};
template <>
void CData::put<int>(int value);

class CString : public CBuffer {
public:
    CString(const char* text);
    ~CString();
};

class CException : public ktbase::e::base {
public:
    CException(const char* type, int line, const char* file, const char* function,
               const CString& message);
    ~CException();

    const char* type;
    const char* function;
    CString message;
};

class CNetworkException : public CException {
public:
    ~CNetworkException();
};

class CInterruptedException : public CException {
public:
    ~CInterruptedException();
};

class RSocket : public ktbase::object_refcount {
public:
    RSocket();
    ~RSocket();

    int descriptor;
    sockaddr_in localAddress;
    sockaddr_in remoteAddress;
    UInt8 flags;
    int socketType;
};

class RServerSocket : public RSocket {
public:
    RServerSocket(UInt16 port, int type, UInt8 flags);
    RServerSocket(const char* address, UInt16 port, int type, UInt8 flags);
    ~RServerSocket();
    int listen(int backlog) const;
    RSocket accept() const;
};

class RURI : public ktbase::object_refcount {
public:
    RURI(const CString& uri);
    ~RURI();

    int scheme;
    CString user;
    CString password;
    CString host;
    UInt16 port;
    CString path;
    CString uri;
};

}  // namespace KT
