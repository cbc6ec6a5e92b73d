#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::loomer {

/// Of a UUID, as it is stored, in bytes.
inline constexpr std::size_t kUuidSize = 16;

/// The bytes of a UUID's text as they are stored; zeros for an absent one, and for what is none.
std::string storedUuid(const String& uuid);
/// The text of a UUID of which these are the bytes; absent for zeros.
String uuidFrom(std::string_view stored);

}  // namespace corvane::loomer
