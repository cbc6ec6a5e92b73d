#pragma once

#include <string>
#include <string_view>

namespace corvane::pelto {

/// A name that nobody else comes upon and that is no object's: "tmp." and 32 hexadecimal digits. Writers give
/// it to what they have not finished.
std::string newTemporaryName();
/// Whether such a writer made up the name.
bool isTemporaryName(std::string_view name);

/// How old, in seconds, a writer's unfinished work is when whoever comes upon it removes it. No exchange
/// takes as long.
inline constexpr double kLeftoverAge = 24 * 60 * 60;

}  // namespace corvane::pelto
