#pragma once

#include <string>
#include <vector>

namespace corvane {

/// The systemd user unit that syncs the bookmarks files, and the one by which that is switched on.
inline constexpr const char* kSyncService = "corvane-sync.service";
inline constexpr const char* kSyncTimer = "corvane-sync.timer";

/// Where units are switched on by links: the user's directory, then the administrator's.
std::vector<std::string> unitDirectories();
/// Whether the timer is, in one of them. Whether a manager runs that follows the link is another question.
bool isSyncTimerOn();

/// Has the service run at once where the timer is switched on: what the bookmarks files get has changed. Does
/// not wait for the service. Where that fails, they get it with the timer.
void syncFilesSoon();

}  // namespace corvane
