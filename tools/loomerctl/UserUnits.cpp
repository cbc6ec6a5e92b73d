#include "tools/loomerctl/UserUnits.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/StandardDirectories.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/SyncService.h"
#include "tools/loomerctl/Programs.h"
#include "tools/loomerctl/UnitNames.h"

namespace corvane::loomerctl {

namespace {

constexpr const char* kPathTemplate = "corvane-sync@.path";
constexpr const char* kMainFile = "Bookmarks.plist";

// What is added to the service for this user.
std::string overridePath() { return unitDirectories().front() + "/" + kSyncService + ".d/place.conf"; }

std::vector<std::string> withWords(std::vector<std::string> words, const std::set<std::string>& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

EndedProgram systemctl(std::vector<std::string> words) {
  words.insert(words.begin(), {"systemctl", "--user", "--quiet"});
  return runProgram(words);
}

// What a program said, on one line.
std::string whatItSaid(const EndedProgram& ended) {
  std::string text = ended.output;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text.empty() ? tr("exit status %1", std::to_string(ended.status)) : text;
}

void mustSucceed(const EndedProgram& ended) {
  if (ended.status != 0) throw Refused{tr("systemd does not do it: %1", whatItSaid(ended))};
}

String clientOfFile(const std::string& file) {
  return file == kMainFile ? String(kMainClientId) : String(std::string(kMainClientId) + '.' + file);
}

std::string pathUnitOf(const String& client) {
  const auto file = fileNameForClientId(client);
  const auto unit = file ? pathUnitFor(*file) : std::nullopt;
  if (!unit) throw Refused{tr("There is no file of \"%1\" that a unit could watch.", client.toString())};
  return *unit;
}

void addEnabledIn(const std::string& directory, EnabledUnits& units) {
  // A directory that is not there, or that nobody may read, holds nothing.
  std::error_code error;
  std::filesystem::directory_iterator links(directory + "/paths.target.wants", error);
  for (; !error && links != std::filesystem::directory_iterator(); links.increment(error)) {
    const auto file = fileOfPathUnit(links->path().filename().string());
    if (file) units.clients.push_back(clientOfFile(*file));
  }
}

std::string canonical(const std::string& path) {
  std::error_code error;
  return std::filesystem::canonical(path, error).string();
}

// The units that belong to this program.
std::string ownUnits() {
  const std::string path = ownDirectory() + "/../lib/systemd/user";
  const std::string directory = canonical(path);
  std::error_code error;
  if (directory.empty() || !std::filesystem::exists(joinedPath(directory, kSyncService), error))
    throw Refused{tr("The units that belong to this program are not there: %1", path)};
  return directory;
}

// Whether the manager knows the units by that directory.
bool areFound(const std::string& directory) {
  const EndedProgram ended = systemctl({"show", "--property=FragmentPath", "--value", kSyncService});
  mustSucceed(ended);
  const std::string found = canonical(ended.output.substr(0, ended.output.find('\n')));
  return !found.empty() && found == joinedPath(directory, kSyncService);
}

// Does what needs no manager also where there is one. Whether something was there to be removed makes no
// difference.
void removeLinks(const std::set<std::string>& units) {
  mustSucceed(runProgram(withWords(
      {"env", "SYSTEMCTL_INSTALL_CLIENT_SIDE=1", "systemctl", "--user", "--quiet", "disable"}, units)));
}

void makeFound(const std::string& directory) {
  if (areFound(directory)) return;
  // Links from before this program was moved, or installed where the manager looks by itself.
  removeLinks({kSyncService, kSyncTimer, kPathTemplate});
  mustSucceed(systemctl({"daemon-reload"}));
  if (areFound(directory)) return;
  std::vector<std::string> words{"link"};
  for (const char* unit : {kSyncService, kSyncTimer, kPathTemplate})
    words.push_back(joinedPath(directory, unit));
  mustSucceed(systemctl(words));
}

// In the form of a unit's file, where "%" begins a specifier.
std::string quotedForUnit(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '%') quoted += '%';
    if (c == '\n') {
      quoted += "\\n";
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

// The directory that keeps the account. An account that cannot be read is the sessions' to complain about.
std::optional<std::string> directoryOfAccount() {
  try {
    const auto account = pelto::userAccount();
    if (!account) return std::nullopt;
    const pelto::PlaceAddress address = pelto::parsePlaceAddress(account->url);
    if (address.kind == pelto::PlaceAddress::Kind::directory) return address.path;
  } catch (const PlatformException&) {
  }
  return std::nullopt;
}

void removeOverride() {
  std::error_code error;
  const std::filesystem::path path = overridePath();
  std::filesystem::remove(path, error);
  if (error) throw Refused{tr("Cannot remove %1: %2.", path.string(), error.message())};
  std::filesystem::remove(path.parent_path(), error);  // unless somebody else has put something there
}

void writeOverride() {
  const auto directory = directoryOfAccount();
  if (!directory) return removeOverride();
  const std::filesystem::path path = overridePath();
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  // One that is not mounted at the moment is left to the sessions to complain about.
  const std::string text =
      "# Written by loomerctl: the directory that keeps the account at the online service.\n"
      "[Service]\nReadWritePaths=" +
      quotedForUnit('-' + *directory) + '\n';
  if (!error) error = Platform::current().files.writeAtomically(path.string(), text);
  if (error) throw Refused{tr("Cannot write %1: %2.", path.string(), error.message())};
}

}  // namespace

EnabledUnits enabledUnits() {
  EnabledUnits units;
  units.timer = isSyncTimerOn();
  for (const std::string& each : unitDirectories()) addEnabledIn(each, units);
  std::sort(units.clients.begin(), units.clients.end(),
            [](const String& a, const String& b) { return a.view() < b.view(); });
  units.clients.erase(std::unique(units.clients.begin(), units.clients.end()), units.clients.end());
  return units;
}

std::string problemWithUserManager() {
  try {
    const EndedProgram ended = systemctl({"show", "--property=Version"});
    return ended.status == 0 ? "" : whatItSaid(ended);
  } catch (const Refused& refused) {
    return tr(refused.message());
  }
}

void enableUnits(const std::vector<String>& clients) {
  std::set<std::string> units{kSyncTimer};
  for (const String& each : clients) units.insert(pathUnitOf(each));
  for (const String& each : enabledUnits().clients) units.insert(pathUnitOf(each));
  makeFound(ownUnits());
  writeOverride();
  // Where these are missing the service could not make them.
  makeStandardDirectoriesAbove(joinedPath(bookmarksDirectory(), kMainFile));
  mustSucceed(systemctl({"daemon-reload"}));
  mustSucceed(systemctl(withWords({"enable", "--now"}, units)));
  mustSucceed(systemctl({"start", "--no-block", kSyncService}));
}

void disableUnits(const std::vector<String>& clients) {
  std::set<std::string> units, others;
  for (const String& each : enabledUnits().clients) {
    const bool isMeant = clients.empty() || std::find(clients.begin(), clients.end(), each) != clients.end();
    (isMeant ? units : others).insert(pathUnitOf(each));
  }
  if (others.empty()) units.insert(kSyncTimer);
  const bool hasManager = problemWithUserManager().empty();
  // What is not loaded does not run either.
  if (hasManager) systemctl(withWords({"stop"}, units));
  if (others.empty()) {
    units.insert({kSyncService, kPathTemplate});
    removeOverride();
  }
  removeLinks(units);
  if (!hasManager) return;
  mustSucceed(systemctl({"daemon-reload"}));
  // Most often none of them has failed.
  systemctl({"reset-failed", kSyncService, "corvane-sync@*.path"});
}

void adaptUnitsToAccount() {
  const EnabledUnits units = enabledUnits();
  if (!units.timer && units.clients.empty()) return;
  writeOverride();
  if (problemWithUserManager().empty()) mustSucceed(systemctl({"daemon-reload"}));
}

}  // namespace corvane::loomerctl
