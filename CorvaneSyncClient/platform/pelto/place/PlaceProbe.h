#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto {

/// What is known of a place that was found fit.
struct PlaceFindings {
  std::string software;              ///< as `Place::software`
  int rounds = 0;                    ///< in which eight writers raced for a name, and one alone won each
  std::vector<std::string> caveats;  ///< what it cannot promise, in sentences for the user
};

/// How often eight writers race for a name.
inline constexpr int kProbeRounds = 50;

/// Seconds that the writers are to keep back the last byte of what they send. A server that looks first and
/// writes afterwards waits for it, and all of them have begun meanwhile.
inline constexpr double kProbePause = 0.06;

/// Tries a place before an account is entrusted to it, whatever it calls itself: writes, reads, lists and
/// removes, and has eight writers with connections of their own race for names. Whether two writers can win,
/// no requests one after the other would show. What it makes lies in the folder "probe", and is removed
/// again.
///
/// `make` makes a way to the place with `kProbePause`; it is called for each writer, and the ways are used by
/// as many threads.
///
/// Raises PlaceException for a place that is not fit, with the reason, and like Place.
PlaceFindings probePlace(const std::function<std::unique_ptr<Place>()>& make, int rounds = kProbeRounds);

}  // namespace corvane::pelto
