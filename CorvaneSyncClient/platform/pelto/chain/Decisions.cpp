#include "CorvaneSyncClient/platform/pelto/chain/Decisions.h"

#include <algorithm>

namespace corvane::pelto::chain {

namespace {

// What keeps changing under the eyes of one exchange is left to the next one.
constexpr int kMostSurveys = 3;
constexpr int kMostTries = 3;
// A listing shows more of them at once than one request each, and lets them be read several at a time.
constexpr int kMostFollowed = 8;
constexpr std::size_t kMostVerified = 8;
constexpr std::size_t kMostSightings = 16;

bool isDue(const State& state) {
  const double age = state.now.seconds - state.kept.surveyed.seconds;
  return age >= kSurveySeconds || age < 0;
}

Slot nextSlot(const State& state) {
  const Link* const head = state.kept.head();
  return head ? slotAfter(head->number, head->hash, state.attempt) : slotAfter(0, beginning(), state.attempt);
}

const std::string& nextPrevious(const Kept& kept) {
  static const std::string kBeginning = beginning();
  return kept.head() ? kept.head()->hash : kBeginning;
}

bool follows(const State& state, const Link& link) {
  const Link* const head = state.kept.head();
  return link.number == (head ? head->number : 0) + 1 && link.attempt == state.attempt &&
         link.previous == nextPrevious(state.kept);
}

void take(Kept& kept, const Link& link) {
  // The state after a checkpoint no longer depends on what lies before it, and who has come to the last
  // commit has all in the next generation.
  if (link.isCheckpoint || link.isLast) kept.path.clear();
  kept.path.push_back(link);
}

// Of commits taken since the last verified one: that one and all of them but the last, which was read last.
// The place may have gone back before that, and the last one may be there all the same.
std::vector<Link> unverified(const Kept& kept) {
  std::vector<Link> links;
  if (!kept.head() || kept.head()->number == kept.verified) return links;
  for (const Link& each : kept.path) {
    if (each.number >= kept.verified) links.push_back(each);
  }
  links.pop_back();
  return links;
}

std::vector<std::string> namesOf(const std::vector<Link>& links) {
  std::vector<std::string> names;
  for (const Link& each : links) names.push_back(nameOf(each));
  return names;
}

bool isThere(const Found& found, const Link& link) {
  return found.state == Found::State::good && found.link.hash == link.hash;
}

State stuck(State state, Cause cause) {
  state.stage = Stage::stuck;
  state.cause = cause;
  return state;
}

State toSurvey(State state) {
  if (state.surveys == kMostSurveys) return stuck(std::move(state), Cause::restless);
  ++state.surveys;
  state.stage = Stage::survey;
  state.listed.reset();
  state.read.clear();
  return state;
}

State settle(State state) {
  if (state.kept.head()) state.kept.verified = state.kept.head()->number;
  state.stage = Stage::settled;
  return state;
}

State toVerify(State state) {
  const std::size_t count = unverified(state.kept).size();
  if (count > kMostVerified) return toSurvey(std::move(state));
  if (count == 0) return settle(std::move(state));
  state.stage = Stage::verify;
  return state;
}

State toLook(State state, bool asksForHead) {
  state.stage = Stage::look;
  state.asksForHead = asksForHead && !state.kept.path.empty();
  state.attempt = 0;
  state.isBlocked = false;
  return isEnded(state.kept) && !state.asksForHead ? toVerify(std::move(state)) : state;
}

// The commits that a push rests on: those that are not verified, and always the one before it, since the
// place may have gone back just before the push.
std::vector<Link> foundations(const Kept& kept) {
  std::vector<Link> links = unverified(kept);
  if (kept.head()) links.push_back(*kept.head());
  return links;
}

State afterResolving(State state, const Answer& answer) {
  const std::vector<Link> under = foundations(state.kept);
  const Found& slot = answer.found.front();
  bool isIntact = true;
  for (std::size_t i = 0; i < under.size(); ++i)
    isIntact = isIntact && isThere(answer.found[i + 1], under[i]);
  const Link push = *state.kept.undecided;
  // A listing tells whether the place went back, or whether the answers were old ones.
  if (!isIntact) return toSurvey(std::move(state));
  if (slot.state == Found::State::damaged) {
    const Sighting sighting{nameOf(push), slot.hash, answer.now};
    const bool isOver = isForGood(state.kept.damaged, sighting, state.now, kDamagedSeconds);
    state.damaged = sighting.name;
    if (!isOver) return stuck(std::move(state), Cause::damaged);
  } else if (slot.state == Found::State::absent) {
    if (++state.tries > kMostTries) return stuck(std::move(state), Cause::forgets);
    state.gives = true;
    return state;
  }
  state.kept.undecided.reset();
  if (isThere(slot, push)) take(state.kept, push);
  return state.isPush ? settle(std::move(state)) : toLook(std::move(state), false);
}

// Whether a commit that was good reads as damaged, for less than ten minutes so far: that may pass, and is no
// reason to take the place for one that went back.
bool hasNewDamage(State& state, Date now) {
  bool isNew = false;
  for (const Link& each : state.kept.path) {
    const auto found = state.read.find(nameOf(each));
    if (found == state.read.end() || found->second.state != Found::State::damaged) continue;
    const Sighting sighting{nameOf(each), found->second.hash, now};
    if (isForGood(state.kept.damaged, sighting, state.now, kDamagedSeconds)) continue;
    isNew = true;
    state.damaged = sighting.name;
  }
  return isNew;
}

// What the listing shows, around checkpoints of which something is missing where that leads to the same
// commit.
Survey surveyed(const State& state) {
  Survey trusting = survey(*state.listed, state.read);
  Readings doubting = state.read;
  bool hasDoubts = false;
  for (const Sighting& each : state.kept.missing) {
    const auto found = doubting.find(each.name);
    if (found == doubting.end() || !found->second.link.isCheckpoint) continue;
    found->second.link.isWhole = false;
    hasDoubts = true;
  }
  if (!trusting.unread.empty() || trusting.path.empty() || !hasDoubts) return trusting;
  Survey around = survey(*state.listed, doubting);
  const bool leadsThere = !around.unread.empty() ||
                          (!around.path.empty() && around.path.back().hash == trusting.path.back().hash);
  return leadsThere ? around : trusting;
}

State afterSurveying(State state, const Answer& answer, const Action& action) {
  if (!state.listed) {
    state.listed = answer.listed;
  } else {
    for (std::size_t i = 0; i < action.names.size(); ++i) {
      const Found& found = answer.found[i];
      if (found.state == Found::State::absent) return toSurvey(std::move(state));
      state.read[action.names[i]] = found;
    }
  }
  Survey found = surveyed(state);
  if (!found.unread.empty()) return state;
  if (hasNewDamage(state, answer.now)) return stuck(std::move(state), Cause::damaged);
  state.kept.path = std::move(found.path);
  state.kept.verified = state.kept.head() ? state.kept.head()->number : 0;
  state.kept.surveyed = state.now;
  state.kept.isReviewed = false;
  state.listed.reset();
  state.read.clear();
  state.followed = 0;
  if (state.kept.undecided && state.kept.undecided->previous == nextPrevious(state.kept)) {
    state.stage = Stage::resolve;
    return state;
  }
  // Another commit has its slot, or the one before it is gone.
  state.kept.undecided.reset();
  return toLook(std::move(state), false);
}

State afterLooking(State state, const Answer& answer) {
  if (state.asksForHead && !isThere(answer.found.front(), *state.kept.head()))
    return toSurvey(std::move(state));
  state.asksForHead = false;
  if (isEnded(state.kept)) return toVerify(std::move(state));
  const Found& slot = answer.found.back();
  if (slot.state == Found::State::absent) return toVerify(std::move(state));
  if (slot.state == Found::State::good && follows(state, slot.link)) {
    take(state.kept, slot.link);
    state.attempt = 0;
    if (isEnded(state.kept)) return toVerify(std::move(state));
    return ++state.followed == kMostFollowed ? toSurvey(std::move(state)) : state;
  }
  const Sighting sighting{nameOf(nextSlot(state)), slot.hash, answer.now};
  if (isForGood(state.kept.damaged, sighting, state.now, kDamagedSeconds)) {
    ++state.attempt;
    return state;
  }
  // It may have been damaged long after others went on from there.
  if (state.surveys == 0) return toSurvey(std::move(state));
  state.isBlocked = true;
  return toVerify(std::move(state));
}

State afterVerifying(State state, const Answer& answer) {
  const std::vector<Link> links = unverified(state.kept);
  for (std::size_t i = 0; i < links.size(); ++i) {
    if (!isThere(answer.found[i], links[i])) return toSurvey(std::move(state));
  }
  return settle(std::move(state));
}

}  // namespace

bool isForGood(std::vector<Sighting>& known, const Sighting& sighting, Date began, double seconds) {
  const auto found = std::find_if(known.begin(), known.end(),
                                  [&](const Sighting& each) { return each.name == sighting.name; });
  const bool isOld = found != known.end() && found->hash == sighting.hash && found->since <= sighting.since;
  if (isOld) return began.seconds - found->since.seconds >= seconds;
  if (found != known.end()) known.erase(found);
  if (known.size() == kMostSightings) known.erase(known.begin());
  known.push_back(sighting);
  return false;
}

bool isEnded(const Kept& kept) { return kept.head() && kept.head()->isLast; }

bool isReviewDue(const Kept& kept) { return !kept.isReviewed; }

bool isMissingForGood(Kept& kept, const Link& commit, Date began, Date now) {
  return isForGood(kept.missing, {nameOf(commit), {}, now}, began, kMissingSeconds);
}

std::int64_t continuedWithout(const std::vector<Link>& passedBy) {
  std::int64_t newest = passedBy.front().number - 1;
  for (const Link& each : passedBy) newest = each.isCheckpoint ? 0 : std::min(newest, each.number - 1);
  return newest;
}

bool goesAround(const std::vector<Link>& path) {
  return std::any_of(path.begin(), path.end(), [&](const Link& each) {
    return each.isCheckpoint && each.number != path.front().number;
  });
}

State begin(Kept kept, Date now) {
  State state;
  state.kept = std::move(kept);
  state.now = now;
  if (state.kept.undecided) {
    state.stage = Stage::resolve;
    return state;
  }
  if (state.kept.path.empty() || isDue(state)) return toSurvey(std::move(state));
  return toLook(std::move(state), true);
}

State beginPush(State state, const Link& commit) {
  state.kept.undecided = commit;
  state.stage = Stage::resolve;
  state.isPush = state.gives = state.isUnkept = true;
  state.tries = 1;
  return state;
}

State withdrawn(State state) {
  state.kept.undecided.reset();
  return settle(std::move(state));
}

Action next(const State& state) {
  switch (state.stage) {
    case Stage::resolve: {
      if (state.gives) return {state.isUnkept ? Action::Kind::keep : Action::Kind::give, {}};
      std::vector<std::string> names{nameOf(*state.kept.undecided)};
      for (const Link& each : foundations(state.kept)) names.push_back(nameOf(each));
      return {Action::Kind::get, std::move(names)};
    }
    case Stage::survey:
      if (!state.listed) return {Action::Kind::list, {}};
      return {Action::Kind::get, surveyed(state).unread};
    case Stage::look: {
      std::vector<std::string> names;
      if (state.asksForHead) names.push_back(nameOf(*state.kept.head()));
      if (!isEnded(state.kept)) names.push_back(nameOf(nextSlot(state)));
      return {Action::Kind::get, std::move(names)};
    }
    case Stage::verify:
      return {Action::Kind::get, namesOf(unverified(state.kept))};
    case Stage::settled:
    case Stage::stuck:
      break;
  }
  return {};
}

State after(State state, const Action& action, const Answer& answer) {
  switch (action.kind) {
    case Action::Kind::keep:
      state.isUnkept = false;
      return state;
    case Action::Kind::give:
      state.gives = false;
      return state;
    case Action::Kind::none:
      return state;
    case Action::Kind::get:
    case Action::Kind::list:
      break;
  }
  if (state.stage == Stage::resolve) return afterResolving(std::move(state), answer);
  if (state.stage == Stage::survey) return afterSurveying(std::move(state), answer, action);
  if (state.stage == Stage::look) return afterLooking(std::move(state), answer);
  return afterVerifying(std::move(state), answer);
}

bool isIn(const std::vector<Link>& path, const Link& link) {
  return std::any_of(path.begin(), path.end(), [&](const Link& each) { return each.hash == link.hash; });
}

}  // namespace corvane::pelto::chain
