#pragma once

#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomerctl {

/// Walks the agreed bookmarks: folders before their contents, everything in its order. Reads a folder when it
/// gets there and holds the rest of the folders on the way to it, so that the first line does not wait for
/// the last. Every record has one parent, so the only cycle that a walk can meet in a damaged store leads
/// through its start; the start is not entered again.
class TreeWalk {
 public:
  /// Starts inside `folder`; kRoot for everything. `records` must outlive this object.
  TreeWalk(loomer::RecordTable& records, loomer::RecordId folder);

  /// The next record, valid until the next call; null at the end.
  const loomer::TruthRecord* next();
  /// How many folders of the walk are above the record that `next` answered.
  std::size_t depth() const { return _depth; }
  /// How many folders ended between the previous record and this one; at the end of the walk, how many were
  /// still open.
  std::size_t closed() const { return _closed; }

 private:
  struct List {
    std::vector<loomer::TruthRecord> records;
    std::size_t at = 0;
  };
  void enter(loomer::RecordId folder);

  loomer::RecordTable& _records;
  loomer::RecordId _start;
  std::vector<List> _open;
  bool _enterCurrent = false;
  std::size_t _depth = 0;
  std::size_t _closed = 0;
};

}  // namespace corvane::loomerctl
