#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// Text out of another character set.
struct DecodedText {
  std::string text;                  ///< UTF-8 (RFC 3629), up to the fault
  std::optional<std::size_t> fault;  ///< where the bytes are no character of the set; none where all are
};

/// The bytes of a text in `characterSet` ("UTF-8", or another name that iconv(3) knows) as UTF-8. Surrogates
/// that stand alone, in UTF-8 and UTF-16, become U+FFFD: programs leave them where they cut a text in the
/// middle of a character. A byte order mark is a character like any other.
///
/// Nothing when the system has no converter for the set. Raises PlatformException when the converter cannot
/// be made for another cause.
std::optional<DecodedText> decodeText(std::string_view bytes, const std::string& characterSet);

}  // namespace corvane
