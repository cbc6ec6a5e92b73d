#include <algorithm>

#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto {

using namespace chain;

template <typename Work>
void ChainHub::withWhatIsMissing(const Work& work) {
  for (bool isFirst = true;; isFirst = false) {
    try {
      _reading.reset();
      return work();
    } catch (const MissingObject& missing) {
      if (!_reading) throw;
      if (!isFirst) passBy(Link(*_reading), missing);
      _state.kept.path.clear();
      settle();
    }
  }
}

bool ChainHub::hasPush(const String& pushId) {
  open();
  if (_state.stage != Stage::settled) settle();
  bool isThere = false;
  withWhatIsMissing(
      [&] { isThere = History(path(), {}).hasPush(pushId) || History({}, told()).hasPush(pushId); });
  return isThere;
}

RemoteChanges ChainHub::remoteChanges(const std::vector<HubState>& seen) {
  RemoteChanges remote;
  if (!isEnabled(kHubDataClass)) return remote;
  open();
  settle();
  withWhatIsMissing([&] { remote = readChanges(seen); });
  return remote;
}

// The commit's writer still has what it gave, and gives it again once it sees that its state is no longer a
// part of the history.
void ChainHub::passBy(const Link& link, const MissingObject& missing) {
  const std::string what = missing.reason() + " The commit " + nameOf(link) + " needs it. ";
  if (link.isCheckpoint) {
    throw PlaceException(what +
                         "Remove the commit's object: the computers of the account then give everything "
                         "again.");
  }
  const Sighting sighting{nameOf(link), {}, Platform::current().clock.now()};
  const bool isOver = isForGood(_state.kept.missing, sighting, _state.now, kMissingSeconds);
  keep();
  if (!isOver) throw PlaceException(what + "If it stays missing for a day, the commit is passed by.");
  _passedBy.push_back(link);
  const auto byNumber = [](const Link& one, const Link& other) { return one.number < other.number; };
  const Link first = *std::min_element(_passedBy.begin(), _passedBy.end(), byNumber);
  try {
    checkpoint(first.number - 1);
  } catch (const MissingObject& another) {
    if (!_reading) throw;
    passBy(Link(*_reading), another);
  }
}

void ChainHub::takeCommit(AccountRecords& records, const Link& link) {
  _reading = link;
  if (!isIn(_passedBy, link)) records.takeCommit(link);
  _reading.reset();
}

void ChainHub::readAll(AccountRecords& records) {
  for (const Link& link : std::vector<Link>(path())) {
    if (!link.isCheckpoint) {
      takeCommit(records, link);
    } else if (link.hash == path().front().hash) {
      _reading = link;
      records.takeSnapshot(link);
      _reading.reset();
    }
  }
}

const std::vector<PastState>& ChainHub::told() {
  static const std::vector<PastState> kNone;
  if (!startsWithCheckpoint()) return kNone;
  const Link checkpoint = path().front();
  if (_told && _told->first == checkpoint.hash) return _told->second;
  _reading = checkpoint;
  const SegmentRef history = _objects.commit(checkpoint).snapshot->history;
  _objects.readSegments({history}, [&](const std::string& contents) {
    try {
      _told.emplace(checkpoint.hash, readHistory(contents));
    } catch (const ContentsException& exception) {
      throw PlaceException("Can't read the history in " + _objects.whereabouts() + ": " + exception.reason() +
                           ".");
    }
  });
  _reading.reset();
  return _told->second;
}

// What the last checkpoint tells is only read where the path alone does not reach back far enough.
History ChainHub::history(const std::vector<HubState>& seen) {
  const bool reaches = !seen.empty() && !path().empty() && seen.front().revision >= path().front().number &&
                       History(path(), {}).contains(seen.front().revision, seen.front().pushId);
  return {path(), reaches ? std::vector<PastState>() : told()};
}

RemoteChanges ChainHub::readChanges(const std::vector<HubState>& seen) {
  RemoteChanges remote;
  remote.enabled = true;
  remote.now = headState();
  const History known = history(seen);
  remote.common = known.newestCommon(seen, remote.now.account);
  const std::int64_t since = remote.common ? remote.common->revision : 0;
  for (const std::int64_t each : sampledRevisions(since, remote.now.revision)) {
    if (const auto pushId = known.pushOf(each)) remote.past.push_back({remote.now.account, each, *pushId});
  }
  const bool isOurs = !seen.empty() && seen.front().account == remote.now.account;
  if (isOurs) remote.givenAgain = known.firstGivenAgain(seen, remote.common);
  for (const GivenAgain& each : known.givenAgainSince(since, kGivenAgainAtOnce))
    remote.pastGivenAgain.push_back({remote.now.account, each.number, String(each.pushId)});
  readRecords(seen, remote);
  measureRoom(remote);
  return remote;
}

void ChainHub::readRecords(const std::vector<HubState>& seen, RemoteChanges& remote) {
  const bool continues = remote.common && *remote.common == seen.front();
  const std::int64_t common = remote.common ? remote.common->revision : 0;
  AccountRecords records(_objects);
  const std::int64_t first = startsWithCheckpoint() ? path().front().number : 0;
  if (continues && common >= first) {
    for (const Link& link : std::vector<Link>(path())) {
      if (link.number > common && !link.isCheckpoint) takeCommit(records, link);
    }
    remote.records = records.release();
    return;
  }
  readAll(records);
  const std::int64_t forgotten =
      startsWithCheckpoint() ? _objects.commit(path().front()).snapshot->forgotten : 0;
  remote.whole = !continues || common < forgotten;
  remote.records = records.release();
  std::erase_if(remote.records, [&](const HubRecord& record) {
    const bool isNew = remote.common && record.revision > common;
    return remote.whole ? record.deleted && (!isNew || continues) : !isNew;
  });
}

Count ChainHub::countAtHead() const {
  const Link* const head = _state.kept.head();
  if (!head) return {};
  if (_state.kept.counted.hash == head->hash) return _state.kept.counted;
  return {head->hash, head->records, head->bytes};
}

void ChainHub::measureRoom(RemoteChanges& remote) {
  Count count = countAtHead();
  const bool isExact = _state.kept.counted.hash == count.hash || path().empty();
  if (!isExact && (count.records >= _options.mostRecords || count.bytes >= _options.mostBytes)) {
    AccountRecords records(_objects);
    readAll(records);
    count = {count.hash, records.liveCount(), records.liveBytes()};
    _state.kept.counted = count;
    keep();
  }
  remote.room = _options.mostRecords - count.records;
  remote.roomForBytes = _options.mostBytes - count.bytes;
}

}  // namespace corvane::pelto
