#include "kt/KTException.h"

#include <cstdio>
#include <cstdlib>

#include "KTInternal.h"

namespace KT {

CException::CException(const char* type, int line, const char* file, const char* function,
                       const CString& message)
    : ktbase::e::base(file, static_cast<unsigned>(line), nullptr),
      type(type),
      function(function) {
    this->message.init(message.length, message.data, CopyData);
}

CException::CException(const CException& other)
    : ktbase::e::base(other), type(other.type), function(other.function) {
    message.init(other.message.length, other.message.data, CopyData);
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

namespace detail {

namespace {
// Per thread, so that a test arming a fault is not disturbed by other threads.
// Every allocation touches them: the initial-exec model reaches them at a fixed
// offset from the thread pointer instead of through a call to the dynamic
// linker, which costs a short formatted string a few percent.
[[gnu::tls_model("initial-exec")]] thread_local long allocationsToFailure = 0;
[[gnu::tls_model("initial-exec")]] thread_local long allocationsCounted = 0;

bool faultArmed() {
    ++allocationsCounted;
    return allocationsToFailure > 0 && --allocationsToFailure == 0;
}
}  // namespace

void* allocate(std::size_t size) { return faultArmed() ? nullptr : std::malloc(size); }

void* reallocate(void* block, std::size_t size) {
    return faultArmed() ? nullptr : std::realloc(block, size);
}

long failAllocation(long n) {
    allocationsToFailure = n;
    long counted = allocationsCounted;
    allocationsCounted = 0;
    return counted;
}

}  // namespace detail
}  // namespace KT
