#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tools/loomerctl/SyncState.h"
#include "tools/loomerctl/report/Markup.h"
#include "tools/loomerctl/report/ReportTree.h"

namespace corvane::loomerctl {

/// One value that lost a conflict, and the session in which it did.
struct LostValue {
  loomer::SessionEntry session;
  loomer::Loss loss;
};

/// What a report tells of, at one moment.
struct ReportFacts {
  loomer::TruthStore& store;
  Date now;
  SyncState sync;
  std::vector<loomer::SessionEntry> sessions;  ///< newest first
  std::vector<LostValue> losses;               ///< newest first
  ReportTree tree;

  /// How people know the client of a session: its name where no other one has it, else its identifier.
  /// Printable.
  std::string clientName(const String& identifier) const;
  /// How many values lost a conflict in the session.
  std::size_t conflictsIn(const loomer::SessionEntry& session) const;
};

/// Reads them, in the store's open transaction. `store` must outlive the answer.
ReportFacts reportFacts(loomer::TruthStore& store);

/// A section, with its heading and its id.
using WriteSection = void (*)(const ReportFacts& facts, const PageSink& sink);

void writeOverview(const ReportFacts& facts, const PageSink& sink);
void writeClientSection(const ReportFacts& facts, const PageSink& sink);
void writeSessionSection(const ReportFacts& facts, const PageSink& sink);
void writeChangeSection(const ReportFacts& facts, const PageSink& sink);
void writeConflictSection(const ReportFacts& facts, const PageSink& sink);
void writeTidyingSection(const ReportFacts& facts, const PageSink& sink);
void writeBookmarkSection(const ReportFacts& facts, const PageSink& sink);

}  // namespace corvane::loomerctl
