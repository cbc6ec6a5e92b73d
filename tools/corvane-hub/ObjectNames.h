#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane::hubserver {

/// Whether an account or a computer may be called so: 1 to 40 of a-z, 0-9 and "-", the first of them no "-".
bool isPrincipalName(std::string_view name);

/// Where an object lies below its account's "objects": one directory for each folder, however deep, so that
/// there is one level.
struct ObjectPath {
  std::string directory;  ///< the folder with "." for each "/", which no name holds
  std::string file;

  std::string relative() const { return directory + '/' + file; }
};

/// The path of "FOLDER/NAME" or "FOLDER/…/NAME": segments of 1 to 100 of a-z, 0-9 and "-", 250 bytes
/// together. Absent for any other name.
std::optional<ObjectPath> objectPathOf(std::string_view name);

/// The directory of a folder, a name of one segment or more; absent for any other name.
std::optional<std::string> folderDirectoryOf(std::string_view folder);

/// The folder that lies in `directory`.
std::string folderOf(std::string_view directory);

}  // namespace corvane::hubserver
