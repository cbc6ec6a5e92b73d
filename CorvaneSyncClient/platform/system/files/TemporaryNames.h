#pragma once

#include <string>

namespace corvane {

// Names that stand beside a target for a moment, while it is replaced or taken away. They say whose they
// are: what a killed process leaves behind is removed by the next one that needs such a name for the same
// target.

/// The directory that holds `path`, and the last component.
struct Place {
  std::string directory;
  std::string name;

  explicit Place(const std::string& path);
};

/// A path in the target's directory that this process has not named before. A killed process of the same id
/// may have left something there: the caller creates it without replacing, and asks again where it fails.
std::string nextTemporaryPath(const Place& target);

/// How often to ask for a temporary path before giving up.
inline constexpr int kTemporaryNameTries = 1000;

/// Removes what stands under temporary names for the target whose makers are dead. Failures are not reported:
/// what stays now goes the next time.
void removeLeftovers(const Place& target);

}  // namespace corvane
