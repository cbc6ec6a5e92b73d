#pragma once

#include <string_view>

namespace corvane::pelto {

/// Whether `part` may be a folder's name or the last part of an object's.
bool isPlaceNamePart(std::string_view part);
/// Whether `name` is one or more such parts, joined by "/".
bool isPlaceFolder(std::string_view name);
/// Whether `name` is two or more such parts, joined by "/".
bool isPlaceName(std::string_view name);

/// Raise NSInvalidArgumentException for a name of another form.
void requirePlaceFolder(std::string_view name);
void requirePlaceName(std::string_view name);

/// The folder that the object lies in.
std::string_view folderOf(std::string_view name);

}  // namespace corvane::pelto
