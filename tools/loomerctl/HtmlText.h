#pragma once

#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane::loomerctl {

/// A title for between tags. Nothing but what has a meaning in HTML is escaped: browsers know no other
/// references in titles and would show them as they stand. White space stays as it is, but a line end, which
/// some of them would take for the end of the bookmark, becomes a blank. Bytes that are not UTF-8 become
/// U+FFFD.
std::string htmlEscapedTitle(std::string_view text);

/// A value for a quoted attribute. White space that a reader would drop is escaped too.
std::string htmlEscapedAttribute(std::string_view text);

/// What the HTML between a title's tags says, as UTF-8. White space that breaks the line is layout: one
/// blank, and nothing at the ends; any other stays, so that titles come back as `htmlEscapedTitle` wrote
/// them. Then character references are resolved. They need their semicolon (addresses are full of "&copy=2");
/// unknown ones stay as they are.
std::string htmlTitle(std::string_view html);

/// The same for an attribute's value: white space stays, except line ends and tabs, and at the ends.
std::string htmlAttribute(std::string_view html);

}  // namespace corvane::loomerctl
