#pragma once

#include <optional>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Value.h"

namespace corvane {

/// Reads an integer of the XML flavour: decimal digits with an optional sign, single underscores between
/// them, or hexadecimal ones after "0x"; white space around is dropped. Holds what 64 bits hold, signed or
/// unsigned; answers nothing for other text and larger numbers.
std::optional<Value> integerFromText(std::string_view text);

/// Reads a real of the XML flavour, in C's notation without a locale, "inf" and "nan" included; white space
/// around is dropped. Answers nothing for other text and for numbers that a double cannot hold.
std::optional<double> realFromText(std::string_view text);

}  // namespace corvane
