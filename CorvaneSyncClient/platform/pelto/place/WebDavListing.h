#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::pelto {

/// One member of a collection, or the collection itself.
struct WebDavEntry {
  std::string name;  ///< the last part of its path, percent-decoded; "" for the collection itself
  bool isCollection = false;
  std::uint64_t bytes = 0;
  std::optional<Date> date;
};

/// Reads the answer to a PROPFIND of depth 1 (RFC 4918), in the order in which it comes. A proxy may have
/// mapped the paths in it, so that they need not begin as the one that was asked about. Raises XmlException.
std::vector<WebDavEntry> readWebDavListing(std::string_view bytes);

}  // namespace corvane::pelto
