#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// Text for between tags or into a quoted attribute: what has a meaning in HTML is escaped, and so is white
/// space that a reader would drop. Bytes that are no UTF-8 become U+FFFD.
std::string htmlEscaped(std::string_view text);

/// What a piece of HTML text says, as UTF-8: runs of white space are one blank, none at the ends; then
/// character references are resolved. References need their semicolon (addresses are full of "&copy=2");
/// those that mean nothing stay as they are.
std::string htmlTitle(std::string_view text);

/// The same for an attribute's value: white space stays, except line ends and tabs, and at the ends.
std::string htmlAttribute(std::string_view text);

/// Bytes of the encoding that browsers mean by ISO-8859-1, which is windows-1252 (WHATWG Encoding), as UTF-8.
std::string utf8FromLatin1(std::string_view bytes);

}  // namespace corvane::loomerctl
