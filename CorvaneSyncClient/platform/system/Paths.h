#pragma once

#include <string>
#include <string_view>

namespace corvane {

class FileSystem;

/// `path` with a last component added: exactly one slash between them.
std::string joinedPath(std::string_view directory, std::string_view name);

/// `path` without slashes at its end; "/" stays.
std::string withoutTrailingSlashes(std::string path);

/// `path` with ".", "..", doubled and trailing slashes, and a leading "~" (the given home) resolved, by text
/// alone.
std::string standardizedPath(std::string_view path, std::string_view homeDirectory);

/// `path` resolved one level through a symbolic link; a relative link against the directory that holds it;
/// `path` itself when it is no link.
std::string resolvedOneLevel(FileSystem& files, const std::string& path);

}  // namespace corvane
