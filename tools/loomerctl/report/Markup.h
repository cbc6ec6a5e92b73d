#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomerctl {

/// Takes a page piece by piece.
using PageSink = std::function<void(std::string_view)>;

/// The text as a page shows it: `printable`, with whatever has a meaning in HTML escaped. For between tags
/// and for attributes in double quotes.
std::string asHtml(std::string_view text);
/// The same, cut after `most` characters, with an ellipsis in the place of the rest.
std::string asShortHtml(std::string_view text, std::size_t most);

/// A sentence as a page shows it, what stands in it between backquotes as code.
std::string sentenceHtml(std::string_view sentence);

/// "2026-11-21 11:49", in the local zone.
std::string minuteText(Date date);
/// A <time> element with that.
std::string timeHtml(Date date);

/// Whether a page may link to the address: over http and https alone, since in any other a browser may find
/// something to run.
bool isLinked(std::string_view address);
/// The address for an `href` in double quotes. What a page would not show as it is goes percent-encoded, as
/// browsers send it.
std::string linkHtml(std::string_view address);
/// A bookmark's title, a link where `isLinked`, else with the address as text behind it. An address stands in
/// the place of a missing title.
std::string bookmarkHtml(const loomer::Content& bookmark);

}  // namespace corvane::loomerctl
