#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/Contents.h"
#include "CorvaneSyncClient/platform/pelto/chain/Survey.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"

namespace corvane::pelto::chain {

/// An object that a commit needs is not at the place, or is damaged there.
class MissingObject : public PlaceException {
 public:
  using PlaceException::PlaceException;
};

/// A commit as it was last read, and what the place asks for to say that it is unchanged.
struct TaggedLink {
  Link link;
  std::string tag;
};

/// The object that holds the commit `name` of the account with that folder.
inline std::string commitObjectIn(const std::string& folder, const std::string& name) {
  return folder + "/c/" + name;
}

/// The objects of one account at its place, sealed and opened. Commits lie in the folder "c", everything that
/// they name in "s". Raises what the place raises.
class ChainObjects {
 public:
  /// Both must outlive this object.
  ChainObjects(Place& place, const Sealer& sealer);

  /// What is there under these names of commits.
  std::vector<Found> find(const std::vector<std::string>& names);
  /// The contents of a commit that `find` found good. Raises MissingObject where it is gone by now.
  const Commit& commit(const Link& link);
  /// All commits, without their folder. From here on, `find` looks whether snapshots are whole.
  const std::vector<PlaceObject>& listCommits();
  /// All that commits name, without their folder.
  const std::vector<PlaceObject>& listSegments();

  /// Reads objects that a commit names, a few at a time; calls `take` with the contents of each, in their
  /// order. Raises MissingObject, naming the first that is not there as it was sealed.
  template <typename Take>
  void readSegments(const std::vector<SegmentRef>& segments, const Take& take) {
    for (std::size_t at = 0; at < segments.size(); at += kAtOnce) {
      for (const std::string& contents : readSome(segments, at)) take(contents);
    }
  }

  /// Seals a segment under a name that nobody has used; `object` becomes what to put.
  SegmentRef sealSegment(const std::string& contents, NamedBytes& object);
  /// The bytes of a commit; sets `link.hash`.
  std::string sealCommit(const Commit& commit, Link& link) const;
  void put(const std::vector<NamedBytes>& objects) { _place.put(objects); }
  void putNew(const std::string& name, const std::string& bytes);
  /// Removes commits and segments by their names.
  void remove(const std::vector<std::string>& commits, const std::vector<std::string>& segments);

  /// What saves reading commits again in another exchange.
  const std::map<std::string, TaggedLink>& tags() const { return _tags; }
  void setTags(std::map<std::string, TaggedLink> tags) { _tags = std::move(tags); }
  /// "in 0a1b… at the directory /mnt/share", for messages.
  Message whereabouts() const;

 private:
  static constexpr std::size_t kAtOnce = 8;

  Found foundIn(const std::string& name, const GetAnswer& answer);
  Found opened(const std::string& name, const std::string& bytes);
  bool isWhole(const Snapshot& snapshot);
  std::vector<std::string> readSome(const std::vector<SegmentRef>& segments, std::size_t from);
  std::string commitObject(const std::string& name) const { return commitObjectIn(_folder, name); }
  std::string segmentObject(const std::string& name) const { return _folder + "/s/" + name; }
  std::vector<PlaceObject> list(const std::string& folder);

  Place& _place;
  const Sealer& _sealer;
  std::string _folder;
  std::map<std::string, TaggedLink> _tags;  ///< by name
  std::map<std::string, Commit> _commits;   ///< by hash: those read in this exchange
  std::vector<PlaceObject> _listedCommits;
  std::optional<std::vector<PlaceObject>> _listedSegments;
};

}  // namespace corvane::pelto::chain
