#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

#include <set>
#include <sstream>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kCheck = MessageText<1>("cannot check it: %1").english();

// What can be done about a finding.
enum class Remedy { rebuild, resetClient, registerAgain, nextSession };

std::string remedyText(Remedy remedy, const std::string& client = "") {
  switch (remedy) {
    case Remedy::resetClient:
      return tr("Run `loomerctl reset %1`: at its next session the client is given everything anew.", client);
    case Remedy::registerAgain:
      return tr("Unregister the client with `corvanetool --unregistersyncclient %1` and sync again.", client);
    case Remedy::nextSession:
      return tr("Sync a client whose bookmarks changed: the session that merges them sets this right.");
    case Remedy::rebuild:
      break;
  }
  return tr(
      "Put a backup of the store in its place; or save what can be read with `loomerctl export FILE`, move "
      "the store and the files beside it (-wal, -shm) away, and sync: the clients' bookmarks build a new "
      "store. Then look through FILE for what is missing.");
}

// Queries answer what is wrong with what, and the client's identifier for the remedy where there is one.
struct Rule {
  TextKey name;
  const char* sql;
  MessageText<1> problem;
  Remedy remedy;
};

constexpr Rule kRules[] = {
    {TextKey("reference"), "SELECT \"table\" || ' ' || coalesce(rowid, '') FROM pragma_foreign_key_check",
     MessageText<1>("a reference leads nowhere: %1"), Remedy::rebuild},
    {TextKey("content"),
     "SELECT what FROM (SELECT 'records ' || id AS what, content FROM records WHERE id > 0"
     " UNION ALL SELECT 'tombstones ' || id, content FROM tombstones"
     " UNION ALL SELECT 'base ' || client || ', ' || record, content FROM base"
     " UNION ALL SELECT 'former_base ' || client || ', ' || record, content FROM former_base"
     " UNION ALL SELECT 'changes ' || session || ', ' || record, before_content FROM changes"
     " UNION ALL SELECT 'changes ' || session || ', ' || record, after_content FROM changes)"
     " WHERE content NOT IN (SELECT id FROM contents)",
     MessageText<1>("what it says is missing: %1"), Remedy::rebuild},
    {TextKey("root missing"), "SELECT 'records 0' WHERE NOT EXISTS (SELECT 1 FROM records WHERE id = 0)",
     MessageText<1>("a row is missing: %1"), Remedy::rebuild},
    {TextKey("parent"),
     "SELECT r.id FROM records r LEFT JOIN records p ON p.id = r.parent"
     " WHERE r.id > 0 AND (p.id IS NULL OR p.entity <> 0)",
     MessageText<1>("the parent is no live folder: record %1"), Remedy::rebuild},
    {TextKey("out of reach"),
     "WITH RECURSIVE reached(id) AS (SELECT 0 UNION"
     " SELECT r.id FROM records r JOIN reached ON r.parent = reached.id)"
     " SELECT id FROM records WHERE id NOT IN (SELECT id FROM reached)",
     MessageText<1>(
         "cannot be reached from the root, the folders above it form a cycle or are gone: record %1"),
     Remedy::rebuild},
    {TextKey("place taken twice"),
     "SELECT min(id) || ', ' || max(id) FROM records NOT INDEXED WHERE id > 0 GROUP BY parent, place"
     " HAVING count(*) > 1",
     MessageText<1>("two siblings share a place: records %1"), Remedy::rebuild},
    {TextKey("special folder twice"),
     "SELECT min(r.id) || ', ' || max(r.id) || ' (' || c.name || ')' FROM records r"
     " JOIN contents c ON c.id = r.content WHERE c.special GROUP BY c.name HAVING count(*) > 1",
     MessageText<1>("two special folders have one title: records %1"), Remedy::nextSession},
    {TextKey("special record"),
     "SELECT r.id FROM records r JOIN contents c ON c.id = r.content"
     " WHERE c.special AND (r.entity <> 0 OR r.parent <> 0)",
     MessageText<1>("special, but no folder directly in the root: record %1"), Remedy::nextSession},
    {TextKey("live and deleted"), "SELECT r.id FROM records r JOIN tombstones t ON t.id = r.id",
     MessageText<1>("both live and deleted: record %1"), Remedy::rebuild},
    {TextKey("counters"),
     "SELECT id FROM (SELECT id, revision FROM records UNION ALL SELECT id, revision FROM tombstones)"
     " WHERE id >= (SELECT next_record FROM truth) OR revision > (SELECT revision FROM truth)",
     MessageText<1>("newer than the counters of the store: record %1"), Remedy::rebuild},
    {TextKey("identifier"),
     "SELECT id FROM (SELECT id, global_id FROM records UNION ALL SELECT id, global_id FROM tombstones)"
     " WHERE typeof(global_id) <> 'blob' OR length(global_id) <> 16",
     MessageText<1>("the identifier is none: record %1"), Remedy::rebuild},
    {TextKey("identifier twice"),
     "SELECT min(id) || ', ' || max(id)"
     " FROM (SELECT id, global_id FROM records UNION ALL"
     " SELECT id, global_id FROM tombstones WHERE id NOT IN (SELECT id FROM records))"
     " GROUP BY global_id HAVING count(*) > 1",
     MessageText<1>("two records have one identifier: records %1"), Remedy::rebuild},
    {TextKey("base of an unknown record"),
     "SELECT c.identifier || ', ' || b.record, c.identifier FROM base b JOIN clients c ON c.id = "
     "b.client"
     " WHERE b.record NOT IN (SELECT id FROM records UNION ALL SELECT id FROM tombstones)",
     MessageText<1>("a base holds a record that is unknown (client, record): %1"), Remedy::resetClient},
    {TextKey("base of another kind"),
     "SELECT c.identifier || ', ' || b.record, c.identifier FROM base b JOIN clients c ON c.id = "
     "b.client"
     " JOIN records r ON r.id = b.record WHERE r.entity <> b.entity",
     MessageText<1>("a base takes a folder for a bookmark, or the other way round (client, record): %1"),
     Remedy::resetClient},
    {TextKey("former base of an unknown record"),
     "SELECT c.identifier || ', ' || f.record, c.identifier FROM former_base f JOIN clients c"
     " ON c.id = f.client WHERE f.record NOT IN (SELECT id FROM records UNION ALL SELECT id FROM tombstones)",
     MessageText<1>("a former base held a record that is unknown (client, record): %1"), Remedy::resetClient},
    {TextKey("local id twice"),
     "SELECT c.identifier || ', ' || b.local_id, c.identifier FROM base b JOIN clients c ON c.id = b.client"
     " WHERE b.local_id IS NOT NULL GROUP BY b.client, b.local_id HAVING count(*) > 1",
     MessageText<1>("one local id stands for two records (client, id): %1"), Remedy::resetClient},
    {TextKey("agreement of another size"),
     "SELECT c.identifier, c.identifier FROM agreements a JOIN clients c ON c.id = a.client"
     " WHERE length(a.digests) / 8 <> (SELECT count(*) FROM base b WHERE b.client = a.client)",
     MessageText<1>("what a client agreed to is not what its base holds: client %1"), Remedy::resetClient},
    {TextKey("logged record"),
     "SELECT DISTINCT record FROM changes WHERE record >= (SELECT next_record FROM truth)",
     MessageText<1>("the log mentions a record that never existed: record %1"), Remedy::rebuild},
};

StoreFinding finding(TextKey rule, std::string problem, std::string remedy) {
  return {rule.english(), tr(rule), std::move(problem), std::move(remedy)};
}

// One row can hold several lines.
void checkIntegrity(TruthStore& store, const std::function<void(StoreFinding)>& take) {
  Statement query = store.database().query("PRAGMA integrity_check", kCheck);
  query.open();
  while (query.next()) {
    std::istringstream lines(query.text(0).toString());
    for (std::string line; std::getline(lines, line);) {
      if (line != "ok" && !line.starts_with("***"))
        take(finding(TextKey("integrity"), line, remedyText(Remedy::rebuild)));
    }
  }
}

void checkRule(TruthStore& store, const Rule& rule, const std::function<void(StoreFinding)>& take) {
  Statement query = store.database().query(rule.sql, kCheck);
  query.open();
  while (query.next()) {
    take(finding(rule.name, tr(rule.problem, query.text(0).toString()),
                 remedyText(rule.remedy, query.text(1).toString())));
  }
}

// Descriptions and values of clients are property lists.
void checkValues(TruthStore& store, const std::function<void(StoreFinding)>& take) {
  Statement query = store.database().query(
      "SELECT identifier, 'clients.description', description FROM clients UNION ALL"
      " SELECT c.identifier, 'client_values.' || v.key, v.value FROM client_values v JOIN clients c ON c.id "
      "= "
      "v.client",
      kCheck);
  query.open();
  while (query.next()) {
    try {
      readPropertyList(query.blob(2));
    } catch (const PropertyListException& exception) {
      take(finding(TextKey("unreadable value"),
                   tr("cannot be read (%1): client %2, %3", exception.message(), query.text(0).toString(),
                      query.text(1).toString()),
                   remedyText(Remedy::registerAgain, query.text(0).toString())));
    }
  }
}

}  // namespace

void findProblems(TruthStore& store, const std::function<void(StoreFinding)>& take,
                  const CheckBeginsStep& begin) {
  constexpr std::size_t kSteps = std::size(kRules) + 2;
  std::size_t step = 0;
  std::set<std::string> damage;  // several rules meet the same
  const auto attempt = [&](const auto& check) {
    if (begin) begin(++step, kSteps);
    try {
      check();
    } catch (const DamagedStoreException& exception) {
      if (damage.insert(exception.reason()).second)
        take(finding(TextKey("unreadable"), tr(exception.message()), remedyText(Remedy::rebuild)));
    }
  };
  attempt([&] { checkIntegrity(store, take); });
  for (const Rule& rule : kRules) attempt([&] { checkRule(store, rule, take); });
  attempt([&] { checkValues(store, take); });
}

std::vector<std::string> checkStore(TruthStore& store) {
  std::vector<std::string> problems;
  findProblems(store, [&](const StoreFinding& finding) { problems.push_back(finding.problem); });
  return problems;
}

}  // namespace corvane::loomer
