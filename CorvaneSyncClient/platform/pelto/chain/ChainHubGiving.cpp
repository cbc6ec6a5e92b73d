#include <algorithm>
#include <iterator>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::pelto {

using namespace chain;

namespace {

// For so long does a snapshot hold tombstones. They serve computers that were away.
constexpr double kTombstoneSeconds = 400.0 * 86'400;

std::size_t textBytesOf(const std::vector<HubRecord>& records) {
  std::size_t bytes = 0;
  for (const HubRecord& each : records) bytes += textBytes(each);
  return bytes;
}

// `sealed` becomes what to put.
std::vector<SegmentRef> sealSegments(std::vector<HubRecord> records, ChainObjects& objects,
                                     std::vector<NamedBytes>& sealed) {
  std::vector<SegmentRef> segments;
  for (const std::vector<HubRecord>& part : segmented(std::move(records)))
    segments.push_back(objects.sealSegment(writeSegment(part), sealed.emplace_back()));
  return segments;
}

}  // namespace

// The commit that would follow the newest one, with no records yet.
Commit ChainHub::commitAfterHead(const String& pushId) const {
  Commit commit;
  commit.writer = _options.computer;
  commit.time = Platform::current().clock.now();
  Link& link = commit.link;
  link.number = 1;
  link.previous = beginning();
  link.attempt = _state.attempt;
  link.pushId = pushId.toString();
  link.tail = 1;
  if (const Link* const head = _state.kept.head()) {
    const Count count = countAtHead();
    link.number = head->number + 1;
    link.previous = head->hash;
    link.before = startsWithCheckpoint() ? path().front().number : 0;
    link.tail = head->tail + 1;
    link.records = count.records;
    link.bytes = count.bytes;
    link.segments = head->segments;
  }
  return commit;
}

HubPushed ChainHub::push(const HubPush& push) {
  open();
  if (_state.stage != Stage::settled) settle();
  if (push.expected != headState() || isEnded(_state.kept)) return {HubPushed::Outcome::overtaken, {}};
  Commit commit = commitAfterHead(push.id);
  for (const HubRecord& each : push.records) commit.link.records += each.deleted ? 0 : 1;
  const std::size_t bytes = textBytesOf(push.records);
  _segments.clear();  // of a push that could not be sealed
  commit.link.bytes += static_cast<std::int64_t>(bytes);
  commit.records = push.records;
  if (bytes > kInlineBytes || push.records.size() > kSegmentRecords) {
    commit.segments = sealSegments(std::move(commit.records), _objects, _segments);
    commit.records.clear();
    commit.link.tail += static_cast<std::int64_t>(commit.segments.size());
  }
  const History known(path(), {});
  for (const HubState& each : push.givesAgain) {
    if (each.pushId && !known.hasPush(each.pushId))
      commit.link.givesAgain.push_back({each.revision, each.pushId.toString()});
  }
  const HubPushed::Outcome outcome = giveCommit(std::move(commit));
  if (outcome == HubPushed::Outcome::done) checkpointIfDue();
  return {outcome, headState()};
}

HubPushed::Outcome ChainHub::giveCommit(Commit commit) {
  if (isEnded(_state.kept)) return HubPushed::Outcome::overtaken;
  if (_state.isBlocked) {
    throw PlaceException(Message(
        "The next slot, %1 in %2, holds a damaged object. If it stays so for ten minutes, it is passed "
        "by.",
        "c/" + nameOf(commit.link), _objects.whereabouts()));
  }
  Link link = commit.link;
  _commit = _objects.sealCommit(commit, link);
  _state = beginPush(std::move(_state), link);
  const auto wasNotSent = [this] {
    return _state.stage == Stage::resolve && _state.gives && _state.tries == 1;
  };
  try {
    carryOut();
  } catch (const PlaceFullException&) {
    if (!wasNotSent()) throw;
    _state = withdrawn(std::move(_state));
    keep();
    return HubPushed::Outcome::full;
  } catch (const PlaceException&) {
    if (!wasNotSent()) throw;
    _state = withdrawn(std::move(_state));
    keep();
    throw;
  }
  return isIn(path(), link) ? HubPushed::Outcome::done : HubPushed::Outcome::overtaken;
}

// The push stands already: whatever is in the way of a checkpoint is left to the next push.
void ChainHub::checkpointIfDue() {
  try {
    if (isCheckpointDue(*_state.kept.head()) && checkpoint(_state.kept.head()->number)) collect();
  } catch (const PlatformException& exception) {
    SCLog("No checkpoint is made: %@", exception.reason());
  }
}

// A checkpoint after the head that continues the states up to number `keeps`, which are `states`.
Commit ChainHub::checkpointAfterHead(std::int64_t keeps, const std::vector<PastState>& states,
                                     ChainObjects& objects, std::vector<NamedBytes>& segments) {
  AccountRecords all(_objects);
  readAll(all);
  Commit commit = commitAfterHead(Platform::current().uuids.newUuid());
  Snapshot& snapshot = commit.snapshot.emplace();
  if (startsWithCheckpoint()) snapshot.forgotten = _objects.commit(path().front()).snapshot->forgotten;
  double newest = 0;
  for (const PastState& each : states) newest = std::max(newest, each.date.seconds);
  for (const PastState& each : states) {
    if (newest - each.date.seconds > kTombstoneSeconds)
      snapshot.forgotten = std::max(snapshot.forgotten, each.number);
  }
  commit.link.isCheckpoint = true;
  commit.link.keeps = keeps;
  std::vector<Link> kept = path();
  std::erase_if(kept, [&](const Link& link) { return link.number > keeps; });
  commit.link.givesAgain = History(std::move(kept), {}).givenAgainSince(0, kToldGivenAgain);
  commit.link.records = all.liveCount();
  commit.link.bytes = all.liveBytes();
  std::vector<HubRecord> records = all.release();
  std::erase_if(records,
                [&](const HubRecord& each) { return each.deleted && each.revision <= snapshot.forgotten; });
  snapshot.segments = sealSegments(std::move(records), objects, segments);
  snapshot.history = objects.sealSegment(writeHistory(states), segments.emplace_back());
  commit.link.segments = static_cast<std::int64_t>(segments.size());
  commit.link.tail = 0;
  return commit;
}

// False when another computer was faster.
bool ChainHub::checkpoint(std::int64_t keeps) {
  _segments.clear();
  return giveCommit(checkpointAfterHead(keeps, statesToTell(keeps), _objects, _segments)) ==
         HubPushed::Outcome::done;
}

// The newest states up to number `keeps`, dated by the place.
std::vector<PastState> ChainHub::statesToTell(std::int64_t keeps) {
  std::map<std::string, Date> dates;
  for (const PlaceObject& each : _objects.listCommits()) dates[each.name] = each.date;
  std::vector<PastState> states;
  for (const Link& link : path()) {
    if (link.number <= keeps) states.push_back({link.number, link.pushId, dates[nameOf(link)]});
  }
  std::reverse(states.begin(), states.end());
  // What is told may be what is missing.
  if (keeps == 0) return states;
  for (const PastState& each : told()) {
    if (each.number <= keeps) states.push_back(each);
  }
  if (states.size() > kToldStates) states.resize(kToldStates);
  return states;
}

// Removes what nobody needs any more. What cannot be read shows nothing to be superfluous.
void ChainHub::collect() {
  const std::vector<PlaceObject> commits = _objects.listCommits();
  std::vector<std::string> names;
  for (const PlaceObject& each : commits) names.push_back(each.name);
  bool isAllKnown = true;
  std::vector<std::string> named;
  for (const Found& each : _objects.find(names)) {
    isAllKnown = isAllKnown && each.state == Found::State::good;
    if (!isAllKnown) break;
    const Commit& commit = _objects.commit(each.link);
    for (const SegmentRef& segment : commit.segments) named.push_back(segment.name);
    if (!commit.snapshot) continue;
    named.push_back(commit.snapshot->history.name);
    for (const SegmentRef& segment : commit.snapshot->segments) named.push_back(segment.name);
  }
  std::sort(named.begin(), named.end());
  const std::int64_t lastButOne = path().front().before;
  Collectable found = collectable(commits, _objects.listSegments(), lastButOne, named);
  if (!isAllKnown) found.segments.clear();
  _objects.remove(found.commits, found.segments);
}

}  // namespace corvane::pelto
