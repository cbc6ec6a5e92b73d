#include "browsers/host/BrowserHost.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <variant>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "CorvaneSyncClient/session/RunReport.h"
#include "browsers/BrowserNames.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/Presenting.h"

namespace corvane::browsers {

namespace {

// Chromium writes its bookmarks up to five seconds after a change.
constexpr double kUntilDurable = 10.0;    // seconds
constexpr double kBetweenProgress = 0.2;  // seconds
constexpr int kTriesAgainstFasterUsers = 3;
constexpr int kTriesForFormerHost = 12;  // of ten seconds each
constexpr std::size_t kUuidSize = 36;
constexpr std::ptrdiff_t kMostTold = 1000;

double now() { return Platform::current().clock.now().seconds; }

std::int64_t milliseconds(double seconds) {
  return static_cast<std::int64_t>(std::llround((seconds + kSecondsFrom1970To2001) * 1000));
}

// A token becomes part of a file's name.
bool isUuid(const std::string& token) {
  return token.size() == kUuidSize &&
         std::all_of(token.begin(), token.end(), [](char c) { return c == '-' || hexDigitValue(c) >= 0; });
}

// No number that another host, which has the snapshot from a backup or the profile from a copy, is likely to
// give away for something else.
std::int64_t laterGeneration(std::int64_t generation) {
  constexpr std::uint64_t kLongestStep = 1U << 20U;
  const String random = Platform::current().uuids.newUuid();
  return generation + 1 + static_cast<std::int64_t>(sipHash({}, random.view()) % kLongestStep);
}

bool isTold(const Snapshot& snapshot, std::int64_t generation) {
  return std::find(snapshot.told.begin(), snapshot.told.end(), generation) != snapshot.told.end();
}

std::string nameForPeople(const Hello& hello) {
  const std::string browser = hello.browser == "firefox" ? "Firefox" : "Chromium";
  return hello.profile.empty() ? browser : browser + ", " + hello.profile;
}

}  // namespace

BrowserHost::BrowserHost(MessageChannel& channel)
    : _channel(channel),
      _requests(channel, [this](const ExtensionMessage& message) { take(message); }),
      _directory(snapshotDirectory()) {}

void BrowserHost::take(const ExtensionMessage& message) {
  if (const auto* const hello = std::get_if<Hello>(&message)) {
    if (std::exchange(_hasHello, true)) throw MessageProblem("The extension says hello a second time.");
    return open(*hello);
  }
  if (std::holds_alternative<UnknownMessage>(message)) return;
  if (!_hasHello) throw MessageProblem("The extension does not begin with hello.");
  if (std::holds_alternative<Answer>(message))
    throw MessageProblem("The extension answers what it was not asked.");
  if (const auto* const pause = std::get_if<Pause>(&message)) {
    _isPaused = pause->paused;
    if (_isPaused) _isStopped = true;
    _isWanted = true;
    notePause();
  } else if (std::holds_alternative<Stop>(message)) {
    _isStopped = true;
  } else if (!std::holds_alternative<StatusWanted>(message)) {
    _isWanted = true;
    return;
  }
  sendState(_problem ? "problem" : _isPaused ? "paused" : _isSyncing ? "syncing" : "idle");
}

// --- The connection's beginning and end.

String BrowserHost::identifier() const { return std::string(kClientPrefix) + _token; }

void BrowserHost::open(const Hello& hello) {
  if (hello.protocol != kProtocol) return refuseProtocol(hello);
  if (!isUuid(hello.token)) throw MessageProblem("The extension's token is no UUID.");
  try {
    takeToken(hello);
    _lost = lostBefore(hello);
    _told = hello.generation;
    _isRunNew = _snapshot.run != hello.run;
    _snapshot.run = hello.run;
    _snapshot.ended.reset();
    describe(hello);
    _isOpen = true;
    _isWanted = true;
  } catch (const MessageProblem&) {
    throw;
  } catch (const PlatformException& exception) {
    RunReport(identifier()).note(exception.message());
    setProblem(tr(exception.message()), {});
  }
}

void BrowserHost::refuseProtocol(const Hello& hello) {
  const Message text("The extension in the browser and the program that it speaks to do not fit together.");
  const Message remedy =
      hello.protocol < kProtocol ? Message("Update the extension.") : Message("Update Corvane Sync.");
  if (isUuid(hello.token)) {
    _token = hello.token;
    RunReport(identifier()).note(sentences(text, remedy));
  }
  setProblem(tr(text), tr(remedy));
}

// Where another host has the profile, this one is a copy of it, and gets a token of its own.
void BrowserHost::takeToken(const Hello& hello) {
  if (const PrivateFileError problem = makePrivateDirectory(_directory)) {
    throw PlatformException(NSObjectNotAvailableException, problem.path + ": " + problem.error.message());
  }
  _token = hello.token;
  PrivateFileError problem;
  const auto isBusy = [&] { return !_hold && problem.error == std::errc::device_or_resource_busy; };
  int tries = 0;
  do {
    _hold = holdBeside(snapshotPath(_token), problem);
  } while (isBusy() && isOwnFormerHost(hello) && ++tries < kTriesForFormerHost);
  if (isBusy()) {
    _token = Platform::current().uuids.newUuid().toString();
    JsonMessage message("token");
    message.member("token", _token);
    _channel.send(message.text());
    _hold = holdBeside(snapshotPath(_token), problem);
  }
  if (!_hold)
    throw PlatformException(NSObjectNotAvailableException, problem.path + ": " + problem.error.message());
  _file.emplace(snapshotPath(_token));
  if (auto snapshot = _file->read()) _snapshot = *std::move(snapshot);
}

// Whether it is this browser's host before this one that still has the profile, which ends with its session.
bool BrowserHost::isOwnFormerHost(const Hello& hello) const {
  const auto snapshot = SnapshotFile(snapshotPath(_token)).read();
  return snapshot && snapshot->run == hello.run;
}

LostTime BrowserHost::lostBefore(const Hello& hello) const {
  LostTime lost;
  // A browser that has not been started anew has lost nothing.
  if (hello.run == _snapshot.run || _snapshot.generation == 0) return lost;
  lost.isFromElsewhere = hello.generation != 0 && !isTold(_snapshot, hello.generation);
  const bool isEarlier = !lost.isFromElsewhere && hello.generation != _snapshot.generation;
  if (isEarlier) lost.generation = hello.generation;
  if (hello.browser == "chromium")
    lost.since = _snapshot.ended.value_or(_snapshot.saved).seconds - kUntilDurable;
  return lost;
}

void BrowserHost::describe(const Hello& hello) const {
  const Dictionary description{
      {"DisplayName", nameForPeople(hello)},
      {"DataClass", LoomerDataClass_Bookmarks},
      {"Entities", Array{LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark}},
      {"ToolPath", "corvane-browser-host"}};
  const std::string path = joinedPath(_directory, _token + ".description.plist");
  const std::string bytes = writeXmlPropertyList(description);
  std::string known;
  const bool isDescribed = !Platform::current().files.read(path, known);
  // A browser with two profiles open at once says less of each than before.
  if (isDescribed && (known == bytes || hello.profile.empty())) return;
  const PrivateUmask forTheUserAlone;
  if (const auto error = Platform::current().files.writeAtomically(path, bytes)) {
    throw PlatformException(NSObjectNotAvailableException, path + ": " + error.message());
  }
  LoomerManager::sharedManager().registerClientWithIdentifier(identifier(), path);
}

// As long as the browser was not read, what it may have lost is reckoned from the end of the connection
// before.
void BrowserHost::ended() {
  if (!_hasRead || _snapshot.generation == 0) return;
  _snapshot.ended = Date{now()};
  // What no session has taken yet is what the engine is to be told of first.
  if (_edits > 0) ++_snapshot.generation;
  _file->write(_snapshot);
}

// --- Sessions.

// Nothing for a store that cannot be read, which is the next session's to complain about.
std::optional<LoomerNews> BrowserHost::news() const {
  try {
    return LoomerManager::sharedManager().newsForClient(identifier());
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

// Every session notes in the store that it was, and one that fails that it did: without this, two browsers
// would wake one another for ever.
bool BrowserHost::mayHaveNews() const {
  const auto now = news();
  if (!now) return true;
  return _failedAt ? now != _failedAt : now->isBehind || now->isPending;
}

void BrowserHost::sync() {
  _isWanted = false;
  _isStopped = false;
  _result = {};
  _isSyncing = true;
  sendState("syncing");
  notePause();
  const auto before = news();
  try {
    _problem.reset();
    int tries = kTriesAgainstFasterUsers;
    while (!runOnce() && --tries > 0 && !_isStopped && !_problem) {
    }
  } catch (const ExtensionGone&) {
    throw;
  } catch (const MessageProblem&) {
    throw;
  } catch (const PlatformException& exception) {
    RunReport(identifier()).note(exception.message());
    setProblem(tr(exception.message()), tr("Run `loomerctl status` in a terminal."));
  }
  _isSyncing = false;
  const auto after = news();
  _hasChangedTruth = before && after && before->revision != after->revision;
  if (_problem) return;
  const bool didSomething = _result.pushed + _result.pulled + _result.conflicts > 0;
  if (didSomething) _last = Last{milliseconds(now()), _result};
  if (!_snapshot.isFinished) {
    _since.reset();
  } else if (!_since || didSomething) {
    _since = milliseconds(now());
  }
  sendState(_isPaused ? "paused" : "idle");
}

bool BrowserHost::runOnce() {
  BrowserTree browser = _requests.read();
  if (_isPaused) return true;  // as a profile that was paused before says just behind its `hello`
  _isSyncedByBrowser = browser.isSyncedByBrowser();
  HeldTree held = _snapshot.tree;
  const Intake intake = takeIn(held, browser, _lost, {_snapshot.generation + 1, now()});
  _snapshot.tree = std::move(held);
  _lost = {};
  _hasRead = true;
  _edits += intake.edits;
  if (intake.lost) _snapshot.isFinished = false;
  _snapshot.tree.number();
  std::map<RootKind, BrowserNode> roots;
  for (const RootKind kind : kRootKinds) {
    if (const BrowserNode* const root = browser.root(kind)) roots.emplace(kind, *root);
  }
  if (!runSession(std::move(roots))) return true;
  bool isDifferent = false;
  if (!_snapshot.isFinished) {
    showInBrowser(browser, isDifferent);
  } else if (_isRunNew) {
    // From here on nothing is missing because the browser was started.
    write(_snapshot);
  }
  _isRunNew = false;
  tellGeneration();
  return !isDifferent;
}

bool BrowserHost::runSession(std::map<RootKind, BrowserNode> roots) {
  const Stamp stamp{_snapshot.generation + 1, now()};
  BrowserClient::State state{_snapshot.tree, std::move(roots), _snapshot.generation,
                             _edits > 0 || _snapshot.generation == 0};
  const bool wasFinished = _snapshot.isFinished;
  const BrowserClient* session = nullptr;
  BrowserClient client(
      identifier(), joinedPath(_directory, _token + ".description.plist"), state, stamp,
      [&](const HeldTree& held) { return save(held, wasFinished && session->delivered() == 0); });
  session = &client;
  _failedAt = news();
  const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(client);
  RunReport report(identifier());
  const bool succeeded = driver->sync();
  if (!succeeded) reportProblem(Message(kSessionFailed, driver->lastError()));
  report.ended(succeeded);
  if (!succeeded) {
    setProblem(tr(driver->lastError()), tr("Run `loomerctl status` in a terminal."));
    return false;
  }
  _failedAt.reset();
  _edits = 0;
  const LoomerSessionResult result = driver->lastResult();
  _result.pushed += result.pushed;
  _result.pulled += result.pulled;
  _result.conflicts += result.conflicts;
  return true;
}

std::int64_t BrowserHost::save(const HeldTree& held, bool isFinished) {
  Snapshot next;
  next.generation = laterGeneration(_snapshot.generation);
  next.told = _snapshot.told;
  next.run = _snapshot.run;
  next.saved = Date{now()};
  next.isFinished = isFinished;
  next.tree = held;
  write(next);
  _snapshot.generation = next.generation;
  _snapshot.told = next.told;
  _snapshot.saved = next.saved;
  _snapshot.isFinished = next.isFinished;
  return next.generation;
}

// A generation that the browser is to be told is in the snapshot before.
void BrowserHost::write(Snapshot& snapshot) {
  std::vector<std::int64_t>& told = snapshot.told;
  if (snapshot.isFinished && snapshot.generation > 0 && !isTold(snapshot, snapshot.generation))
    told.push_back(snapshot.generation);
  if (std::ssize(told) > kMostTold) told.erase(told.begin(), told.end() - kMostTold);
  _file->write(snapshot);
}

void BrowserHost::showInBrowser(BrowserTree& browser, bool& isDifferent) {
  const Presented presented = present(_snapshot.tree, browser, _requests, {_snapshot.generation, now()},
                                      [this](std::size_t done, std::size_t of) { return goesOn(done, of); });
  isDifferent = presented.isDifferent;
  _snapshot.isFinished = presented.isFinished && !presented.isDifferent;
  _snapshot.saved = Date{now()};
  write(_snapshot);
}

bool BrowserHost::goesOn(std::size_t done, std::size_t of) {
  if (const double time = now(); !(time - _lastProgress < kBetweenProgress)) {
    _lastProgress = time;
    sendState("syncing", done, of);
  }
  return !_isStopped;
}

// --- What the user is told.

// Keeps it with the client in the store, where `loomerctl status` sees it. Whoever asks there is told of a
// store that cannot be used as well, and the next session fails of it.
void BrowserHost::notePause() const {
  if (!_isOpen) return;
  try {
    LoomerClient* const client = LoomerManager::sharedManager().clientWithIdentifier(identifier());
    if (!client || client->objectForKey(kPausedKey).has_value() == _isPaused) return;
    client->setObject(_isPaused ? std::optional(Value(true)) : std::nullopt, kPausedKey);
  } catch (const PlatformException& exception) {
    SCLog("That a browser is paused cannot be noted: %@", exception.reason());
  }
}

void BrowserHost::tellGeneration() {
  if (!_snapshot.isFinished || _told == _snapshot.generation) return;
  _told = _snapshot.generation;
  JsonMessage message("generation");
  message.member("generation", _told);
  _channel.send(message.text());
}

void BrowserHost::setProblem(std::string text, std::string remedy) {
  _problem = {std::move(text), std::move(remedy)};
  sendState("problem");
}

void BrowserHost::sendState(const char* state, std::size_t done, std::size_t of) {
  JsonMessage message("state");
  message.member("state", state);
  if (_since) message.member("since", *_since);
  if (_last) {
    message.begin("last");
    message.member("time", _last->time);
    message.member("pushed", _last->result.pushed);
    message.member("pulled", _last->result.pulled);
    message.member("conflicts", _last->result.conflicts);
    message.end();
  }
  if (of > 0) {
    message.begin("progress");
    message.member("done", done);
    message.member("of", of);
    message.end();
  }
  if (_problem) {
    message.begin("problem");
    message.member("text", _problem->text);
    if (!_problem->remedy.empty()) message.member("remedy", _problem->remedy);
    message.end();
  }
  if (_isSyncedByBrowser) {
    message.begin("notice");
    message.member("text", tr("The browser's own account keeps these bookmarks in step as well."));
    message.end();
  }
  _channel.send(message.text());
}

}  // namespace corvane::browsers
