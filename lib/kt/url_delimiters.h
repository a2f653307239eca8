// Private: the bytes that split a URL text into its components, each named by
// what it marks. A byte may mark several things, one per place in the URL
// ("@" ends the userinfo, ":" ends the scheme but starts the service).
#pragma once

namespace ktbase {
namespace url_detail {

/// Starts the fragment; nothing after the first one belongs to another part.
constexpr char kFragmentStart = '#';
/// Starts the query.
constexpr char kQueryStart = '?';
/// Starts the params after the path; within the userinfo, ends the domain.
constexpr char kParamsStart = ';';
constexpr char kDomainEnd = ';';
/// Ends the scheme; within the authority, starts the service after the host
/// and the password after the user.
constexpr char kSchemeEnd = ':';
constexpr char kServiceStart = ':';
constexpr char kPasswordStart = ':';
/// Two of them start the authority; one ends it and starts the path.
constexpr char kPathSeparator = '/';
/// Ends the userinfo.
constexpr char kUserinfoEnd = '@';

}  // namespace url_detail
}  // namespace ktbase
