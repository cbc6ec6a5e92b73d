#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/chain/Contents.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto::chain {

/// How many past states a checkpoint tells of: a computer that was away for more has no state in common with
/// the account.
inline constexpr std::size_t kToldStates = 4'000;

/// How many states that were given again a checkpoint tells of, and how many a computer is told of.
inline constexpr std::size_t kToldGivenAgain = 1'000;

/// The account's history as far as it is known: the commits from the last checkpoint on, and what that one
/// tells of those before.
class History {
 public:
  /// `told` is by descending number, and older than all of `path`.
  History(std::vector<Link> path, std::vector<PastState> told);

  /// Whether a commit of that number and push is a part of it; number 0 always is.
  bool contains(std::int64_t number, const String& pushId) const;
  /// Whether that push is a part of it, be it as one given again.
  bool hasPush(const String& pushId) const;
  /// The push that made that state; absent where it is not known.
  std::optional<String> pushOf(std::int64_t number) const;
  /// Its states between that number and `now`, both excluded, newest first.
  std::vector<HubState> statesBetween(std::int64_t since, const HubState& now) const;
  /// The newest of those states that is a part of it.
  std::optional<HubState> newestCommon(const std::vector<HubState>& seen, const String& account) const;
  /// The first of those states, before `common`, that was given again.
  std::optional<HubState> firstGivenAgain(const std::vector<HubState>& seen,
                                          const std::optional<HubState>& common) const;
  /// The newest of the states that commits after that number gave again, `most` of them at most.
  std::vector<GivenAgain> givenAgainSince(std::int64_t number, std::size_t most) const;

 private:
  bool isGivenAgain(const String& pushId) const;

  std::vector<Link> _path;
  std::vector<PastState> _told;
};

/// Whether a snapshot is due. A computer that is new reads the newest snapshot and all that came since; that
/// is to cost no more than three times what a snapshot alone would, and small accounts may have a few dozen
/// commits more. A first push of 100,000 records is far from that, since it makes no more objects than its
/// snapshot would: nothing is uploaded twice.
bool isCheckpointDue(const Link& head);

/// What may be removed at the place.
struct Collectable {
  std::vector<std::string> commits;
  std::vector<std::string> segments;
};

/// Thirty days, in seconds.
inline constexpr double kCollectedAfter = 30.0 * 86'400;

/// Commits before number `from`, and segments that are not in `named`, of more than thirty days. Only the
/// place's clock is asked: the newest object that it lists says what time it is. `named` has to be sorted.
Collectable collectable(const std::vector<PlaceObject>& commits, const std::vector<PlaceObject>& segments,
                        std::int64_t from, const std::vector<std::string>& named);

/// What may be removed of a generation that the account has left: all that is there but its last commit,
/// `last`, once that is there and nothing is younger than thirty days; `now` is by the place's clock. Whoever
/// comes to that commit later needs nothing else. `last` is empty for a generation that never became the
/// account's.
std::vector<std::string> leftBehind(const std::vector<PlaceObject>& objects, const std::string& last,
                                    Date now);

}  // namespace corvane::pelto::chain
