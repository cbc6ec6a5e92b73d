#pragma once

#include <string>

namespace corvane {

/// A new random UUID (RFC 4122, version 4) in its string form: 36 characters, upper-case hexadecimal and
/// hyphens.
std::string newUuidString();

}  // namespace corvane
