#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "browsers/host/HeldTree.h"

namespace corvane::browsers {

/// What the sync engine talks to during one session of a browser's bookmarks. The client takes what is
/// delivered into a copy of what it holds, and has that saved at the end; the browser is given it afterwards.
/// So a session takes no longer than a file's, and none waits for a browser.
class BrowserClient : public LoomerSessionDriverDataSource {
 public:
  /// Of the snapshot that a session works on.
  struct State {
    HeldTree& held;                         ///< numbered; replaced by what it is after a session
    std::map<RootKind, BrowserNode> roots;  ///< the browser's own
    std::int64_t generation = 0;
    bool isEdited = false;  ///< it is no more what the snapshot of this generation says
  };
  /// Saves what is held as the snapshot of a later generation, which it answers. Raises PlatformException.
  using Save = std::function<std::int64_t(const HeldTree& held)>;

  /// All must outlive this object. `description` is the path of the client's description.
  BrowserClient(String identifier, std::string description, State& state, const Stamp& now, Save save);

  /// How many changes were delivered.
  std::size_t delivered() const { return _delivered; }

  String clientIdentifier() override { return _identifier; }
  std::optional<Url> clientDescriptionURL() override;
  std::vector<Url> schemaBundleURLs() override;
  std::vector<String> entityNamesToSync() override;
  /// Refresh where the engine knows a later snapshot or none; slow for one that the engine has not seen; fast
  /// for the one that it saw last.
  int preferredSyncModeForEntityName(const String& entityName) override;
  double sessionBeginSessionTimeout() override { return 60.0; }
  double sessionPullChangesTimeout() override { return 600.0; }
  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  std::optional<std::vector<std::uint64_t>> recordDigests(const HashKey& key) override;
  Dictionary recordsAt(const String& entityName, const std::vector<std::size_t>& places) override;
  /// Always none: a session over a changed tree is a slow one.
  Dictionary changedRecordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  int applyChange(const LoomerChange& change, const String& entityName, String& remappedRecordIdentifier,
                  const Dictionary* formattedRecord, String& error) override;
  bool deleteAllRecordsForEntityName(const String& entityName, String& error) override;
  bool sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverDidPull(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) override;
  void sessionDriverWillCancelSession(LoomerSessionDriver& driver) override;
  /// Nobody else has the browser: what was read stands.
  bool readAgain() override;

 private:
  loomer::Entity entityOf(const String& entityName) const;
  Dictionary recordOf(const HeldNode& node) const;
  /// What the engine is given, parents first.
  template <typename Take>
  void eachRecord(Take take) const;
  void deleteNode(const std::string& localId);
  /// The browser's own folder that stands for the new record; nothing for any other.
  std::optional<RootKind> rootFor(const loomer::ClientRecord& record) const;

  String _identifier;
  std::string _description;
  State& _state;
  const Stamp& _now;
  Save _save;
  loomer::RecordSchema _schema;
  HeldTree _working;
  std::optional<std::int64_t> _seen;  // the generation that the engine saw last
  std::size_t _delivered = 0;
};

}  // namespace corvane::browsers
