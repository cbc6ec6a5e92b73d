#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "tests/pelto/chain/ChainModel.h"

// The world that the model explores: a place, computers and their engines.

namespace corvane::model {

using Edits = unsigned;

/// Of some value; different values have different ones.
using Hash = std::pair<std::uint64_t, std::uint64_t>;

/// A value that copies share until one of them changes, since an event changes little of a world. So it is
/// hashed no more often than it changes.
template <typename Value>
class CopyOnWrite {
 public:
  const Value& operator*() const { return _held->value; }
  const Value* operator->() const { return &_held->value; }
  /// The value, no longer shared. To be changed before this object is copied or its hash asked for.
  Value& change() {
    if (_held.use_count() > 1) _held = std::make_shared<Held>(Held{_held->value, std::nullopt});
    _held->hash.reset();
    return _held->value;
  }
  /// As `compute` answers it, which makes the hash of a value.
  template <typename Compute>
  const Hash& hash(const Compute& compute) const {
    if (!_held->hash) _held->hash = compute(_held->value);
    return *_held->hash;
  }

 private:
  struct Held {
    Value value;
    std::optional<Hash> hash;
  };
  std::shared_ptr<Held> _held = std::make_shared<Held>();
};

/// A commit. Its hash is one of its contents, so that equal states of the world are equal however they came
/// to be.
struct Made {
  Link link;
  Edits edits = 0;  ///< that it gives
  Edits all = 0;    ///< that the account holds with it
  std::size_t writer = 0;
  std::vector<PastState> told;
  std::string next;         ///< of a generation's last commit: the key that it hands over
  std::size_t removed = 0;  ///< and who does not get it
  bool isAgain = false;     ///< the place has forgotten the one before
};

/// All commits ever made, by hash.
using Registry = std::unordered_map<std::string, Made>;

enum class Damage { none, passing, lasting };

struct Cell {
  std::string hash;
  Damage damage = Damage::none;
  double written = 0;
};

/// What lies under one key.
struct Chain {
  std::map<std::string, Cell> commits;     ///< by name
  std::map<std::string, double> segments;  ///< of the commit of that hash: when it was written
  std::map<std::string, double> away;      ///< segments that come back
  std::set<std::string> spoilt;            ///< those that are listed and cannot be read
};

/// Whether what the commit of that hash names can be read.
inline bool isReadable(const Chain& chain, const std::string& hash) {
  return chain.segments.contains(hash) && !chain.spoilt.contains(hash);
}

using Place = std::map<std::string, Chain>;  ///< by key

struct Request {
  std::string key;
  std::string name;
  std::string hash;
};

enum class Doing {
  exchange,
  push,
  checkpoint,
  collection,
  passing,    ///< a checkpoint without commits of which something is missing
  replacing,  ///< a checkpoint in the place of one of which something is missing
  beginning,  ///< the first commit under the next key
  ending,     ///< the last one under this key
  adopting,   ///< the next key
  undoing,    ///< what was begun under a key that nobody gets
  leaving,    ///< removes what is left behind
  reviewing,  ///< whether a generation that was left has ended
  endingAgain,
};

/// What a computer has in memory while it is at work.
struct Work {
  State state;
  Doing doing = Doing::exchange;
  std::string pushed;  ///< hash of what is given
  bool hasPutSegment = false;
  bool sawNone = false;       ///< of a look before a put
  Collectable collected;      ///< what is about to be removed
  bool wasMade = false;       ///< what the place answered to the put
  bool hasReadAgain = false;  ///< since something was missing
  bool hasReplaced = false;
  std::size_t reviewed = 0;  ///< which of the former keys is reviewed, from 1
  int timesEnded = 0;        ///< it, again
  State exchange;            ///< that goes on after it
  std::vector<Link> passedBy;
  std::optional<std::size_t> removes;  ///< a computer, out of the account
  std::string next;                    ///< the key that comes of it
  Request first;                       ///< under that
};

/// A key that a computer has left for the next one.
struct Former {
  std::string key;
  std::string next;
  std::size_t removed = 0;
  std::string last;  ///< the name of the last commit
};

struct Writer {
  Kept kept;
  std::string key;
  bool isOut = false;                       ///< it knows that it was taken out
  std::map<std::string, std::string> left;  ///< keys left behind, and the names of their last commits
  std::vector<Former> former;
  std::map<std::string, Kept> keptOfFormer;  ///< by key
  // The engine: what it knows, what it takes the service to hold, and its last push while that is unsettled.
  Edits truth = 0;
  Edits base = 0;
  std::string seen;  ///< hash of the commit that the base is of
  std::string journal;
  std::set<std::string> known;  ///< hashes of commits that it has seen or given
  int editsLeft = 0;
  std::optional<Work> work;
};

inline constexpr double kYoung = 0;
inline constexpr double kBeginning = 1e6;

struct World {
  CopyOnWrite<Place> place;
  std::vector<CopyOnWrite<Place>> past;  ///< what the place can be put back to
  std::vector<Request> late;
  std::vector<CopyOnWrite<Writer>> writers;
  Bounds left;
  double placeTime = kYoung;
  double clock = kBeginning;  ///< of the computers
  Edits made = 0;
  bool hasRolledBack = false;
};

/// The world in bytes, for telling whether it was seen before.
class Digest {
 public:
  Digest() { _bytes.reserve(1000); }
  void add(const std::string& text) { (_bytes += text) += '|'; }
  template <typename Number>
  requires std::is_arithmetic_v<Number> || std::is_enum_v<Number>
  void add(Number number) { _bytes.append(reinterpret_cast<const char*>(&number), sizeof number); }
  void add(const Link& link) {
    add(link.hash);
    add(link.isWhole);
  }
  template <typename Each>
  void add(const std::vector<Each>& all) {
    for (const auto& each : all) add(each);
    add('#');
  }
  template <typename Key, typename Each>
  void add(const std::map<Key, Each>& all) {
    for (const auto& [key, each] : all) {
      add(key);
      add(each);
    }
    add('#');
  }
  void add(const Sighting& sighting) {
    add(sighting.name);
    add(sighting.hash);
    add(sighting.since.seconds);
  }
  void add(const Found& found) {
    add(found.hash);
    add(found.state);
  }
  void add(const Kept& kept) {
    add(kept.path);
    add(kept.verified);
    add(kept.undecided ? kept.undecided->hash : std::string());
    add(kept.damaged);
    add(kept.missing);
    add(kept.surveyed.seconds);
    add(kept.isReviewed);
  }
  void add(const State& state) {
    add(state.kept);
    add(state.now.seconds);
    for (const int each : {static_cast<int>(state.stage), static_cast<int>(state.cause), state.tries,
                           state.surveys, state.attempt, state.followed})
      add(each);
    for (const bool each : {state.isPush, state.isUnkept, state.gives, state.asksForHead, state.isBlocked})
      add(each);
    if (state.listed) add(*state.listed);
    add(state.read);
  }
  void add(const Cell& cell) {
    add(cell.hash);
    add(cell.damage);
    add(cell.written);
  }
  void add(const Chain& chain) {
    add(chain.commits);
    add(chain.segments);
    add(chain.away);
    for (const std::string& each : chain.spoilt) add(each);
  }
  void add(const Request& request) {
    add(request.key);
    add(request.name);
    add(request.hash);
  }
  void add(const Work& work) {
    add(work.state);
    add(work.doing);
    add(work.pushed);
    add(work.collected.commits);
    add(work.collected.segments);
    for (const bool each :
         {work.hasPutSegment, work.sawNone, work.wasMade, work.hasReadAgain, work.hasReplaced})
      add(each);
    add(work.reviewed);
    add(work.timesEnded);
    if (work.reviewed != 0) add(work.exchange);
    add(work.passedBy);
    add(work.removes ? static_cast<int>(*work.removes) : -1);
    add(work.next);
  }
  void add(const Writer& writer) {
    add(writer.kept);
    add(writer.key);
    add(writer.isOut);
    add(writer.left);
    for (const Former& each : writer.former) {
      add(each.key);
      add(each.last);
    }
    add(writer.keptOfFormer);
    add(writer.truth);
    add(writer.base);
    add(writer.seen);
    add(writer.journal);
    for (const std::string& each : writer.known) add(each);
    add(writer.editsLeft);
    writer.work ? add(*writer.work) : add('-');
  }
  template <typename Each>
  void add(const CopyOnWrite<Each>& shared) {
    const Hash& hash = shared.hash([](const Each& each) {
      Digest digest;
      digest.add(each);
      return digest.value();
    });
    add(hash.first);
    add(hash.second);
  }
  void add(const World& world) {
    add(world.place);
    add(world.past);
    add(world.late);
    add(world.writers);
    const Bounds& left = world.left;
    for (const int each : {left.kills, left.lost, left.late, left.stale, left.rollBacks, left.damages,
                           left.losses, left.changes, left.checkpoints, left.ages})
      add(each);
    add(world.placeTime);
    add(world.clock);
    add(world.hasRolledBack);
  }
  Hash value() const { return {sipHash({}, _bytes), sipHash({1, 2}, _bytes)}; }

 private:
  std::string _bytes;
};

inline Hash hashOf(const World& world) {
  Digest digest;
  digest.add(world);
  return digest.value();
}

}  // namespace corvane::model
