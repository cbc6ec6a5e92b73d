#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "browsers/host/BrowserClient.h"
#include "browsers/host/ExtensionRequests.h"
#include "browsers/host/Intake.h"
#include "browsers/host/Snapshot.h"

namespace corvane::browsers {

/// One profile's side of the connection with its extension: what the host does at each message.
class BrowserHost {
 public:
  /// `channel` must outlive this object.
  explicit BrowserHost(MessageChannel& channel);

  /// Takes in what the extension says, the first time `hello`. Raises MessageProblem for what cannot come
  /// there.
  void take(const ExtensionMessage& message);
  /// Another client's session may have changed the truth.
  void storeChanged() { _isWanted = true; }
  /// Another computer has given something to the online service.
  void serviceChanged() { _isWanted = true; }
  /// Whether the truth has moved on since the client's last session, or somebody has decided what the next
  /// one is to do. After a session that failed: whether it may go otherwise now.
  bool mayHaveNews() const;
  /// Whether there is reason for a session.
  bool wantsSession() const { return _isWanted && _isOpen && !_isPaused; }
  /// Runs one, and has the browser show what came of it. What goes wrong is told to the user. Raises
  /// ExtensionGone and MessageProblem, which end the connection.
  void sync();
  /// The connection has ended.
  void ended();

  /// Whether the last session changed the truth, be it by what the online service brought.
  bool hasChangedTruth() const { return _hasChangedTruth; }
  /// Whether the profile is known and its store is there.
  bool isOpen() const { return _isOpen; }

 private:
  struct Last {
    std::int64_t time = 0;  // milliseconds since 1970
    LoomerSessionResult result;
  };
  struct Problem {
    std::string text;
    std::string remedy;
  };

  void open(const Hello& hello);
  void refuseProtocol(const Hello& hello);
  void takeToken(const Hello& hello);
  void describe(const Hello& hello) const;
  bool isOwnFormerHost(const Hello& hello) const;
  LostTime lostBefore(const Hello& hello) const;
  String identifier() const;
  std::optional<LoomerNews> news() const;

  /// False where the user was faster, so that it is to be done again.
  bool runOnce();
  /// False where it failed, of which the user has been told.
  bool runSession(std::map<RootKind, BrowserNode> roots);
  void showInBrowser(BrowserTree& browser, bool& isDifferent);
  std::int64_t save(const HeldTree& held, bool isFinished);
  void write(Snapshot& snapshot);
  void notePause() const;
  void tellGeneration();
  void setProblem(std::string text, std::string remedy);
  void sendState(const char* state, std::size_t done = 0, std::size_t of = 0);
  bool goesOn(std::size_t done, std::size_t of);

  MessageChannel& _channel;
  ExtensionRequests _requests;
  std::string _directory;
  std::string _token;
  std::unique_ptr<FileSystem::Hold> _hold;  // of the profile
  std::optional<SnapshotFile> _file;
  Snapshot _snapshot;
  LostTime _lost;
  bool _hasRead = false;   ///< the browser's bookmarks, since the connection began
  std::int64_t _told = 0;  // the generation that the extension keeps
  bool _isOpen = false;
  bool _isRunNew = false;  // and the snapshot's file does not say so
  bool _hasHello = false;
  bool _isWanted = false;
  bool _isPaused = false;
  bool _isSyncing = false;
  bool _hasChangedTruth = false;
  bool _isStopped = false;
  std::size_t _edits = 0;       // that no session has taken yet
  LoomerSessionResult _result;  // of the sessions of one `sync`
  std::optional<LoomerNews> _failedAt;
  bool _isSyncedByBrowser = false;
  double _lastProgress = 0.0;  // in seconds since 2001
  std::optional<std::int64_t> _since;
  std::optional<Last> _last;
  std::optional<Problem> _problem;
};

}  // namespace corvane::browsers
