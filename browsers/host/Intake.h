#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "browsers/host/BrowserTree.h"
#include "browsers/host/HeldTree.h"

namespace corvane::browsers {

/// Which changes the browser may have lost, though it had shown them: those of a later generation than the
/// profile is of, or after `since`.
struct LostTime {
  std::int64_t generation = std::numeric_limits<std::int64_t>::max();
  double since = std::numeric_limits<double>::infinity();  ///< in seconds since 2001
  bool isFromElsewhere = false;  ///< nobody knows what the profile is of: it may lack anything

  bool covers(const Stamp& changed) const { return changed.generation > generation || changed.time >= since; }
};

/// What the user did in the browser since it was last looked at.
struct Intake {
  std::size_t edits =
      0;              ///< nodes that were added, changed, moved or deleted, and folders with another order
  bool lost = false;  ///< the browser has lost something that it is to be given again
};

/// Brings what the client holds in line with what the browser shows.
///
/// A node of the browser is the one that was shown under its id, if kind and date of addition say so too; ids
/// may have been renewed or given to others, so that the rest goes by folder, title and address, and then by
/// title and address anywhere, and a bookmark then in its folder by one of them. What is left is new, and
/// what is not found again was deleted. A value that the browser still shows in the form that it gave to ours
/// is unchanged.
///
/// What differs and `lost` covers was not done by the user: it stays as the client has it, to be done again.
/// A folder that the user deleted lives on with what was to be put into it and had not been.
///
/// The user may have put a folder into one that was still to be moved into it: what was to be moved stays
/// then.
///
/// Pure but for new local ids; `now` is noted with what has changed. Raises PlatformException, with `held` in
/// no state to be used, where something held had no place in the tree.
Intake takeIn(HeldTree& held, const BrowserTree& browser, const LostTime& lost, const Stamp& now);

}  // namespace corvane::browsers
