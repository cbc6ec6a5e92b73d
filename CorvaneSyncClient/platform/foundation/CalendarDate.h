#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Date.h"

namespace corvane {

/// Reads a date of the XML flavour, "2026-11-21T10:49:00Z" (ISO 8601, in UTC). The time, its seconds, or its
/// minutes and seconds may be left out. Answers nothing for other text and for days and times that no
/// calendar knows; a leap second counts as the first second of the next minute.
std::optional<Date> dateFromXmlText(std::string_view text);

/// The date as "2026-11-21T10:49:00Z", fractions dropped toward the past. Answers nothing outside the years 1
/// to 9999.
std::optional<std::string> xmlTextForDate(const Date& date);

}  // namespace corvane
