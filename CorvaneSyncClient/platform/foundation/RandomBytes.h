#pragma once

#include <span>

namespace corvane {

/// Fills `bytes` from the system's source of randomness, at most 256 of them. Raises PlatformException
/// "NSObjectNotAvailableException" where there is none.
void takeRandomBytes(std::span<char> bytes);

}  // namespace corvane
