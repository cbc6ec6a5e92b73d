#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

// Numbers, dates and data as the XML flavour of property lists writes them.

namespace corvane {

/// Reads an integer of the XML flavour: decimal digits with an optional sign, single underscores between
/// them, or hexadecimal ones after "0x"; white space around is dropped. Holds what 64 bits hold, signed or
/// unsigned; answers nothing for other text and larger numbers.
std::optional<Value> integerFromText(std::string_view text);

/// Reads a real of the XML flavour, in C's notation without a locale, "inf" and "nan" included; white space
/// around is dropped. Answers nothing for other text and for numbers that a double cannot hold.
std::optional<double> realFromText(std::string_view text);

/// Reads a date of the XML flavour, "2026-11-21T10:49:00Z" (ISO 8601, in UTC). The time, its seconds, or its
/// minutes and seconds may be left out. Answers nothing for other text and for days and times that no
/// calendar knows; a leap second counts as the first second of the next minute.
std::optional<Date> dateFromXmlText(std::string_view text);

/// The date as "2026-11-21T10:49:00Z", fractions dropped toward the past. Answers nothing outside the years 1
/// to 9999.
std::optional<std::string> xmlTextForDate(const Date& date);

/// The bytes as base64 (RFC 4648, section 4), with padding and without line breaks.
std::string base64Text(std::string_view bytes);

/// Reads base64 with ASCII white space anywhere; the padding may be missing. Answers nothing for any other
/// text.
std::optional<std::string> bytesFromBase64(std::string_view text);

}  // namespace corvane
