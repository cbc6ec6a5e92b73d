#pragma once

#include <optional>
#include <string>
#include <string_view>

// The names that the systemd units of a client have; see systemd.unit(5), "String Escaping for Inclusion in
// Unit Names".

namespace corvane::loomerctl {

/// The unit that watches a bookmarks file, a path below the directory of those:
/// "corvane-sync@My\x20own.path". Nothing where that is longer than a unit's name may be.
std::optional<std::string> pathUnitFor(std::string_view file);

/// The file that a unit watches; nothing for a unit of another kind.
std::optional<std::string> fileOfPathUnit(std::string_view unit);

}  // namespace corvane::loomerctl
