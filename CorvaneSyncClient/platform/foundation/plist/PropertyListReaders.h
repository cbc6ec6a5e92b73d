#pragma once

#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

// The flavours, one reader each; `readPropertyList` chooses among them. All raise PropertyListException.

namespace corvane {

/// `bytes` starts with "bplist".
Value readBinaryPropertyList(std::string_view bytes);
/// Takes any encoding that expat knows: UTF-8, UTF-16, ISO-8859-1 and US-ASCII.
Value readXmlPropertyList(std::string_view bytes);
/// UTF-8, with or without a byte order mark.
Value readOldTextPropertyList(std::string_view bytes);

/// The cause, in all flavours.
inline Message nestsTooDeep() {
  return Message("containers nest more than %1 deep", std::to_string(kPropertyListMaximumDepth));
}

}  // namespace corvane
