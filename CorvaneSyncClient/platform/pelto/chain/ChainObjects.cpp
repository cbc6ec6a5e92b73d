#include "CorvaneSyncClient/platform/pelto/chain/ChainObjects.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto::chain {

namespace {

// Of a sealed object: what zstd and padding may add to contents that do not shrink.
constexpr std::size_t kMostBytes = kMostContents + kMostContents / 128 + 4096;

[[noreturn]] void failNewer(const std::string& object, const NewerContentsException& exception) {
  throw PlaceException(Message("Can't read %1: %2.", object, exception.message()));
}

}  // namespace

ChainObjects::ChainObjects(Place& place, const Sealer& sealer)
    : _place(place), _sealer(sealer), _folder(sealer.folder()) {}

Message ChainObjects::whereabouts() const { return Message("%1 at %2", _folder, _place.description()); }

std::vector<Found> ChainObjects::find(const std::vector<std::string>& names) {
  std::vector<Found> found;
  for (std::size_t at = 0; at < names.size(); at += kAtOnce) {
    const std::size_t end = std::min(names.size(), at + kAtOnce);
    std::vector<GetRequest> requests;
    for (std::size_t i = at; i < end; ++i) {
      const auto tagged = _tags.find(names[i]);
      // Whether a snapshot is whole is told by the checkpoint's contents.
      const bool hasTag = tagged != _tags.end() && !(_listedSegments && tagged->second.link.isCheckpoint);
      requests.push_back({.name = commitObject(names[i]),
                          .writing = Writing::contested,
                          .tag = hasTag ? tagged->second.tag : std::string(),
                          .mostBytes = kMostBytes});
    }
    const std::vector<GetAnswer> answers = _place.get(requests);
    for (std::size_t i = at; i < end; ++i) found.push_back(foundIn(names[i], answers[i - at]));
  }
  return found;
}

Found ChainObjects::foundIn(const std::string& name, const GetAnswer& answer) {
  if (answer.state == GetAnswer::State::absent) {
    _tags.erase(name);
    return {};
  }
  if (answer.state == GetAnswer::State::unchanged) {
    const Link& link = _tags.at(name).link;
    return {Found::State::good, link, link.hash};
  }
  _tags.erase(name);
  if (answer.state == GetAnswer::State::tooLong)
    return {Found::State::damaged, {}, _sealer.hash("longer than any commit")};
  Found found = opened(name, answer.bytes);
  if (found.state == Found::State::good && !answer.tag.empty()) _tags[name] = {found.link, answer.tag};
  return found;
}

Found ChainObjects::opened(const std::string& name, const std::string& bytes) {
  const std::string object = commitObject(name);
  Found found{Found::State::damaged, {}, _sealer.hash(bytes)};
  const auto contents = _sealer.open(object, bytes, kMostContents);
  if (!contents) return found;
  try {
    Commit commit = readCommit(*contents);
    commit.link.hash = found.hash;
    commit.link.attempt = slotNamed(name).value_or(Slot{}).attempt;
    if (nameOf(commit.link) != name) return found;
    if (commit.snapshot) commit.link.isWhole = isWhole(*commit.snapshot);
    found.link = commit.link;
    found.state = Found::State::good;
    _commits.insert_or_assign(found.hash, std::move(commit));
  } catch (const NewerContentsException& exception) {
    failNewer(object, exception);
  } catch (const ContentsException&) {
    // Sealed by this account, and yet no commit: like any other damage.
  }
  return found;
}

bool ChainObjects::isWhole(const Snapshot& snapshot) {
  if (!_listedSegments) return true;
  const auto isThere = [this](const SegmentRef& segment) {
    return std::binary_search(_listedSegments->begin(), _listedSegments->end(),
                              PlaceObject{segment.name, 0, {}},
                              [](const PlaceObject& a, const PlaceObject& b) { return a.name < b.name; });
  };
  return isThere(snapshot.history) &&
         std::all_of(snapshot.segments.begin(), snapshot.segments.end(), isThere);
}

const Commit& ChainObjects::commit(const Link& link) {
  if (const auto known = _commits.find(link.hash); known != _commits.end()) return known->second;
  const std::string name = nameOf(link);
  _tags.erase(name);
  find({name});
  const auto known = _commits.find(link.hash);
  if (known == _commits.end())
    throw MissingObject(Message("The commit %1 in %2 is no longer what it was.", name, whereabouts()));
  return known->second;
}

std::vector<PlaceObject> ChainObjects::list(const std::string& folder) {
  std::vector<PlaceObject> objects = _place.list(_folder + "/" + folder);
  for (PlaceObject& each : objects) each.name = each.name.substr(each.name.rfind('/') + 1);
  std::sort(objects.begin(), objects.end(),
            [](const PlaceObject& a, const PlaceObject& b) { return a.name < b.name; });
  return objects;
}

const std::vector<PlaceObject>& ChainObjects::listCommits() {
  _listedCommits = list("c");
  _listedSegments = list("s");
  return _listedCommits;
}

const std::vector<PlaceObject>& ChainObjects::listSegments() {
  if (!_listedSegments) _listedSegments = list("s");
  return *_listedSegments;
}

std::vector<std::string> ChainObjects::readSome(const std::vector<SegmentRef>& segments, std::size_t from) {
  const std::size_t end = std::min(segments.size(), from + kAtOnce);
  std::vector<GetRequest> requests;
  for (std::size_t i = from; i < end; ++i)
    requests.push_back({.name = segmentObject(segments[i].name),
                        .writing = Writing::alone,
                        .tag = {},
                        .mostBytes = kMostBytes});
  const std::vector<GetAnswer> answers = _place.get(requests);
  std::vector<std::string> contents;
  for (std::size_t i = from; i < end; ++i) {
    const std::string& object = requests[i - from].name;
    const GetAnswer& answer = answers[i - from];
    if (answer.state == GetAnswer::State::absent)
      throw MissingObject(Message("%1 is missing at %2.", object, _place.description()));
    if (_sealer.hash(answer.bytes) != segments[i].hash)
      throw MissingObject(Message("%1 at %2 is damaged.", object, _place.description()));
    auto opened = _sealer.open(object, answer.bytes, kMostContents);
    if (!opened) throw MissingObject(Message("%1 at %2 can't be opened.", object, _place.description()));
    contents.push_back(std::move(*opened));
  }
  return contents;
}

SegmentRef ChainObjects::sealSegment(const std::string& contents, NamedBytes& object) {
  const String uuid = Platform::current().uuids.newUuid();
  std::string name;
  for (const char each : uuid.view()) {
    if (each != '-') name += each >= 'A' && each <= 'F' ? static_cast<char>(each - 'A' + 'a') : each;
  }
  object.name = segmentObject(name);
  object.bytes = _sealer.seal(object.name, contents);
  return {name, _sealer.hash(object.bytes)};
}

std::string ChainObjects::sealCommit(const Commit& commit, Link& link) const {
  std::string bytes = _sealer.seal(commitObject(nameOf(link)), writeCommit(commit));
  link.hash = _sealer.hash(bytes);
  return bytes;
}

void ChainObjects::putNew(const std::string& name, const std::string& bytes) {
  _place.putNew(commitObject(name), bytes);  // the slot tells what came of it
}

void ChainObjects::remove(const std::vector<std::string>& commits, const std::vector<std::string>& segments) {
  std::vector<std::string> names;
  for (const std::string& each : commits) names.push_back(commitObject(each));
  for (const std::string& each : segments) names.push_back(segmentObject(each));
  if (!names.empty()) _place.remove(names);
}

}  // namespace corvane::pelto::chain
