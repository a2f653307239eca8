// Private to the socket sources: what the client and the server socket share
// beyond the public class.
#pragma once

namespace KT {
namespace detail {

/// The message a failed host-name lookup is reported with, for its error code
/// (the values of h_errno); null for NETDB_SUCCESS, which the host-name constructor lets pass.
const char* resolverMessage(int error);

/// Throws the CNetworkException of a failed RSocket::bind() for `error`.
[[noreturn]] void throwBindFailure(int error);

}  // namespace detail
}  // namespace KT
