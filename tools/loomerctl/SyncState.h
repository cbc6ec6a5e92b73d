#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/loomerctl/BookmarksFiles.h"
#include "tools/loomerctl/ClientViews.h"
#include "tools/loomerctl/UserUnits.h"

namespace corvane::loomerctl {

/// How it goes with the online service, as far as this computer knows without asking it.
struct ServiceState {
  std::string place;  ///< in words, without secrets
  bool isOn = false;  ///< bookmarks are synced with it
  std::optional<Date> reached;
  std::size_t waiting = 0;  ///< records that were changed here since the last exchange
  bool hasRoom = true;      ///< for what changes here, as far as the last exchange found
  std::size_t notHeld = 0;  ///< records that it does not take: the account is full, or they are too long
  loomer::FailedRunsOfClient failed;
  std::string problem;  ///< why the account cannot be read; empty where it can
};

/// A command that goes on from a concern, and what for.
struct Way {
  std::string command;
  std::string purpose;
};

/// Something that is not well.
struct Concern {
  const char* kind;        ///< for programs: "refused", "file", "failing", "service", …
  bool needsUser = false;  ///< it stays until somebody does something; else it may pass
  std::string text;        ///< sentences
  std::vector<Way> ways;
};

/// How the syncing goes, all of it.
struct SyncState {
  std::string storePath;
  std::uint64_t storeBytes = 0;
  loomer::TruthState truth;
  loomer::RecordCounts records;
  std::size_t sessions = 0;             ///< in the log
  std::vector<ClientView> clients;      ///< those that never could be registered included
  std::optional<ServiceState> service;  ///< nothing where no account is set
  EnabledUnits units;                   ///< by which it syncs by itself
  std::optional<Date> running;          ///< since when a run has been going on
  std::vector<Concern> concerns;        ///< the pressing ones first; none where all is well

  /// Whether it syncs by itself.
  bool isAutomatic() const { return units.timer || !units.clients.empty(); }
  /// Of the registered ones, that which ended a session last; null before the first.
  const ClientView* lastSynced() const;
};

/// Looks at the store, what lies beside it, and the clients' files. Changes nothing and asks nobody.
SyncState syncState(loomer::TruthStore& store, BookmarksFiles& files);

}  // namespace corvane::loomerctl
