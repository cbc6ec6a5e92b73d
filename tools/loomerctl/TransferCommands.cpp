// `export` and `import`.

#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/ForeignFile.h"
#include "tools/loomerctl/HtmlCharacterSet.h"
#include "tools/loomerctl/Input.h"
#include "tools/loomerctl/OutputFile.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/TreeWalk.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

HtmlNode nodeOf(const TruthRecord& record) {
  HtmlNode node;
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
    const HtmlNode node = nodeOf(*record);
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

// Raises Refused, with what it wants instead, for anything but a bookmarks file.
HtmlBookmarks readBookmarksFile(const std::string& path) {
  const std::string name = inputName(path);
  const auto refuse = [](const std::string& cause) {
    throw Refused{cause + " `import` takes a bookmarks file in HTML, as browsers export it."};
  };
  const auto present = Platform::current().files.attributesIfKnown(path);
  if (path != kStandardStream && present && present->kind == FileKind::directory) {
    refuse(name + " is a directory.");
  }
  const std::string bytes = readInput(path);
  if (const char* kind = foreignKind(bytes)) refuse(name + " is " + kind + '.');
  HtmlBookmarks bookmarks = parseBookmarksHtml(htmlAsUtf8(bytes, name));
  if (bookmarks.nodes.empty()) refuse("There are no bookmarks in " + name + '.');
  return bookmarks;
}

// One line; nothing where nothing is left out.
std::string leftOutText(const HtmlLeftOut& leftOut) {
  std::string text;
  const auto add = [&text](std::size_t count, const char* singular, const char* plural) {
    if (count > 0) text += (text.empty() ? "Left out: " : ", ") + countText(count, singular, plural);
  };
  add(leftOut.tags, "tag", "tags");
  add(leftOut.keywords, "keyword", "keywords");
  add(leftOut.descriptions, "description", "descriptions");
  add(leftOut.separators, "separator", "separators");
  return text.empty() ? text : text + ".\n";
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
  run.out.write("Wrote " + countText(bookmarks, "bookmark", "bookmarks") + " to " + printable(path) + ".\n");
  return statusFine;
}

Status importFile(Invocation& run) {
  const std::string& path = run.options.argument;
  const HtmlBookmarks file = readBookmarksFile(path);
  const std::string name = inputName(path);
  const auto store = openOrMakeStore();
  ImportPlan plan;
  const auto session = editTruth(*store, "loomerctl import " + lastComponent(name), SessionKind::importFile,
                                 [&](const std::vector<TruthRecord>& truth, const TruthState& state) {
                                   plan = planImport(truth, file.nodes, state.nextRecord, state.revision + 1);
                                   return plan.changes;
                                 });
  if (session) {
    run.out.write("Added " + countText(plan.bookmarks, "bookmark", "bookmarks") + " and " +
                  countText(plan.folders, "folder", "folders") + " as session " + std::to_string(*session) +
                  "; " + grouped(plan.known) +
                  " were there already. Each client follows at its next session.\n");
  } else {
    run.out.write("Everything in " + printable(name) + " is there already.\n");
  }
  run.out.write(leftOutText(file.leftOut));
  return statusFine;
}

}  // namespace corvane::loomerctl
