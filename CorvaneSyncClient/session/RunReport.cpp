#include "CorvaneSyncClient/session/RunReport.h"

#include <exception>
#include <new>
#include <string_view>

#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

namespace corvane {

namespace {

loomer::FailedRuns failedRuns() {
  return loomer::FailedRuns(loomer::storePathForHome(Platform::current().process.homeDirectory()));
}

// The engine's error by itself, where the message is about a session.
std::string causeIn(std::string_view message) {
  std::string_view before = kSessionFailed;
  before.remove_suffix(std::string_view("%@").size());
  if (message.starts_with(before)) message.remove_prefix(before.size());
  return std::string(message);
}

}  // namespace

void RunReport::ended(bool succeeded) {
  if (succeeded) return failedRuns().endRow(_clientId);
  note(causeIn(_log.lastMessage()));
}

void RunReport::raised() noexcept {
  try {
    try {
      throw;
    } catch (const std::bad_alloc&) {
      note("There was not enough memory.");
    } catch (const std::exception& exception) {
      note(exception.what());
    } catch (...) {
      note("An exception of an unknown kind.");
    }
  } catch (...) {
    SCLog("There was no memory to note why the run failed");
  }
}

void RunReport::note(const std::string& cause) const { failedRuns().note(_clientId, cause); }

}  // namespace corvane
