#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"

namespace corvane::loomer {

/// The reason why a session cannot go on, for people: what, why, what to do. Cancels the session.
class SessionCancelled : public PlatformException {
 public:
  explicit SessionCancelled(std::string reason)
      : PlatformException("LoomerSessionCancelledException", std::move(reason)) {}
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
