#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"

#include <algorithm>
#include <system_error>

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
constexpr const char* kCause = "Cause";

std::int64_t countIn(const Dictionary& runs, const char* key) {
  const Value* const value = runs.find(key);
  const auto* const count = value ? value->as<std::int64_t>() : nullptr;
  return count ? std::max<std::int64_t>(*count, 0) : 0;
}

FailedRunsOfClient runsIn(const Dictionary& stored) {
  FailedRunsOfClient runs;
  runs.all = countIn(stored, kAll);
  runs.inARow = countIn(stored, kInARow);
  runs.since = stored.date(kSince).value_or(Date());
  runs.last = stored.date(kLast).value_or(Date());
  runs.cause = stored.string(kCause);
  return runs;
}

Dictionary stored(const FailedRunsOfClient& runs) {
  return {{kAll, runs.all},
          {kInARow, runs.inARow},
          {kSince, runs.since},
          {kLast, runs.last},
          {kCause, runs.cause}};
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

void FailedRuns::note(const String& client, const std::string& cause) const {
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
