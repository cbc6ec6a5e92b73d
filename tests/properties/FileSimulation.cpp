#include "tests/properties/FileSimulation.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "tests/fakes/Files.h"
#include "tests/kit/PropertyCheck.h"

namespace corvane {

namespace {

using kit::require;

constexpr const char* kMainClient = "com.keldra.Corvane";

void requireDone(const std::error_code& error, const std::string& path) {
  if (error) throw std::system_error(error, path);
}

}  // namespace

FileSimulation::FileSimulation(std::size_t clients) : _clients(clients), _newest(clients) {
  _platform.makeDirectories(_platform.process.home + "/Library/Corvane");
  const Dictionary empty{{"WebBookmarkFileVersion", 1},
                         {"WebBookmarkType", "WebBookmarkTypeList"},
                         {"WebBookmarkUUID", "Root"},
                         {"Children", Array()}};
  for (std::size_t client = 0; client < clients; ++client) {
    requireDone(_platform.realFiles.write(path(client), writeBinaryPropertyList(empty)), path(client));
  }
}

std::string FileSimulation::name(std::size_t client) const {
  return client == 0 ? "Bookmarks.plist" : "browser" + std::to_string(client) + ".plist";
}

std::string FileSimulation::path(std::size_t client) const {
  return _platform.process.home + "/Library/Corvane/" + name(client);
}

std::string FileSimulation::bytes(std::size_t client) const {
  std::string bytes;
  LinuxFileSystem files;
  requireDone(files.read(path(client), bytes), path(client));
  return bytes;
}

BrowserFile FileSimulation::file(std::size_t client) const {
  const Value contents = readPropertyList(bytes(client));
  require(contents.as<Dictionary>(), path(client) + " holds no dictionary");
  return BrowserFile(*contents.as<Dictionary>());
}

Date FileSimulation::date(std::size_t client) const {
  LinuxFileSystem files;
  std::error_code error;
  const auto attributes = files.attributes(path(client), error);
  requireDone(error, path(client));
  return attributes->modificationDate;
}

void FileSimulation::write(std::size_t client, const BrowserFile& contents) {
  // A session saves with the date of the moment, which is older than those given here.
  Date& newest = _newest.at(client);
  newest.seconds = std::max(newest.seconds, date(client).seconds) + 1.0;
  requireDone(_platform.realFiles.write(path(client), writeBinaryPropertyList(contents.contents())),
              path(client));
  requireDone(setModificationDate(path(client), newest), path(client));
}

bool FileSimulation::run(std::size_t client) {
  ++_sessions;
  const std::string id = client == 0 ? kMainClient : std::string(kMainClient) + "." + name(client);
  const auto manager = CorvaneSyncManager::initWithClientId(String(id));
  require(manager != nullptr, "there is no client " + id);
  return manager->sync();
}

void FileSimulation::sync(std::size_t client) {
  const bool succeeded = run(client);
  const std::vector<std::string>& log = _platform.log.messages;
  require(succeeded, "a session fails: " + (log.empty() ? std::string("for no reason") : log.back()));
}

void FileSimulation::syncWhile(std::size_t client, const std::function<void()>& browser) {
  bool wrote = false;
  _platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    const bool takesLock = call.operation == FileOperation::makeDirectory && call.path.ends_with("/lock");
    if (takesLock && !wrote) {
      wrote = true;
      browser();
    }
    return std::error_code();
  };
  sync(client);
  _platform.files.intercept = nullptr;
}

void FileSimulation::syncKilled(std::size_t client, int operation) {
  const std::filesystem::path directory = std::filesystem::path(_home.storePath).parent_path();
  const std::filesystem::path copy = directory.string() + ".killed";
  copyStore(directory.string(), copy.string());
  int seen = 0;
  _platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
    if (!isMutating(call.operation)) return std::error_code();
    copyStore(directory.string(), copy.string());
    if (++seen == operation) throw Killed{};
    return std::error_code();
  };
  try {
    run(client);
  } catch (const Killed&) {
    // What a process that dies here would not have done any more, it undoes as far as it is in the store.
  }
  _platform.files.intercept = nullptr;
  _home.close();
  std::filesystem::remove_all(directory);
  std::filesystem::rename(copy, directory);
  // The directory's lock of a process that is gone: its holder is not this process.
  std::filesystem::remove_all(_platform.process.home + "/Library/Corvane/lock");
  _home.open();
}

void FileSimulation::round() {
  for (std::size_t client = 0; client < _clients; ++client) sync(client);
}

bool FileSimulation::undoLast() {
  std::int64_t last = 0;
  loomer::SessionLog(_home.store()).newestFirst([&](const loomer::SessionEntry& entry) {
    if (entry.changed > 0) last = entry.id;
    return last == 0;
  });
  if (last == 0) return false;
  loomer::undoSession(_home.store(), "somebody", last, false);
  return true;
}

void FileSimulation::forgetAgreements() {
  _home.store().database().execute("DELETE FROM agreements", "test");
}

std::size_t FileSimulation::agreements() {
  return static_cast<std::size_t>(
      _home.store().database().integer("SELECT count(*) FROM agreements", "test"));
}

std::string FileSimulation::storeText() {
  static constexpr const char* kQueries[] = {
      "SELECT revision || ' ' || next_record || ' ' || forgotten_revision FROM truth",
      "SELECT r.id || ' ' || entity || ' ' || parent || ' ' || place || ' ' || revision || ' ' || "
      "coalesce(name, '-')"
      " || ' ' || coalesce(url, '-') || ' ' || tab_group || special FROM records r JOIN contents c ON c.id = "
      "r.content"
      " ORDER BY r.id",
      "SELECT id || ' ' || parent || ' ' || revision FROM tombstones ORDER BY id",
      "SELECT client || ' ' || record || ' ' || coalesce(local_id, '-') || ' ' || entity || ' ' || parent || "
      "' ' ||"
      " position || ' ' || refused_revision || ' ' || not_held || ' ' || since || ' ' || coalesce(name, '-') "
      "|| ' ' ||"
      " coalesce(url, '-') || ' ' || tab_group || special FROM base b JOIN contents c ON c.id = b.content"
      " ORDER BY client, record",
      "SELECT identifier || ' ' || coalesce(synced_revision, '-') || ' ' || sessions || ' ' || "
      "without_records || ' ' ||"
      " handed_down || cancelled || reset_pending || give_back_pending FROM clients ORDER BY id",
      "SELECT id || ' ' || client || ' ' || mode || ' ' || revision || ' ' || taken || ' ' || changed || ' ' "
      "||"
      " handed_down || ' ' || refused FROM sessions ORDER BY id",
      "SELECT session || ' ' || record || ' ' || coalesce(after_parent, '-') || ' ' || coalesce(after_place, "
      "'-')"
      " FROM changes ORDER BY session, record",
      "SELECT session || ' ' || record || ' ' || attribute || ' ' || client_value || ' ' || truth_value FROM "
      "losses"
      " ORDER BY id",
      "SELECT 'contents ' || count(*) FROM contents"};
  std::string text;
  for (const char* const sql : kQueries) {
    loomer::Statement query = _home.store().database().query(sql, "test");
    query.open();
    while (query.next()) text += query.text(0).toString() + '\n';
  }
  return text;
}

std::int64_t FileSimulation::revision() { return loomer::RecordTable(_home.store()).state().revision; }

std::size_t FileSimulation::live() {
  const loomer::RecordCounts counts = loomer::RecordTable(_home.store()).counts();
  return counts.folders + counts.bookmarks;
}

void FileSimulation::requireConverged() {
  const std::string tree = file(0).text();
  for (std::size_t client = 1; client < _clients; ++client) {
    const std::string other = file(client).text();
    require(other == tree, "two clients hold different trees:\n" + tree + "\n" + other);
  }
  const std::int64_t revisionBefore = revision();
  for (std::size_t client = 0; client < _clients; ++client) {
    const std::string before = bytes(client);
    const Date dateBefore = date(client);
    sync(client);
    require(bytes(client) == before && date(client) == dateBefore,
            "a session with nothing new writes the file");
  }
  require(revision() == revisionBefore, "a session with nothing new changes the truth");
}

}  // namespace corvane
