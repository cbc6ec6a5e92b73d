#pragma once

#include <string_view>

namespace corvane::loomerctl {

/// What a file is that people take for a bookmarks file in HTML, as in "an SQLite database"; null for a file
/// that may be one.
const char* foreignKind(std::string_view bytes);

}  // namespace corvane::loomerctl
