#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "tests/kit/ClientTree.h"

namespace corvane {

/// A client in memory: a data source that offers its tree to the engine, takes changes in, and keeps them
/// when the session finishes. What a test sets makes it misbehave.
class ScriptedClient : public kit::ClientTree, public LoomerSessionDriverDataSource {
 public:
  explicit ScriptedClient(std::string name) : ClientTree(name), identifier(std::move(name)) {}

  // Editing: at the end of the parent's children, or at the `at`-th place after the special folders.
  std::string addFolder(const std::string& parent, const std::string& name, int at = -1);
  std::string addBookmark(const std::string& parent, const std::string& name, const std::string& url,
                          int at = -1);
  std::string addSpecial(const std::string& name);
  void move(const std::string& id, const std::string& parent, int at = -1);
  /// How many children come after the special folders.
  std::size_t ordinaryChildren(const std::string& parent) const;

  /// Runs a session of the current engine; answers its `lastError`, empty for a success.
  std::string sync();

  std::string identifier;
  Url description;
  Url schema;

  // What the client asks for and answers.
  int mode = 0;  ///< a LoomerSyncMode; 0: refresh at first and after a cancelled session, slow when edited,
                 ///< else fast
  bool unmappedIds = false;  ///< keeps the engine's identifiers
  double beginTimeout = 60.0;
  double pullTimeout = 600.0;
  std::vector<String> entityNames;
  std::size_t chunk = 0;  ///< records in one answer; 0: all
  String recordsError;
  Dictionary changedRecords[2];                    ///< folders, bookmarks
  std::function<int(const LoomerChange&)> answer;  ///< a LoomerChangeResult; nothing: accepted
  std::function<void(const std::string&)> onCall;  ///< called with each entry of `calls`
  std::function<bool()> readsAgain;                ///< reads again; nothing: cannot
  bool upToDate = true;                            ///< set when it read again
  std::function<String(const String&)> mapId;      ///< the id handed back for an addition
  bool deleteAllAnswer = true, registerAnswer = true, pullAnswer = true, finishAnswer = true;
  LoomerClient* set = nullptr;  ///< given to `_setClient`

  std::vector<std::string> calls;  ///< of the last session
  std::vector<LoomerChange> delivered;
  LoomerClient* sessionClient = nullptr;

  String clientIdentifier() override;
  std::optional<Url> clientDescriptionURL() override;
  std::vector<Url> schemaBundleURLs() override;
  std::vector<String> entityNamesToSync() override;
  int preferredSyncModeForEntityName(const String& entityName) override;
  bool isUpToDate() override { return upToDate; }
  bool readAgain() override;
  double sessionBeginSessionTimeout() override;
  double sessionPullChangesTimeout() override { return pullTimeout; }
  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  Dictionary changedRecordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  int applyChange(const LoomerChange& change, const String& entityName, String& remappedRecordIdentifier,
                  const Dictionary* formattedRecord, String& error) override;
  bool deleteAllRecordsForEntityName(const String& entityName, String& error) override;
  bool sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverDidPull(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) override;
  void sessionDriverWillCancelSession(LoomerSessionDriver& driver) override;

 private:
  void note(const std::string& call);
  std::size_t indexOf(const std::string& parent, int at) const;
  Node nodeOf(const std::string& id, const Dictionary& record, bool folder) const;
  Dictionary recordOf(const Node& node) const;
  void save();

  Nodes _savedNodes;  // the saved ones come back when a session is cancelled
  Children _savedChildren;
  std::map<std::string, std::size_t> _sent;  // records sent, by entity
};

}  // namespace corvane
