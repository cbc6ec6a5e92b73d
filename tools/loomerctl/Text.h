#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomerctl {

/// The text as a terminal may safely show it on one line: control characters become their pictures (U+2400
/// and on), and what is no character, or turns the direction of writing around, becomes U+FFFD.
std::string printable(std::string_view text);

/// The same in double quotes; "(none)" for the absent string.
std::string quoted(const String& text);
/// The same for text that cannot be absent; by its own type, or std::quoted would go before it.
inline std::string quoted(const std::string& text) { return quoted(String(text)); }

/// Columns that a terminal needs for printable text: wide East Asian characters and pictographs take two,
/// combining marks none.
std::size_t displayWidth(std::string_view text);

/// The text, or where it is wider than that its beginning and "…".
std::string cut(const std::string& text, std::size_t columns);

/// "512 bytes", "1.5 MB" (a thousand at each step).
std::string sizeText(std::uint64_t bytes);

/// The words of `text` in lines of at most so many columns, each with a line end. Between wide letters, such
/// as Japanese ones, lines end also without a space. A word that is longer has a line of its own.
std::string wrapped(std::string_view text, std::size_t columns = 80);

/// In the local zone: "2026-11-21 11:49:00 +0100".
std::string timeText(Date date);

}  // namespace corvane::loomerctl
