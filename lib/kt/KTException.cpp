#include "kt/KTException.h"

#include <cstdio>

namespace KT {

namespace {
// The exception's own copy of a message, terminated whatever the source's
// length counted (a case copy leaves its terminator out), the NUL counted.
void copyMessage(CString& copy, const CString& message) {
    copy.init(message.length, message.data, CopyData);
    copy.addTerminator();
}
}  // namespace

CException::CException(const char* type, int line, const char* file, const char* function,
                       const CString& message)
    : ktbase::e::base(file, static_cast<unsigned>(line), nullptr),
      type(type),
      function(function) {
    copyMessage(this->message, message);
}

CException::CException(const CException& other)
    : ktbase::e::base(other), type(other.type), function(other.function) {
    copyMessage(message, other.message);
}

CException::~CException() = default;

const char* CException::what() const noexcept { return type; }

const char* CException::msg() const { return message.c_str(); }

void CException::print() const {
    std::fprintf(stderr, "exception of type '%s' thrown [%s:%d, %s]:\n -> %s\n", type, file(),
                 static_cast<int>(line()), function, msg());
    std::fflush(stderr);
}

CString CException::getString() const {
    char report[1280];
    // Bounded: an over-long message is cut rather than overrunning the area.
    std::snprintf(report, sizeof report, " Exception of type '%s' thrown [%s:%d, %s]: %s", type,
                  file(), static_cast<int>(line()), function, msg());
    return CString(report);
}

CNetworkException::CNetworkException(const char* type, int line, const char* file,
                                     const char* function, const CString& message)
    : CException(type, line, file, function, message) {}
CNetworkException::~CNetworkException() = default;

CInterruptedException::CInterruptedException(const char* type, int line, const char* file,
                                             const char* function, const CString& message)
    : CException(type, line, file, function, message) {}
CInterruptedException::~CInterruptedException() = default;

CExceptionHandlerP::~CExceptionHandlerP() = default;

}  // namespace KT
