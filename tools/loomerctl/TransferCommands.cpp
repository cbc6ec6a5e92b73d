// `export` and `import`.

#include <optional>
#include <unordered_map>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/ImportText.h"
#include "tools/loomerctl/Input.h"
#include "tools/loomerctl/OutputFile.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/TreeWalk.h"
#include "tools/loomerctl/UserStore.h"
#include "tools/loomerctl/browsers/BookmarksFile.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

ImportedNode nodeOf(const TruthRecord& record) {
  ImportedNode node;
  node.folder = record.entity == Entity::folder;
  node.title = record.content.name.toString();
  node.url = record.content.url.toString();
  node.toolbar = record.content.special && record.content.name == LoomerTitleBookmarksBar;
  node.tabGroup = record.content.tabGroup;
  return node;
}

// Writes the file piece by piece to `write`; answers how many bookmarks it holds.
template <typename Write>
std::size_t writeFile(TruthStore& store, const Write& write) {
  const auto dates = SessionLog(store).dates();
  RecordTable records(store);
  TreeWalk walk(records, kRoot);
  std::size_t bookmarks = 0;
  std::size_t open = 0;
  write(htmlHead());
  const auto close = [&] {
    for (std::size_t i = 0; i < walk.closed() && open > 0; ++i) write(htmlFolderEnd(--open));
  };
  while (const TruthRecord* record = walk.next()) {
    close();
    const ImportedNode node = nodeOf(*record);
    const auto known = dates.find(record->id);
    const RecordDates when = known == dates.end() ? RecordDates() : known->second;
    if (node.folder) {
      write(htmlFolder(node, walk.depth(), when.added, when.changed));
      ++open;
    } else {
      write(htmlBookmark(node, walk.depth(), when.added, when.changed));
      ++bookmarks;
    }
  }
  close();
  write(htmlTail());
  return bookmarks;
}

// The last component, which the log records.
std::string lastComponent(const std::string& name) { return name.substr(name.rfind('/') + 1); }

// What the truth is imported into, and where it goes on.
struct Target {
  std::vector<TruthRecord> truth;
  TruthState state;
};

// The truth as it is at this moment; an empty one where there is no store.
Target currentTruth() {
  const auto store = openStoreIfAny();
  if (!store) return {};
  store->beginReading();
  RecordTable records(*store);
  return {records.readAll().records, records.state()};
}

Status previewImport(Invocation& run, const BrowserBookmarks& file) {
  const Target target = currentTruth();
  const ImportPlan plan =
      planImport(target.truth, file.nodes, target.state.nextRecord, target.state.revision + 1);
  printImport(run.out, file, plan);
  run.out.write(tr("Would add %1 and %2; %3 are there already. Nothing was changed.",
                   counted(plan.bookmarks, "%1 bookmark", "%1 bookmarks"),
                   counted(plan.folders, "%1 folder", "%1 folders"), plan.known) +
                '\n');
  printLeftOut(run.out, file);
  return statusFine;
}

}  // namespace

Status exportFile(Invocation& run) {
  const auto store = openStoreToRead();
  const std::string& path = run.options.argument;
  if (path == kStandardStream) {
    writeFile(*store, [&](const std::string& piece) { run.out.write(piece); });
    return statusFine;
  }
  std::string bytes;
  const std::size_t bookmarks = writeFile(*store, [&](const std::string& piece) { bytes += piece; });
  writeOutputFile(path, bytes);
  run.out.write(counted(bookmarks, "Wrote %1 bookmark to %2.", "Wrote %1 bookmarks to %2.", printable(path)) +
                '\n');
  return statusFine;
}

Status importFile(Invocation& run) {
  const std::string& path = run.options.argument;
  const std::string name = inputName(path);
  std::optional<Progress> progress(std::in_place, run.err);
  progress->say(tr("Reading %1", printable(name)));
  const BrowserBookmarks file = readBookmarksFile(path);
  if (run.options.dryRun) {
    progress.reset();
    return previewImport(run, file);
  }
  const auto store = openOrMakeStore();
  ImportPlan plan;
  const auto session =
      editTruth(*store, "loomerctl import " + lastComponent(name), SessionKind::importFile,
                [&](const std::vector<TruthRecord>& truth, const TruthState& state) {
                  progress->say(counted(file.nodes.size(), "Comparing %1 entry", "Comparing %1 entries"));
                  plan = planImport(truth, file.nodes, state.nextRecord, state.revision + 1);
                  progress->say(counted(plan.changes.size(), "Adding %1 entry", "Adding %1 entries"));
                  return plan.changes;
                });
  progress.reset();
  if (session) {
    run.out.write(
        tr("Added %1 and %2 as session %3; %4 were there already. Each client follows at its next session.",
           counted(plan.bookmarks, "%1 bookmark", "%1 bookmarks"),
           counted(plan.folders, "%1 folder", "%1 folders"), std::to_string(*session), plan.known) +
        '\n');
  } else {
    run.out.write(tr("Everything in %1 is there already.", printable(name)) + '\n');
  }
  printLeftOut(run.out, file);
  return statusFine;
}

}  // namespace corvane::loomerctl
