#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// In which form a file holds something, by what it begins with.
enum class FileForm {
  text,        ///< HTML, or anything else
  json,        ///< a JSON text
  compressed,  ///< what Firefox compresses
  database,    ///< an SQLite database
};
FileForm formOf(std::string_view bytes);

/// Says what kind of file people mistook for one with bookmarks, such as a ZIP archive, as a sentence about
/// `name`; nothing for a file that may be one.
std::optional<std::string> foreignKind(std::string_view bytes, const std::string& name);

}  // namespace corvane::loomerctl
