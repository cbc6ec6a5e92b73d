#pragma once

#include <string_view>

namespace corvane::loomerctl {

/// What kind of file people mistook for a bookmarks file in HTML, such as "an SQLite database"; null for a
/// file that may be one.
const char* foreignKind(std::string_view bytes);

}  // namespace corvane::loomerctl
