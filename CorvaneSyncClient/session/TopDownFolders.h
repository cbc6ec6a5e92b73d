#pragma once

#include <vector>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/foundation/values/OrderedMap.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// Sync records by uid, in the order in which the uids came.
using SyncRecords = OrderedMap<Dictionary>;

/// The first value of a folder record's parent relationship; absent when it names none.
String folderParentInRecord(const Dictionary& record);
/// Whether a folder record that names no parent is the root's: its name is "/".
bool isNamedAsRoot(const Dictionary& record);

/// Added folders in an order in which each can be created.
struct TopDownFolders {
  /// Uids, every one after its parent. Missing are those whose parent never arrives and those in a cycle.
  std::vector<String> keys;
  /// Uids of records that name no parent and are not the root's, in the order in which they came.
  std::vector<String> parentless;
};

/// Orders `folders` for creation in `map`.
///
/// The order is that of passes over the folders in the order in which they came, each pass taking every
/// folder whose parent the map holds or a pass has taken already (this one included), until a pass takes
/// none. A folder that came after its parent is taken in its parent's pass, one that came before it in the
/// pass after; so every folder's pass is known once its parent's is, and sorting by pass and arrival gives
/// the order in n log n, however the folders came.
TopDownFolders topDownFolders(const SyncRecords& folders, const BookmarkMap& map);

}  // namespace corvane
