// `tree`.

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/TreeWalk.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// Deeper records say how deep they are instead: lines that grow with the depth would make the output grow by
// its square.
constexpr std::size_t kDeepestIndentation = 30;

void printRecord(Output& out, const TruthRecord& record, std::size_t depth) {
  std::string number = '#' + std::to_string(record.id);
  number.insert(0, number.size() < 7 ? 7 - number.size() : 0, ' ');
  out.write(number, Style::faint);
  out.write("  " + std::string(std::min(depth, kDeepestIndentation) * 2, ' '));
  if (depth > kDeepestIndentation) out.write("[" + std::to_string(depth) + "] ", Style::faint);
  const Content& content = record.content;
  if (record.entity == Entity::folder) {
    out.write(printable(content.name.view()) + '/', Style::folder);
    if (content.special) out.write(' ' + tr("(special)"), Style::faint);
    if (content.tabGroup) out.write(' ' + tr("(group of tabs)"), Style::faint);
  } else {
    out.write(printable(content.name.view()));
    out.write("  " + printable(content.url.view()), Style::faint);
  }
  out.write("\n");
}

void writeRecord(JsonWriter& json, const TruthRecord& record, std::size_t depth) {
  json.beginObject();
  json.member("record", record.id);
  json.member("kind", entityName(record.entity));
  json.member("depth", depth);
  json.member("parent", record.parent);
  writeContent(json, record.entity, record.content);
  json.endObject();
}

RecordId startOf(RecordTable& records, const Options& options) {
  const RecordId start = options.record.value_or(kRoot);
  if (start == kRoot) return start;
  const auto record = records.find(start);
  if (!record || record->deleted) throw Refused{tr("There is no folder #%1.", std::to_string(start))};
  if (record->entity != Entity::folder) {
    throw Refused{tr("#%1 is a bookmark; `loomerctl show` describes it.", std::to_string(start))};
  }
  return start;
}

}  // namespace

Status showTree(Invocation& run) {
  const auto store = openStoreToRead();
  RecordTable records(*store);
  TreeWalk walk(records, startOf(records, run.options));
  if (!run.options.json) {
    bool any = false;
    while (const TruthRecord* record = walk.next()) {
      printRecord(run.out, *record, walk.depth());
      any = true;
    }
    if (!any) run.out.write(tr("No bookmarks.") + '\n');
    return statusFine;
  }
  JsonWriter json(run.out);
  json.beginArray();
  while (const TruthRecord* record = walk.next()) writeRecord(json, *record, walk.depth());
  json.endArray();
  json.finish();
  return statusFine;
}

}  // namespace corvane::loomerctl
