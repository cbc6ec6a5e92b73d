#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomerctl {

/// The sessions over time as inline SVG: a bar for each day, or for as many days as make a bar on a page of
/// `kMostBars`; how many sessions, and how many records they changed. Ends today. A session with a date in
/// the future counts as today's. Nothing for no sessions.
std::string sessionChartHtml(const std::vector<loomer::SessionEntry>& sessions, Date now);

inline constexpr int kMostBars = 92;

}  // namespace corvane::loomerctl
