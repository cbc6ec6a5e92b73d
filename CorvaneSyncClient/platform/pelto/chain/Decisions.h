#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/chain/Link.h"
#include "CorvaneSyncClient/platform/pelto/chain/Survey.h"

// What a computer does next at the place, given what it keeps and what it has seen: no I/O. `ChainHub`
// carries it out. The model checker in the tests explores these very functions.
//
// An exchange settles which commit is the newest, and a push is one more thing to settle:
//
//     resolve   a push whose outcome is unknown: nothing else is sent before that is known
//     survey    the whole chain, by a listing: at the first exchange, once a day, and where something is
//     amiss look      at the newest commit known and at the slot after it, at once; and on from there verify
//     that what was taken or given since is still there settled   or stuck, with the reason

namespace corvane::pelto::chain {

/// Something amiss at the place, and since when this computer knows of it, by its own clock.
struct Sighting {
  std::string name;
  std::string hash;  ///< of the bytes there
  Date since;

  friend bool operator==(const Sighting&, const Sighting&) = default;
};

/// How much an account held after a commit: exact, where a commit tells bounds.
struct Count {
  std::string hash;  ///< of the commit
  std::int64_t records = 0;
  std::int64_t bytes = 0;

  friend bool operator==(const Count&, const Count&) = default;
};

/// What a computer keeps of an account's chain. Where it is lost, there are more requests.
struct Kept {
  std::vector<Link> path;     ///< from the last checkpoint, or the first commit, to the newest commit known
  std::int64_t verified = 0;  ///< up to this number, all of `path` was seen there when its last one was
  /// A push that was or may have been sent, and whose outcome is unknown. It follows the last of `path`.
  std::optional<Link> undecided;
  std::vector<Sighting> damaged;  ///< slots
  std::vector<Sighting> missing;  ///< commits of which a segment is missing
  Count counted;                  ///< the last exact one
  Date surveyed;                  ///< when a listing last showed the whole chain
  bool isReviewed = false;        ///< since then, the ends of the generations before

  /// The newest commit known; null at the beginning.
  const Link* head() const { return path.empty() ? nullptr : &path.back(); }

  friend bool operator==(const Kept&, const Kept&) = default;
};

/// Whether the newest commit known is the last one of its generation. Nothing follows it.
bool isEnded(const Kept& kept);

/// Whether a computer has to see whether the generations that it has left are still ended at the place. It
/// has after each survey: a place that went back is surveyed, and one that has forgotten the end of a
/// generation and nothing since shows that to nobody else.
bool isReviewDue(const Kept& kept);

/// How often what is amiss has to be seen, at least this many seconds apart, before it counts as so for good.
inline constexpr double kDamagedSeconds = 600;
inline constexpr double kMissingSeconds = 86'400;
inline constexpr double kSurveySeconds = 86'400;

/// Whether an exchange that began at `began` has seen what an earlier one saw at least `seconds` before.
/// Notes the sighting in `known` where it is new.
bool isForGood(std::vector<Sighting>& known, const Sighting& sighting, Date began, double seconds);

/// Notes that something of the commit is missing: an object that it names. True once that has been so for a
/// day, and the commit is to be passed by. A checkpoint that is noted is no longer read where the commits
/// before it are still there.
bool isMissingForGood(Kept& kept, const Link& commit, Date began, Date now);
/// The newest state that a checkpoint continues which passes these commits by; there has to be one. What is
/// missing of a checkpoint is missing of all states that it continues.
std::int64_t continuedWithout(const std::vector<Link>& passedBy);
/// Whether the path goes around a checkpoint, since something of that one is missing.
bool goesAround(const std::vector<Link>& path);

enum class Stage { resolve, survey, look, verify, settled, stuck };

/// Why an exchange cannot go on. The next one tries again.
enum class Cause {
  none,
  restless,  ///< the place shows something else each time
  forgets,   ///< it does not keep the push, time and again
  damaged,   ///< an object that matters is damaged, for less than ten minutes so far
};

/// An exchange, between two actions.
struct State {
  Kept kept;
  Date now;  ///< when the exchange began, by the computer's clock
  Stage stage = Stage::look;
  Cause cause = Cause::none;
  std::string damaged;  ///< the commit that is, where that is the cause

  bool isPush = false;    ///< a push is settled, and nothing else
  bool isUnkept = false;  ///< `kept` has to be durable before anything is sent
  bool gives = false;     ///< the undecided push is sent next
  int tries = 0;          ///< to send it

  std::optional<std::vector<std::string>> listed;
  Readings read;
  int surveys = 0;

  bool asksForHead = true;
  int attempt = 0;         ///< of the slot after the newest commit
  bool isBlocked = false;  ///< that slot is damaged, for less than ten minutes so far: nothing can be given
  int followed = 0;        ///< commits since the last survey

  friend bool operator==(const State&, const State&) = default;
};

/// What to do next.
struct Action {
  enum class Kind {
    keep,  ///< make `kept` durable
    give,  ///< put the undecided push's segments, then `putNew` its commit
    get,   ///< the commits of these names; answered by what was found, in their order
    list,  ///< all commits; answered by their names
    none,  ///< settled or stuck
  };
  Kind kind = Kind::none;
  std::vector<std::string> names;

  friend bool operator==(const Action&, const Action&) = default;
};

/// What came of an action. That of giving does not count, whatever it was: the slot tells.
struct Answer {
  std::vector<Found> found;
  std::vector<std::string> listed;
  Date now;  ///< by the computer's clock
};

/// The beginning of an exchange.
State begin(Kept kept, Date now);
/// The beginning of a push after a settled exchange that is not blocked. `commit` follows the head in the
/// slot of `state.attempt`.
State beginPush(State state, const Link& commit);
/// Takes a push back that is known not to have been made: only after a first try that the place refused.
State withdrawn(State state);

Action next(const State& state);
State after(State state, const Action& action, const Answer& answer);

/// Whether the commit is a part of the path.
bool isIn(const std::vector<Link>& path, const Link& link);

}  // namespace corvane::pelto::chain
