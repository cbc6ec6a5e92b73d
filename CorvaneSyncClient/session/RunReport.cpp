#include "CorvaneSyncClient/session/RunReport.h"

#include <exception>
#include <new>
#include <string>

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
const Message& causeIn(const Message& message) {
  return message.english == kSessionFailed.english() ? message.values.front() : message;
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
      note(Message("There is not enough memory."));
    } catch (const PlatformException& exception) {
      note(exception.message());
    } catch (const std::exception& exception) {
      note(std::string(exception.what()));
    } catch (...) {
      note(Message("an exception of an unknown kind."));
    }
  } catch (...) {
    SCLog("There was no memory to note why the run failed");
  }
}

void RunReport::note(const Message& cause) const { failedRuns().note(_clientId, cause); }

}  // namespace corvane
