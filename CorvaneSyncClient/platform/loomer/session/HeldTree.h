#pragma once

#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "CorvaneSyncClient/platform/loomer/session/MovableForest.h"

namespace corvane::loomer {

/// What the client really holds while changes are handed down and some of them are not taken.
class HeldTree {
 public:
  /// `input` and `plan` must outlive this object.
  HeldTree(const MergeInput& input, const MergeResult& plan);

  /// The record as the client held it before the session, for its base.
  BaseRecord before(const ClientChange& change) const;
  /// Notes that the client took the change.
  void taken(const ClientChange& change);
  /// Whether a folder that hangs under `parent` would hang below itself. O(log n), taken over many, at any
  /// depth.
  bool wouldCloseCircle(RecordId folder, RecordId parent);

 private:
  void hangUpFolders(const std::vector<ClientRecord>& pushed);
  RecordId recordOf(const String& localId) const;
  /// kNoNode for what is no folder of the client.
  Index nodeOf(RecordId folder) const;

  std::unordered_map<String, RecordId> _records;                   // by local id
  std::unordered_map<String, const ClientRecord*> _pushed;         // by local id
  std::unordered_map<RecordId, const BaseRecord*> _base;           // as it was before the session
  std::unordered_map<RecordId, Index> _nodes{{kRoot, kRootNode}};  // of the folders, in `_folders`
  MovableForest _folders{Parents{kNoNode}};
};

}  // namespace corvane::loomer
