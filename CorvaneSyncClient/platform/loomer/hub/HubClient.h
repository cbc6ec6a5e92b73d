#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubPast.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// The online service's name among the engine's clients.
inline constexpr const char* kHubClientIdentifier = "com.keldra.Pelto";

/// Whether something stayed out of the service because the account had no room.
bool leftOutOfHub(LoomerClient& client);
/// Whether something was left for the next push.
bool postponedForHub(LoomerClient& client);

/// One session of the online service as a client of the engine. Its tree is what its base says with the
/// remote changes from the service on top; what it is handed down becomes one push. It keeps the service's
/// ids as its local ids, and takes the engine's identifiers for additions, so that a record has one id on
/// every computer.
class HubClient : public LoomerSessionDriverDataSource {
 public:
  /// `hub` and `store` must outlive this object. `past` holds the states with which `remote` were asked. The
  /// push takes no more records than `mostRecords`; the rest is left for the next one.
  HubClient(TruthStore& store, pelto::Hub& hub, HubPast past, pelto::RemoteChanges remote,
            std::size_t mostRecords);

  /// Whether the session was cancelled because another computer gave changes in between.
  bool wasOvertaken() const { return _overtaken; }
  /// Additions that the account had no room for.
  std::size_t leftOut() const { return _leftOut; }
  /// Additions and changes that are too long for the service.
  std::size_t tooLong() const { return _tooLong; }
  /// Changes that are left for the next push.
  std::size_t postponed() const { return _postponed; }

  String clientIdentifier() override { return kHubClientIdentifier; }
  std::optional<Url> clientDescriptionURL() override { return std::nullopt; }
  std::vector<Url> schemaBundleURLs() override { return {bookmarksSchemaUrl()}; }
  std::vector<String> entityNamesToSync() override;
  int preferredSyncModeForEntityName(const String& entityName) override;
  double sessionBeginSessionTimeout() override;
  double sessionPullChangesTimeout() override;
  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  Dictionary changedRecordsForEntityName(const String& entityName, bool& moreComing, String& error) override;
  int applyChange(const LoomerChange& change, const String& entityName, String& remappedRecordIdentifier,
                  const Dictionary* formattedRecord, String& error) override;
  bool deleteAllRecordsForEntityName(const String& entityName, String& error) override;
  bool sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverDidPull(LoomerSessionDriver& driver, String& error) override;
  bool sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) override;
  void sessionDriverWillCancelSession(LoomerSessionDriver& driver) override;
  bool tellsEveryChange() override { return true; }
  bool mayGoBack() override { return true; }
  const EarlierState* wentBackTo() override { return pointerTo(_earlier); }
  bool identifiersAreGlobal() override { return true; }
  void willTakeChanges(const String& pushId) override { _pushId = pushId; }
  std::optional<bool> tookChanges(const String& pushId) override;

 private:
  void findEarlierState();
  void forgetFormer();
  void askForPushes();
  void readTree();
  std::vector<pelto::HubRecord> recordsOfBase();
  void noteWhatIsLeft(LoomerClient& client, const char* key, std::size_t count) const;
  bool isPushFull();
  int erase(const String& id);
  void addTombstone(const String& id);
  int put(const EntitySchema& schema, const String& id, const Dictionary& record, bool isNew);

  TruthStore& _store;
  pelto::Hub& _hub;
  RecordSchema _schema;
  HubPast _past;
  pelto::RemoteChanges _remote;
  std::optional<EarlierState> _earlier;
  std::int64_t _client = 0;   // its row in the store
  std::int64_t _session = 0;  // the number of this one

  bool _hasTree = false;
  std::vector<pelto::HubRecord> _tree;
  std::array<std::size_t, 2> _given{};  // how far each entity's records were given

  String _pushId;
  std::vector<pelto::HubRecord> _push;
  bool _offersAgain = false;  // what there was no room for before
  std::size_t _mostRecords;
  std::unordered_map<String, bool> _pushesAskedFor;  // by pushId: whether they are part of the account's past
  std::size_t _leftOut = 0;
  std::size_t _tooLong = 0;
  std::size_t _postponed = 0;
  bool _overtaken = false;
};

}  // namespace corvane::loomer
