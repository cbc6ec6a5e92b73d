#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// Reads what a user would type into an address field.
///
/// White space around the text is dropped. Accepted are "scheme://…", opaque forms of any scheme
/// ("javascript:", "data:", "mailto:", "about:", …), an absolute path (which becomes a file URL), and a bare
/// host with optional port, path and query (which gains "http://"). What stands before a colon is a scheme,
/// also where it has dots ("com.example.app:open"), unless it is "localhost" or has a dot and a port follows:
/// "localhost:8080" and "example.com:80/x" are hosts. A non-ASCII host goes through IDNA 2008 (RFC 5891),
/// other non-ASCII text is percent-escaped as UTF-8. Text that needs no repair comes back as it is, bytes
/// shared.
///
/// Answers nothing for raw white space or control characters inside, an empty host, a bad port, a bad IPv6
/// literal, or anything that is no URL by the grammar of RFC 3986 after these repairs.
std::optional<Url> urlWithUserTypedString(const String& text);

/// The text with every byte that may not stand in a URL (RFC 3986) and every byte of a non-ASCII character
/// written as "%XX": the text as it is, white space at its ends and a non-ASCII host included. Escapes that
/// are there already and the delimiters of a URL stay.
std::string percentEscaped(std::string_view text);

}  // namespace corvane
