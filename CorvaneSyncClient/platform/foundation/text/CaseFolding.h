#pragma once

#include <string_view>

namespace corvane {

/// Compares two UTF-8 texts by Unicode code point after simple case folding, without a locale: negative when
/// `a` sorts before `b`, 0 when they differ in case alone, positive when it sorts after. Bytes that are no
/// UTF-8 compare as themselves, after every valid code point.
int compareCaseInsensitive(std::string_view a, std::string_view b);

}  // namespace corvane
