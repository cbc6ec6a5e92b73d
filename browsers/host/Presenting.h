#pragma once

#include <cstddef>
#include <functional>

#include "browsers/host/BrowserTree.h"
#include "browsers/host/ExtensionRequests.h"
#include "browsers/host/HeldTree.h"

namespace corvane::browsers {

/// What came of bringing the browser in line with what the client holds.
struct Presented {
  bool isFinished = false;   ///< everything was tried; not so where it was stopped
  bool isDifferent = false;  ///< the user was faster somewhere: the tree is to be read again
};

/// Called before each request with how many are done and how many there are, as far as that is known. False
/// stops: what is left is done the next time.
using PresentingProgress = std::function<bool(std::size_t done, std::size_t of)>;

/// Has the browser show what is held: makes, moves and changes folders before what is in them, and removes
/// last, from the leaves up. `browser` is the tree as it was read before, and follows. What the browser makes
/// of each value is noted in `held`, with `now`; what it refuses is not tried again until it changes. Nothing
/// is overwritten that the user has changed since the tree was read.
///
/// Raises what the requests raise; `held` then knows what has been done until then, but for the last one.
Presented present(HeldTree& held, BrowserTree& browser, ExtensionRequests& requests, const Stamp& now,
                  const PresentingProgress& progress);

}  // namespace corvane::browsers
