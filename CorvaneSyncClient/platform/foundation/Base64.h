#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// The bytes as base64 (RFC 4648, section 4), with padding and without line breaks.
std::string base64Text(std::string_view bytes);

/// Reads base64 with ASCII white space anywhere; the padding may be missing. Answers nothing for any other
/// text.
std::optional<std::string> bytesFromBase64(std::string_view text);

}  // namespace corvane
