#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

/// Which of the systemd user units are switched on. They sync by themselves: a unit for each watched
/// bookmarks file when that changes, and a timer every quarter of an hour.
struct EnabledUnits {
  std::vector<String> clients;  ///< those whose files are watched, in the order of the files' names
  bool timer = false;
};

/// What is switched on, by the links in the user's and the administrator's configuration. Whether a manager
/// runs that follows them is another question.
EnabledUnits enabledUnits();

/// Why there is no systemd manager of this user's to talk to, in its own words; empty where there is one.
std::string problemWithUserManager();

/// Switches the units on, for these clients besides those that there are, and has all be synced at once. The
/// units are those of this program's installation, which need not lie where the manager looks. Raises
/// Refused, also where a client has no file that a unit can watch.
void enableUnits(const std::vector<String>& clients);

/// Switches the units of these clients off, and the timer with the last of them; without any, all. Nothing
/// stands in the user's configuration then that `enableUnits` has put there. Needs no manager. Raises
/// Refused.
void disableUnits(const std::vector<String>& clients);

/// Lets the service write to the directory that keeps the account, if one does: to be called when the account
/// has changed. Does nothing where no unit is switched on. Raises Refused.
void adaptUnitsToAccount();

}  // namespace corvane::loomerctl
