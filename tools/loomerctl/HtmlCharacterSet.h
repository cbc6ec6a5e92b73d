#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// The HTML as UTF-8, without a byte order mark. Its character set is given by the byte order mark, else by
/// the <META> at its head; without either it is UTF-8. Names mean what browsers mean by them (WHATWG Encoding
/// Standard): "ISO-8859-1" is windows-1252, and "GB2312" is GB18030.
///
/// Raises Refused, with `name` and the place, for bytes that are not text in that set, for a declared set
/// that is not known, and for one that this system cannot convert.
std::string htmlAsUtf8(std::string_view bytes, const std::string& name);

}  // namespace corvane::loomerctl
