// `diff`.

#include <memory>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/system/LogListener.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"
#include "browsers/BrowserNames.h"
#include "browsers/host/BrowserClient.h"
#include "browsers/host/Snapshot.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/FileDifference.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// What the browser held at the end of its last session, which is what its next one begins with. Raises
// PlatformException.
std::vector<ClientRecord> recordsOfBrowser(const String& client) {
  const LogListener log(LogListener::Passing::off);
  const std::string token(client.view().substr(browsers::kClientPrefix.size()));
  auto snapshot = browsers::SnapshotFile(browsers::snapshotPath(token)).read();
  if (!snapshot && !log.lastMessage().empty()) throw Refused{log.lastMessage()};
  if (!snapshot) throw Refused{tr("Nothing is known of what %1 holds.", printable(client.view()))};
  snapshot->tree.number();
  browsers::BrowserClient::State state{snapshot->tree, {}, snapshot->generation, false};
  const browsers::Stamp never;
  browsers::BrowserClient source(client, {}, state, never, {});
  return takeRecords(source, readRecordSchema(source.schemaBundleURLs()), false);
}

// What a session would be given by the file as it is now. Raises PlatformException.
std::vector<ClientRecord> recordsInFile(const String& client) {
  if (browsers::isBrowserClient(client.view())) return recordsOfBrowser(client);
  const auto name = fileNameForClientId(client);
  if (!name) throw Refused{tr("The client \"%1\" has no bookmarks file.", printable(client.view()))};
  const std::string path = joinedPath(bookmarksDirectory(), *name);
  // A session would make one that is missing.
  if (!Platform::current().files.attributesIfKnown(path))
    throw Refused{tr("There is no bookmarks file %1.", printable(path))};
  const LogListener log(LogListener::Passing::off);
  const auto manager = CorvaneSyncManager::initWithClientId(client);
  if (!manager || !manager->readBookmarks()) throw Refused{log.lastMessage()};
  SessionDriverController& source = manager->dataSource();
  return takeRecords(source, readRecordSchema(source.schemaBundleURLs()), false);
}

// Both sides and what differs.
struct Comparison {
  std::vector<TruthRecord> truth;
  std::vector<ClientRecord> file;
  std::vector<FileDifference> differences;
};

void compare(TruthStore& store, const std::string& identifier, Comparison& comparison) {
  const ClientState client = clientNamed(store, identifier);
  comparison.file = recordsInFile(client.identifier);
  comparison.truth = RecordTable(store).readAll().records;
  comparison.differences =
      differencesOf(comparison.truth, BaseTable(store).read(client.id).records, comparison.file);
}

const char* differenceName(const FileDifference& difference) {
  if (!difference.agreed) return "added";
  if (!difference.inFile) return "removed";
  return difference.saysOther ? "changed" : "moved";
}

class DiffPrinter {
 public:
  DiffPrinter(Output& out, const Comparison& comparison) : _out(out) {
    for (const TruthRecord& each : comparison.truth) _agreed.emplace(each.id, &each);
    for (const ClientRecord& each : comparison.file) _inFile.emplace(each.localId, &each);
  }

  void print(const FileDifference& difference) {
    if (!difference.agreed) return printOne("+ ", Style::added, *difference.inFile, folderInFile(difference));
    if (!difference.inFile)
      return printOne("- ", Style::removed, *difference.agreed, agreedFolder(difference));
    const TruthRecord& agreed = *difference.agreed;
    const ClientRecord& inFile = *difference.inFile;
    printOne(difference.saysOther ? "* " : "> ", Style::plain, agreed, agreedFolder(difference));
    compare(tr("title"), quoted(agreed.content.name), quoted(inFile.content.name));
    compare(tr("address"), quoted(agreed.content.url), quoted(inFile.content.url));
    compare(tr("group of tabs"), yesOrNo(agreed.content.tabGroup), yesOrNo(inFile.content.tabGroup));
    compare(tr("special"), yesOrNo(agreed.content.special), yesOrNo(inFile.content.special));
    if (difference.liesElsewhere) compare(tr("folder"), agreedFolder(difference), folderInFile(difference));
    if (difference.isReordered) _out.write("    " + tr("in another place among its siblings") + '\n');
  }

 private:
  template <typename Record>
  void printOne(const char* sign, Style style, const Record& record, const std::string& folder) {
    _out.write(sign, style);
    _out.write(record.entity == Entity::folder ? tr("folder %1 in %2", quoted(record.content.name), folder)
                                               : tr("bookmark %1 %2 in %3", quoted(record.content.name),
                                                    quoted(record.content.url), folder),
               style);
    _out.write("\n");
  }

  void compare(const std::string& attribute, const std::string& agreed, const std::string& inFile) {
    if (agreed == inFile) return;
    _out.write("    " + attribute + ": ");
    _out.write(agreed, Style::removed);
    _out.write(" → ");
    _out.write(inFile, Style::added);
    _out.write("\n");
  }

  static std::string yesOrNo(bool truth) { return truth ? tr("yes") : tr("no"); }

  std::string agreedFolder(const FileDifference& difference) const {
    if (difference.agreed->parent == kRoot) return tr("the root");
    const auto folder = _agreed.find(difference.agreed->parent);
    return folder == _agreed.end() ? tr("(none)") : quoted(folder->second->content.name);
  }
  std::string folderInFile(const FileDifference& difference) const {
    if (!difference.inFile->parentLocalId) return tr("the root");
    const auto folder = _inFile.find(difference.inFile->parentLocalId);
    return folder == _inFile.end() ? tr("(none)") : quoted(folder->second->content.name);
  }

  Output& _out;
  std::unordered_map<RecordId, const TruthRecord*> _agreed;
  std::unordered_map<String, const ClientRecord*> _inFile;
};

void writeDifferences(JsonWriter& json, const std::vector<FileDifference>& differences) {
  json.beginArray();
  for (const FileDifference& each : differences) {
    json.beginObject();
    json.member("type", differenceName(each));
    json.member("kind", entityName(each.agreed ? each.agreed->entity : each.inFile->entity));
    json.member("record", each.agreed ? std::optional(each.agreed->id) : std::nullopt);
    json.member("localIdentifier", each.inFile ? each.inFile->localId : String());
    json.member("inAnotherFolder", each.liesElsewhere);
    json.member("inAnotherPlace", each.isReordered);
    json.key("agreed");
    if (each.agreed) {
      json.beginObject();
      json.member("parent", each.agreed->parent);
      writeContent(json, each.agreed->entity, each.agreed->content);
      json.endObject();
    } else {
      json.null();
    }
    json.key("inFile");
    if (each.inFile) {
      json.beginObject();
      json.member("parentLocalIdentifier", each.inFile->parentLocalId);
      writeContent(json, each.inFile->entity, each.inFile->content);
      json.endObject();
    } else {
      json.null();
    }
    json.endObject();
  }
  json.endArray();
  json.finish();
}

}  // namespace

// The exit statuses are those of diff(1).
Status showDiff(Invocation& run) {
  Comparison comparison;
  try {
    const auto store = openStoreToRead();
    compare(*store, run.options.argument, comparison);
  } catch (const DamagedStoreException&) {
    throw;
  } catch (const PlatformException& exception) {
    run.err.write("loomerctl: " + printable(tr(exception.message())) + '\n');
    return statusUsage;
  }
  if (run.options.json) {
    JsonWriter json(run.out);
    writeDifferences(json, comparison.differences);
  } else {
    DiffPrinter printer(run.out, comparison);
    for (const FileDifference& each : comparison.differences) printer.print(each);
  }
  return comparison.differences.empty() ? statusFine : statusRefused;
}

}  // namespace corvane::loomerctl
