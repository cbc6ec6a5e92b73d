#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::pelto {

using namespace chain;

void ChainHub::withWhatIsMissing(const std::function<void()>& work) {
  for (bool isFirst = true;; isFirst = false) {
    try {
      _reading.reset();
      return work();
    } catch (const MissingObject& missing) {
      if (!_reading) throw;
      const Link link(*_reading);
      const bool isForGood = isMissingForGood(_state.kept, link, _state.now, Platform::current().clock.now());
      if (!isFirst) passBy(link, missing, isForGood);
      _state.kept.path.clear();
      settle();
      replaceLostCheckpoint();
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
  open();
  settle();
  replaceLostCheckpoint();
  withWhatIsMissing([&] { remote = readChanges(seen); });
  return remote;
}

// The writers still have what they gave, and give it again once they see that their state is no longer a part
// of the history.
void ChainHub::passBy(const Link& link, const MissingObject& missing, bool isForGood) {
  keep();
  if (!isForGood) {
    throw PlaceException(sentences(
        sentences(missing.message(), Message("The commit %1 needs it.", nameOf(link))),
        link.isCheckpoint
            ? Message(
                  "Nothing older is left that could stand in for it, so this computer waits. Put it back if "
                  "there is a copy. If it stays missing for a day, the account begins with what came after "
                  "it, and the computers that have the rest give that again when they sync.")
            : Message("If it stays missing for a day, the commit is passed by.")));
  }
  _passedBy.push_back(link);
  try {
    checkpoint(continuedWithout(_passedBy));
  } catch (const MissingObject& another) {
    if (!_reading) throw;
    const Link other(*_reading);
    passBy(other, another, isMissingForGood(_state.kept, other, _state.now, Platform::current().clock.now()));
  }
}

// Where the path goes around a checkpoint of which something is missing: so that the next one does not need
// what is older, which goes at the next collection. What is in the way of that is left to the next one.
void ChainHub::replaceLostCheckpoint() {
  if (!goesAround(path())) return;
  try {
    checkpoint(_state.kept.head()->number);
  } catch (const PlatformException& exception) {
    SCLog("A damaged checkpoint is not replaced: %@", exception.reason());
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
    } else if (link.hash == path().front().hash && !isIn(_passedBy, link)) {
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
      throw PlaceException(
          Message("Can't read the history in %1: %2.", _objects.whereabouts(), exception.message()));
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
  remote.past = known.statesBetween(since, remote.now);
  const bool isOurs = !seen.empty() && seen.front().account == remote.now.account;
  if (isOurs) remote.givenAgain = known.firstGivenAgain(seen, remote.common);
  for (const GivenAgain& each : known.givenAgainSince(since, kToldGivenAgain))
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
    return remote.whole ? record.deleted && (continues || seen.empty()) : !isNew;
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
