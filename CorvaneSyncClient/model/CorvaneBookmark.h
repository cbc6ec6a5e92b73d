#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Format.h"
#include "CorvaneSyncClient/platform/foundation/Value.h"

namespace corvane {

class BookmarkMap;
class CorvaneBookmarkFolder;
class CorvaneBookmarkRecord;

/// The uid of the root folder: one shared instance. Reading, writing and placement know the root by this very instance;
/// the sync record form compares by value.
extern const String kRootUid;

/// Given to every node built from an engine record until the record's own position is read: placed by title.
inline constexpr std::int32_t kUnknownPosition = -1000;
/// Marks the bookmarks bar and the bookmarks menu directly under the root.
inline constexpr std::int32_t kSpecialPosition = -2;

