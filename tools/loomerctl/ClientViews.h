#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tools/loomerctl/JsonWriter.h"

namespace corvane::loomerctl {

/// What the user's store, and the note of failed runs beside it, say of one client.
struct ClientView {
  /// The identifier alone for a client that is not registered: a run of it failed before it could be.
  loomer::ClientState state;
  bool isRegistered = true;
  String name;                  ///< for people; absent where the description has none
  String tool, image;           ///< paths relative to the description; absent like the name
  std::size_t held = 0;         ///< records
  bool changesMayWait = false;  ///< the truth changed since its last session
  bool isPaused = false;        ///< by the user, in the browser that it stands for
  std::optional<loomer::Refusal> refusal;
  std::vector<loomer::KeptFile> kept;
  loomer::FailedRunsOfClient failed;
  std::optional<loomer::SessionEntry> lastChange;  ///< its newest session in the log
  std::size_t conflicts = 0;                       ///< in that session
};

/// Every registered client, by identifier.
std::vector<ClientView> clientViews(loomer::TruthStore& store);
/// As above, with the clients of bookmarks files and browsers that have failed before they were registered.
std::vector<ClientView> clientViewsWithFailed(loomer::TruthStore& store);

/// Whether the client stands for the online service.
bool isOnlineService(const ClientView& view);
/// Whether the client stands for a profile of Chromium or Firefox.
bool isBrowser(const ClientView& view);
/// Whether the newest run of the client failed.
bool isFailing(const ClientView& view);
/// When a run of the client ended last, well or not; nothing before the first.
std::optional<Date> lastTried(const ClientView& view);

/// "Corvane (com.keldra.Corvane)".
std::string nameText(const ClientView& view);
/// As people know one of them: "Corvane" where no other one is called so, else "com.keldra.Corvane".
std::string shortNameText(const std::vector<ClientView>& all, const ClientView& view);
/// What the client's next session is about: "up to date", "first session", ….
std::string nextText(const ClientView& view);
/// Whether somebody decided, or has to decide, about the client's next session.
bool isWaiting(const ClientView& view);
/// The member "refusedPlan" of an open object.
void writeRefusal(JsonWriter& json, const std::optional<loomer::Refusal>& refusal);

}  // namespace corvane::loomerctl
