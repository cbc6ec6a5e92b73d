#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "tests/kit/ClientTree.h"

namespace corvane::loomer::test {

/// A model of a client of the engine: a tree as its file, and what it does with the changes that are
/// delivered to it. Every session begins by reading the file, which numbers the children of each folder from
/// 0 on, entries that the engine never sees included; changes place children by number and never renumber.
class ClientSimulation : public kit::ClientTree {
 public:
  using ClientTree::ClientTree;

  /// Reads the file and answers what it pushes.
  std::vector<ClientRecord> read();
  /// Takes in what is delivered and fills the local ids of additions into the base.
  void apply(const MergeResult& result, std::vector<BaseRecord>& base);

  /// The tree, to compare clients by: special folders stand in front, since where they stand in the file is
  /// the client's own affair.
  std::string print() const;

 private:
  struct HeldAside {
    std::string uid;
    ClientChange change;
  };

  void forgetUnreachable();
  void findSpecial();
  void update(const std::string& uid, const ClientChange& change);
  void placeHeldAside();
  std::string uidOf(RecordId record) const;

  // One session's.
  bool _placedHeldAside = false;
  std::vector<HeldAside> _addedFolders;
  std::vector<HeldAside> _modifiedFolders;
  std::map<RecordId, std::string> _uids;
};

}  // namespace corvane::loomer::test
