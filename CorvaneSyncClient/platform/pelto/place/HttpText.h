#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::pelto {

/// Whether the host of a URL is this computer itself, by its text.
bool isLoopbackHost(std::string_view host);

/// The bytes with all but RFC 3986's unreserved characters as "%" and two digits.
std::string percentEncoded(std::string_view bytes);
/// As `percentEncoded`, with slashes as they are.
std::string percentEncodedPath(std::string_view path);
/// The bytes that the text stands for; a "%" without two digits stands for itself.
std::string percentDecoded(std::string_view text);

/// The date in a header, such as "Sun, 22 Nov 2026 09:40:00 GMT" (RFC 9110); absent for other text.
std::optional<Date> dateFromHttp(const std::string& text);

/// What proves who asks by HTTP's Basic scheme (RFC 7617).
std::string basicAuthorization(std::string_view user, std::string_view password);
/// The one header "Authorization: SCHEME PROOF". The caller wipes it, like what `basicAuthorization` answers.
std::vector<std::string> authorizationHeader(std::string_view scheme, std::string_view proof);

/// The text's first line, printable characters alone, cut after 200 of them. For what a server says of an
/// error.
std::string firstLineOf(std::string_view text);

}  // namespace corvane::pelto
