#pragma once

#include <string>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace corvane {

/// Why these bytes are no property list; "no exception" where they are one.
inline std::string reasonOf(const std::string& bytes) {
  try {
    readPropertyList(bytes);
  } catch (const PropertyListException& exception) {
    return exception.reason();
  }
  return "no exception";
}

}  // namespace corvane
