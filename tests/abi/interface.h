// The binary interface of libkt and libktcore, declared anew from the class
// descriptions alone, as an executable built against the original interface
// sees it. It deliberately does not include the library's headers: the ABI
// client (abi_client.cpp) compiled against it finds every place where the
// library's layout, slot order or exported names drift from the original.
//
// Only what the interface fixes is declared: fields in order, virtual
// operations in slot order, and every exported function with its exact
// const-ness and parameter types. Constructors that the interface leaves
// inline (those of CData and of the R value forms) are written here as the
// original callers compiled them.
#pragma once

#include <netinet/in.h>

#include <cstdarg>
#include <map>
#include <string>

namespace ktbase {
namespace e {

// libktcore's exception base: three words after the table pointer.
class base {
public:
    base(const char* file, unsigned line, const char* extra);
    base(const base& other);
    virtual ~base();
    virtual const char* what() const;
    virtual const char* file() const;
    virtual unsigned line() const;

private:
    const char* file_;
    unsigned line_;
    const char* extra_;
};

}  // namespace e

// libktcore's reference count: an inline virtual destructor and a count.
class object_refcount {
public:
    virtual ~object_refcount() {}
    void retain() const;

private:
    mutable int count_ = 0;
};

typedef std::map<std::string, std::string> kvmap;
typedef std::string (*url_getter)(const std::string&, bool);
typedef std::string& (*url_setter)(std::string&, const std::string&, bool);
typedef std::string (*url_maker)(const std::string&, const std::string&, bool);

std::string url_encode(const std::string&, bool);
std::string url_decode(const std::string&);
std::string url_scheme(const std::string&, bool);
std::string url_authority(const std::string&, bool);
std::string url_path(const std::string&, bool);
std::string url_params(const std::string&, bool);
std::string url_query(const std::string&, bool);
std::string url_fragment(const std::string&, bool);
std::string url_domain(const std::string&, bool);
std::string url_user(const std::string&, bool);
std::string url_password(const std::string&, bool);
std::string url_host(const std::string&, bool);
std::string url_service(const std::string&, bool);
void url_query_kvmap(kvmap&, const std::string&, bool, char, char);
void url_params_kvmap(kvmap&, const std::string&, bool, char, char);
void url_fragment_kvmap(kvmap&, const std::string&, bool, char, char);
kvmap url_query_kvmap(const std::string&, bool, char, char);
kvmap url_params_kvmap(const std::string&, bool, char, char);
kvmap url_fragment_kvmap(const std::string&, bool, char, char);
#define KT_ABI_SETTERS(part)                                                  \
    std::string& url_set_##part(std::string&, const std::string&, bool);       \
    std::string url_new_##part(const std::string&, const std::string&, bool);
KT_ABI_SETTERS(scheme)
KT_ABI_SETTERS(authority)
KT_ABI_SETTERS(path)
KT_ABI_SETTERS(params)
KT_ABI_SETTERS(query)
KT_ABI_SETTERS(fragment)
KT_ABI_SETTERS(host)
KT_ABI_SETTERS(service)
KT_ABI_SETTERS(domain)
KT_ABI_SETTERS(user)
KT_ABI_SETTERS(password)
#undef KT_ABI_SETTERS
#define KT_ABI_MAP_SETTERS(part)                                                          \
    std::string& url_set_##part(std::string&, const kvmap&, bool, char, char);             \
    std::string url_new_##part(const std::string&, const kvmap&, bool, char, char);
KT_ABI_MAP_SETTERS(params)
KT_ABI_MAP_SETTERS(query)
KT_ABI_MAP_SETTERS(fragment)
#undef KT_ABI_MAP_SETTERS

}  // namespace ktbase

extern "C" const char* __rev__lib_kt__kt__;

namespace KT {

typedef int SIntLeast32;
typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef int Result;
enum ConstructionFlags { CopyData = 1, FreeSource = 2, NoOwnership = 4 };

class CBuffer {
public:
    CBuffer(int size);
    virtual int correction() const;
    virtual void encodeHex(const CBuffer& source, int adjustment);
    virtual void decodeHex(const CBuffer& source, int adjustment);
    virtual void encodeBase64(const CBuffer& source, int adjustment);
    virtual void decodeBase64(const CBuffer& source, int adjustment);
    virtual ~CBuffer();
    virtual void clear();
    virtual void zero();
    virtual void resize(int needed);
    void init(int size, UInt8* bytes, ConstructionFlags flags);
    void set(int size, UInt8* bytes, ConstructionFlags flags);
    void free();
    void append(int count, const UInt8* bytes);
    bool operator==(const CBuffer& other) const;
    bool operator!=(const CBuffer& other) const;
    bool operator<(const CBuffer& other) const;
    bool operator>(const CBuffer& other) const;

    UInt8* data;
    int capacity;
    int length;
    int owner;
};

class CData : public CBuffer {
public:
    CData(int size) : CBuffer(size), cursor(data) {}
    ~CData();
    void clear();
    void zero();
    void resize(int needed);
    virtual void reset();
    void put(const UInt8* bytes, int count);
    void get(UInt8* out, int count);
    template <class T>
    void put(T value);
    template <class T>
    void get(T& value);

    UInt8* cursor;
};
template <>
void CData::put<int>(int value);
template <>
void CData::get<int>(int& value);
CData& operator<<(CData& stream, const CBuffer& buffer);
CData& operator>>(CData& stream, CBuffer& buffer);

class CString : public CBuffer {
public:
    CString(const char* text);
    CString(const CString& other);
    CString& operator=(const CString& other);
    ~CString();
    static CString createWithFormat(const char* format, ...);
    void set(const char* format, ...);
    void init(const char* format, va_list arguments);
    int correction() const;
    void encodeHex(const CBuffer& source, int adjustment);
    void decodeHex(const CBuffer& source, int adjustment);
    void encodeBase64(const CBuffer& source, int adjustment);
    void decodeBase64(const CBuffer& source, int adjustment);
    bool operator==(const char* text) const;
    bool operator!=(const char* text) const;
    int find(char c, int start) const;
    int find(const char* text, int start) const;
    int find(const CString& text, int start) const;
    int reverseFind(char c, int start) const;
    int reverseFind(const char* text, int start) const;
    int reverseFind(const CString& text, int start) const;
    CString getSubString(int start, int count) const;
    CString getLowerCaseString() const;
    CString getUpperCaseString() const;
};

class RBuffer : public CBuffer, public ktbase::object_refcount {
public:
    RBuffer(int size) : CBuffer(size) {}
    ~RBuffer();
};

class RData : public CData, public ktbase::object_refcount {
public:
    RData(int size) : CData(size) {}
    ~RData();
};

class RString : public CString, public ktbase::object_refcount {
public:
    RString(const char* text) : CString(text) {}
    static RString createWithFormat(const char* format, ...);
    ~RString();
};

class CException : public ktbase::e::base {
public:
    CException(const char* type, int line, const char* file, const char* function,
               const CString& message);
    CException(const CException& other);
    ~CException();
    const char* what() const;
    virtual const char* msg() const;
    void print() const;
    CString getString() const;

    const char* type;
    const char* function;
    CString message;
};

class CNetworkException : public CException {
public:
    CNetworkException(const char* type, int line, const char* file, const char* function,
                      const CString& message);
    ~CNetworkException();
};

class CInterruptedException : public CException {
public:
    CInterruptedException(const char* type, int line, const char* file, const char* function,
                          const CString& message);
    ~CInterruptedException();
};

class CExceptionHandlerP {
public:
    virtual ~CExceptionHandlerP() = 0;
    virtual void handle(const CException& exception) = 0;
};

class Endian {
public:
    static void swap16(short* values, unsigned int count);
    static void swap16(unsigned short* values, unsigned int count);
    static void swap32(int* values, unsigned int count);
    static void swap32(unsigned int* values, unsigned int count);
};

class RSocket : public ktbase::object_refcount {
public:
    RSocket();
    RSocket(int fd, int type, sockaddr_in* remote, sockaddr_in* local, UInt8 flags);
    RSocket(sockaddr_in* remote, int type, sockaddr_in* local, UInt8 flags);
    RSocket(const char* host, UInt16 port, int type, UInt8 flags);
    RSocket(const RSocket& other);
    RSocket& operator=(const RSocket& other);
    ~RSocket();
    int connect(sockaddr_in* address);
    Result bind(sockaddr_in* address);
    int close();
    void reset();
    int shutdown();
    int read(char* buffer, int length) const;
    int read2(char* buffer, int length) const;
    int write(const char* buffer, int length) const;
    int send(const char* buffer, int length, int flags) const;
    int receive(char* buffer, int length, int flags) const;
    int setOption(int name, const void* value, int length);
    int getOption(int name, void* value, unsigned int* length) const;
    const char* getRemoteAddress() const;
    unsigned int getRemoteAddressUInt32() const;
    UInt16 getRemotePort() const;
    const char* getLocalAddress() const;
    unsigned int getLocalAddressUInt32() const;
    bool isConnected();
    static int isRSocket(int fd);

    int descriptor;
    sockaddr_in localAddress;
    sockaddr_in remoteAddress;
    UInt8 flags;
    int socketType;
};

class RServerSocket : public RSocket {
public:
    RServerSocket(sockaddr_in* local, int type, UInt8 flags);
    RServerSocket(UInt16 port, int type, UInt8 flags);
    RServerSocket(const char* address, UInt16 port, int type, UInt8 flags);
    ~RServerSocket();
    Result listen(int backlog) const;
    RSocket accept() const;
};

// The one-pointer handle getSocket() returns; not trivially copyable, so it
// comes back through memory the caller provides.
struct SocketHandle {
    RSocket* socket;
    ~SocketHandle() { delete static_cast<ktbase::object_refcount*>(socket); }
};

class RURI : public ktbase::object_refcount {
public:
    RURI();
    RURI(const CString& uri);
    RURI(const RURI& other);
    RURI& operator=(const RURI& other);
    ~RURI();
    int parseURI(const CString& uri);
    SocketHandle getSocket() const;

    int scheme;
    CString user;
    CString password;
    CString host;
    UInt16 port;
    CString path;
    CString uri;
};

}  // namespace KT
