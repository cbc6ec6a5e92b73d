#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::browsers {

/// What people call the profile that a browser of that kind, as `hello` names it, has open, by the paths of
/// the files that it has open: the folder's name, in Firefox without the characters that make it unlike any
/// other. Empty where there is none, or more than one.
std::string profileNameIn(std::string_view browser, const std::vector<std::string>& openFiles);

/// The files that the program which has started this one has open; none where the system does not tell.
std::vector<std::string> openFilesOfParent();

}  // namespace corvane::browsers
