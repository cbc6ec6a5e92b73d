#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"

namespace corvane::loomer {

/// What the client gave to a session.
struct TakenRecords {
  /// The client's whole tree as it is now; nothing where it is what the base says, or does not matter.
  std::optional<std::vector<ClientRecord>> tree;
  std::size_t count = 0;  ///< records that the client gave
  bool all = false;       ///< it gave all that it holds
};

/// Takes in all records of the schema's entities (`changedOnly`: the changed ones), asking until nothing more
/// comes. Of a record that comes twice the later answer stands. Raises SessionCancelled when the client
/// reports an error, or gives one local id to a folder and to a bookmark.
std::vector<ClientRecord> takeRecords(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema,
                                      bool changedOnly);

/// The client's tree when only `changed` differs from what its base says.
std::vector<ClientRecord> clientTree(const std::vector<BaseRecord>& base,
                                     const std::vector<ClientRecord>& changed);

}  // namespace corvane::loomer
