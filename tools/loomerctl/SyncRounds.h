#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::loomerctl {

/// Whoever runs sessions.
class SessionRunner {
 public:
  virtual ~SessionRunner() = default;
  /// Runs one session of the client; whether it succeeded.
  virtual bool sync(const String& client) = 0;
  /// Whether another run, or a program that writes bookmarks, is at work.
  virtual bool isBusy() = 0;
  /// Whether a session of the client would find something now: a change of the agreed bookmarks, or one that
  /// the browser made after the last session had read the file.
  virtual bool hasNews(const String& client) = 0;
};

/// How the sessions of a client ended.
enum class SyncEnd {
  succeeded,
  busy,  ///< others were at work all the time
  failed,
};

/// Syncs clients with one another: each once, then those for which that has brought news, until there is none
/// or for five rounds; whoever changes something all the time is synced again the next time. A session that
/// meets others at work is tried three times, five seconds apart.
std::map<std::string, SyncEnd> syncInRounds(const std::vector<String>& clients, SessionRunner& runner);

/// Waits until the file has not been written for two seconds, since browsers write several times in a row;
/// for a minute at most. A date in the future says nothing.
void awaitQuiet(const std::string& path);

}  // namespace corvane::loomerctl
