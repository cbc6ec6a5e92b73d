#include "CorvaneSyncClient/platform/pelto/chain/KeptFile.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::pelto::chain {

namespace {

Data dataOf(const std::string& bytes) { return Data(bytes); }

template <typename Items>
Array arrayOf(const Items& items);

Dictionary dictionaryOf(const Sighting& sighting) {
  return {{"name", sighting.name}, {"hash", dataOf(sighting.hash)}, {"since", sighting.since}};
}

Dictionary dictionaryOf(const Count& count) {
  return {{"hash", dataOf(count.hash)}, {"records", count.records}, {"bytes", count.bytes}};
}

Dictionary dictionaryOf(const GivenAgain& state) {
  return {{"number", state.number}, {"push", state.pushId}};
}

Dictionary dictionaryOf(const Link& link) {
  return {{"number", link.number},
          {"hash", dataOf(link.hash)},
          {"previous", dataOf(link.previous)},
          {"attempt", link.attempt},
          {"push", link.pushId},
          {"checkpoint", link.isCheckpoint},
          {"keeps", link.keeps},
          {"before", link.before},
          {"tail", link.tail},
          {"records", link.records},
          {"bytes", link.bytes},
          {"segments", link.segments},
          {"last", link.isLast},
          {"again", arrayOf(link.givesAgain)}};
}

template <typename Items>
Array arrayOf(const Items& items) {
  std::vector<Value> values;
  for (const auto& each : items) values.emplace_back(dictionaryOf(each));
  return Array(std::move(values));
}

// A value that is not there, of another type, or none that is ever written there, makes the whole file one
// that cannot be read.
struct Malformed {};

template <typename T>
const T& entry(const Dictionary& entries, const char* key) {
  const Value* const value = entries.find(key);
  const T* const typed = value ? value->as<T>() : nullptr;
  if (!typed) throw Malformed();
  return *typed;
}

const Dictionary& dictionaryIn(const Value& value) {
  const auto* const entries = value.as<Dictionary>();
  if (!entries) throw Malformed();
  return *entries;
}

std::string bytesIn(const Dictionary& entries, const char* key) {
  return std::string(entry<Data>(entries, key).bytes());
}

Link linkIn(const Dictionary& entries) {
  Link link;
  link.number = entry<std::int64_t>(entries, "number");
  link.hash = bytesIn(entries, "hash");
  link.previous = bytesIn(entries, "previous");
  const std::int64_t attempt = entry<std::int64_t>(entries, "attempt");
  if (link.number < 1 || link.hash.size() != kHashBytes || link.previous.size() != kHashBytes ||
      attempt < 0 || attempt > kMostAttempts)
    throw Malformed();
  link.attempt = static_cast<int>(attempt);
  link.pushId = entry<String>(entries, "push").toString();
  link.isCheckpoint = entry<bool>(entries, "checkpoint");
  link.keeps = entry<std::int64_t>(entries, "keeps");
  link.before = entry<std::int64_t>(entries, "before");
  link.tail = entry<std::int64_t>(entries, "tail");
  link.records = entry<std::int64_t>(entries, "records");
  link.bytes = entry<std::int64_t>(entries, "bytes");
  link.segments = entry<std::int64_t>(entries, "segments");
  link.isLast = entry<bool>(entries, "last");
  for (const Value& each : entry<Array>(entries, "again")) {
    const Dictionary& state = dictionaryIn(each);
    link.givesAgain.push_back(
        {entry<std::int64_t>(state, "number"), entry<String>(state, "push").toString()});
  }
  return link;
}

std::vector<Sighting> sightingsIn(const Array& values) {
  std::vector<Sighting> sightings;
  for (const Value& each : values) {
    const Dictionary& entries = dictionaryIn(each);
    sightings.push_back(
        {entry<String>(entries, "name").toString(), bytesIn(entries, "hash"), entry<Date>(entries, "since")});
  }
  return sightings;
}

KeptContents contentsIn(const Dictionary& entries) {
  KeptContents contents;
  Kept& kept = contents.kept;
  for (const Value& each : entry<Array>(entries, "path")) kept.path.push_back(linkIn(dictionaryIn(each)));
  kept.verified = entry<std::int64_t>(entries, "verified");
  kept.damaged = sightingsIn(entry<Array>(entries, "damaged"));
  kept.missing = sightingsIn(entry<Array>(entries, "missing"));
  const Dictionary& counted = entry<Dictionary>(entries, "counted");
  kept.counted = {bytesIn(counted, "hash"), entry<std::int64_t>(counted, "records"),
                  entry<std::int64_t>(counted, "bytes")};
  kept.surveyed = entry<Date>(entries, "surveyed");
  kept.isReviewed = entries.find("reviewed") && entry<bool>(entries, "reviewed");
  for (const auto& [name, tag] : entry<Dictionary>(entries, "tags")) {
    const std::string text = tag.string().toString();
    for (const Link& link : kept.path) {
      if (name == nameOf(link)) contents.tags[nameOf(link)] = {link, text};
    }
  }
  if (!entries.find("undecided")) return contents;
  const Dictionary& undecided = entry<Dictionary>(entries, "undecided");
  kept.undecided = linkIn(entry<Dictionary>(undecided, "link"));
  contents.commit = bytesIn(undecided, "commit");
  for (const Value& each : entry<Array>(undecided, "segments")) {
    const Dictionary& segment = dictionaryIn(each);
    contents.segments.push_back({entry<String>(segment, "name").toString(), bytesIn(segment, "bytes")});
  }
  return contents;
}

[[noreturn]] void fail(const std::string& path, const std::error_code& error) {
  throw PlaceException(
      Message("Can't write %1: %2. Nothing is given before that is possible.", path, error.message()));
}

}  // namespace

KeptFile::KeptFile(std::string path, std::string chain) : _path(std::move(path)), _chain(std::move(chain)) {}

KeptContents KeptFile::read() const {
  std::string bytes;
  const std::error_code error = readPrivateFile(_path, bytes);
  if (error == std::errc::no_such_file_or_directory) return {};
  std::string cause = error.message();
  if (!error) {
    try {
      const Value value = readPropertyList(bytes);
      const Dictionary& entries = dictionaryIn(value);
      if (entry<String>(entries, "chain") != _chain) return {};
      return contentsIn(entries);
    } catch (const PropertyListException& exception) {
      cause = exception.reason();
    } catch (const Malformed&) {
      cause = "it is not what this program writes there";
    }
  }
  systemLog("%@ can't be used: %@. What it kept is read from the online service again", _path.c_str(),
            cause.c_str());
  return {};
}

void KeptFile::write(const KeptContents& contents) const {
  const Kept& kept = contents.kept;
  Dictionary entries{{"chain", _chain},
                     {"path", arrayOf(kept.path)},
                     {"verified", kept.verified},
                     {"damaged", arrayOf(kept.damaged)},
                     {"missing", arrayOf(kept.missing)},
                     {"counted", dictionaryOf(kept.counted)},
                     {"surveyed", kept.surveyed},
                     {"reviewed", kept.isReviewed}};
  Dictionary tags;
  for (const Link& link : kept.path) {
    const auto tagged = contents.tags.find(nameOf(link));
    if (tagged != contents.tags.end() && tagged->second.link.hash == link.hash)
      tags.set(nameOf(link), tagged->second.tag);
  }
  entries.set("tags", std::move(tags));
  if (kept.undecided) {
    Array segments;
    for (const NamedBytes& each : contents.segments)
      segments.append(Dictionary{{"name", each.name}, {"bytes", dataOf(each.bytes)}});
    entries.set("undecided", Dictionary{{"link", dictionaryOf(*kept.undecided)},
                                        {"commit", dataOf(contents.commit)},
                                        {"segments", std::move(segments)}});
  }
  if (const auto problem = makePrivateDirectory(_path.substr(0, _path.rfind('/'))))
    fail(problem.path, problem.error);
  const auto problem = setMode(_path, kPrivateFileMode);
  if (problem && problem.error != std::errc::no_such_file_or_directory) fail(_path, problem.error);
  const PrivateUmask umask;
  if (const auto error = Platform::current().files.writeAtomically(_path, writeBinaryPropertyList(entries)))
    fail(_path, error);
}

}  // namespace corvane::pelto::chain
