#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"

#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

std::int64_t writeEdit(TruthStore& store, SessionEntry entry, const StoredTruth& truth,
                       const std::vector<TruthChange>& changes) {
  const std::vector<BaseRecord> noBase;
  const std::vector<ContentId> noRows;
  ContentRows contents(store.database(), truth.records, truth.contents, noBase, noRows, changes.size());
  RecordTable(store).apply(changes, entry.revision, contents);
  entry.ended = Platform::current().clock.now();
  return SessionLog(store).enter(entry, changes, {}, contents);
}

}  // namespace

std::optional<std::int64_t> editTruth(TruthStore& store, const String& author, SessionKind kind,
                                      const TruthPlanner& plan) {
  std::optional<std::int64_t> session;
  store.writing([&] {
    SessionEntry entry;
    entry.client = author;
    entry.began = Platform::current().clock.now();
    entry.mode = static_cast<int>(kind);
    RecordTable records(store);
    const TruthState state = records.state();
    entry.revision = state.revision + 1;
    const StoredTruth truth = records.readAll();
    const std::vector<TruthChange> changes = plan(truth.records, state);
    if (changes.empty()) return;
    entry.changed = changes.size();
    session = writeEdit(store, std::move(entry), truth, changes);
  });
  return session;
}

}  // namespace corvane::loomer
