#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// A new random UUID (RFC 4122, version 4) in its string form: 36 characters, upper-case hexadecimal and
/// hyphens.
std::string newUuidString();

using UuidBytes = std::array<char, 16>;

/// The bytes of a UUID in its string form, in either case; nothing for any other text.
std::optional<UuidBytes> uuidBytes(std::string_view text);
/// The string form of 16 bytes, in upper case.
std::string uuidString(const UuidBytes& bytes);

}  // namespace corvane
