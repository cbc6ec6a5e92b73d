#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::loomer {

namespace {

constexpr const char* kAll = "All";
constexpr const char* kInARow = "InARow";
constexpr const char* kSince = "Since";
constexpr const char* kLast = "Last";
constexpr const char* kCause = "Cause";  // in English, for those who read the file without the program
constexpr const char* kMessage = "Message";

// The parts of a message with placeholders.
constexpr const char* kText = "Text";
constexpr const char* kValues = "Values";
constexpr const char* kSingular = "Singular";
constexpr const char* kCount = "Count";

// Far deeper than any cause of a cause.
constexpr int kMostDepth = 16;

std::int64_t countIn(const Dictionary& runs, const char* key) {
  const Value* const value = runs.find(key);
  const auto* const count = value ? value->as<std::int64_t>() : nullptr;
  return count ? std::max<std::int64_t>(*count, 0) : 0;
}

// A text that is the same in every language is a string, a number an integer.
Value stored(const Message& message) {
  if (message.kind == Message::Kind::same) return String(message.english);
  if (message.kind == Message::Kind::number) return message.number;
  std::vector<Value> values;
  for (const Message& each : message.values) values.push_back(stored(each));
  Dictionary dictionary{{kText, message.english}, {kValues, Array(std::move(values))}};
  if (message.kind == Message::Kind::counted) {
    dictionary.set(kSingular, message.singular);
    dictionary.set(kCount, message.number);
  }
  return dictionary;
}

std::optional<std::uint64_t> numberIn(const Value* value) {
  const auto* const number = value ? value->as<std::int64_t>() : nullptr;
  return number && *number >= 0 ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
}

// Nothing for what is no message.
std::optional<Message> messageIn(const Value& value, int depth = 0) {
  if (const String text = value.string()) return Message(text.toString());
  Message message;
  if (const auto number = numberIn(&value)) {
    message.kind = Message::Kind::number;
    message.number = *number;
    return message;
  }
  const auto* const dictionary = value.as<Dictionary>();
  const Array* const values = dictionary ? dictionary->array(kValues) : nullptr;
  if (!values || !dictionary->string(kText) || depth == kMostDepth) return std::nullopt;
  message.kind = Message::Kind::text;
  message.english = dictionary->string(kText).toString();
  if (const auto count = numberIn(dictionary->find(kCount))) {
    message.kind = Message::Kind::counted;
    message.number = *count;
    message.singular = dictionary->string(kSingular).toString();
  }
  for (const Value& each : *values) {
    auto part = messageIn(each, depth + 1);
    if (!part) return std::nullopt;
    message.values.push_back(*std::move(part));
  }
  return message;
}

// Earlier versions kept the English text alone.
Message causeIn(const Dictionary& runs) {
  const Value* const kept = runs.find(kMessage);
  std::optional<Message> message = kept ? messageIn(*kept) : std::nullopt;
  return message ? *std::move(message) : Message(runs.string(kCause).toString());
}

FailedRunsOfClient runsIn(const Dictionary& stored) {
  FailedRunsOfClient runs;
  runs.all = countIn(stored, kAll);
  runs.inARow = countIn(stored, kInARow);
  runs.since = stored.date(kSince).value_or(Date());
  runs.last = stored.date(kLast).value_or(Date());
  runs.cause = causeIn(stored);
  return runs;
}

Dictionary stored(const FailedRunsOfClient& runs) {
  return {{kAll, runs.all},   {kInARow, runs.inARow},           {kSince, runs.since},
          {kLast, runs.last}, {kCause, runs.cause.inEnglish()}, {kMessage, stored(runs.cause)}};
}

FailedRunsOfClient runsOf(const Dictionary& all, const String& client) {
  const Dictionary* const runs = all.dictionary(client.view());
  return runs ? runsIn(*runs) : FailedRunsOfClient();
}

}  // namespace

FailedRuns::FailedRuns(const std::string& storePath)
    : _path(storePath.substr(0, storePath.rfind('/') + 1) + "FailedRuns.plist") {}

std::map<std::string, FailedRunsOfClient> FailedRuns::all() const {
  std::map<std::string, FailedRunsOfClient> runs;
  const Dictionary all = read();
  for (const auto& [client, value] : all) {
    if (value.as<Dictionary>()) runs.emplace(client.toString(), runsOf(all, client));
  }
  return runs;
}

void FailedRuns::note(const String& client, const Message& cause) const {
  Dictionary all = read();
  FailedRunsOfClient runs = runsOf(all, client);
  runs.last = Platform::current().clock.now();
  if (runs.inARow == 0) runs.since = runs.last;
  ++runs.inARow;
  ++runs.all;
  runs.cause = cause;
  all.set(client, stored(runs));
  write(all);
}

void FailedRuns::endRow(const String& client) const {
  Dictionary all = read();
  FailedRunsOfClient runs = runsOf(all, client);
  if (runs.inARow == 0) return;
  runs.inARow = 0;
  all.set(client, stored(runs));
  write(all);
}

void FailedRuns::forget(const String& client) const {
  Dictionary all = read();
  if (!all.find(client)) return;
  all.remove(client);
  write(all);
}

Dictionary FailedRuns::read() const {
  std::string bytes;
  if (Platform::current().files.read(_path, bytes)) return {};
  try {
    const Value top = readPropertyList(bytes);
    if (const auto* const runs = top.as<Dictionary>()) return *runs;
  } catch (const PropertyListException& exception) {
    SCLog("%@ is not what was written there: %@", _path, exception.reason());
  }
  return {};
}

void FailedRuns::write(const Dictionary& runs) const {
  const PrivateFileError problem = makePrivateDirectory(_path.substr(0, _path.rfind('/')));
  const std::error_code error =
      problem ? problem.error
              : Platform::current().files.writeAtomically(_path, writeBinaryPropertyList(runs));
  if (error) SCLog("Could not note in %@ how the run ended: %@", _path, error.message());
}

}  // namespace corvane::loomer
