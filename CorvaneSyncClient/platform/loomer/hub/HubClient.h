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
#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// The online service's name among the engine's clients.
inline constexpr const char* kHubClientIdentifier = "com.keldra.Pelto";
/// Its value in the store that is there while there is no room for what changes here.
inline constexpr const char* kNoRoomKey = "no room";

/// Whether the last sessions left records out of the service because the account was full.
bool leftOutOfHub(LoomerClient& client);
/// Whether the next push has more to offer than the truth's changes: what was postponed, or what was left out
/// and `room`, in records, may now suffice for.
bool offersAgainToHub(LoomerClient& client, std::int64_t room);

/// Whether what is new at the service has to be in the store before anything is given, so that a push whose
/// outcome stays unknown holds nothing of it back. Not where the service lost something: that is given again
/// in the session that finds it out.
bool takesInFirst(LoomerClient& client, const HubPast& past, const pelto::RemoteChanges& remote);

/// One session of the online service as a client of the engine. Its tree is its base with the remote changes
/// applied; what the session delivers to it becomes one push. Its local ids are the service's ids, and the
/// engine's identifiers for additions, so that a record has the same id on every computer.
class HubClient : public LoomerSessionDriverDataSource {
 public:
  /// `hub` and `store` must outlive this object. `remote` is the hub's answer to the states of `past`. The
  /// push takes at most `mostRecords` records; the rest is postponed to the next one.
  HubClient(TruthStore& store, pelto::Hub& hub, HubPast past, pelto::RemoteChanges remote,
            std::size_t mostRecords);

  /// Has the push take that many records at most.
  void giveAtMost(std::size_t records) { _mostRecords = records; }

  /// Whether the session was cancelled because another computer pushed in between.
  bool wasOvertaken() const { return _overtaken; }
  /// Whether the session was cancelled because there was no room at the service for the push.
  bool foundNoRoom() const { return _foundNoRoom; }
  /// The number of records left out because the account is full.
  std::size_t leftOut() const { return _leftOut; }
  /// The number of additions and changes that are too long for the service.
  std::size_t tooLong() const { return _tooLong; }
  /// The number of records in the push that was tried.
  std::size_t inPush() const { return _inPush; }
  /// The number of changes postponed to the next push.
  std::size_t postponed() const { return _postponed; }
  /// How long the service took to take the push, in seconds; 0 when there was none.
  double pushSeconds() const { return _pushSeconds; }

  // The client's side of the session; LoomerSessionDriverDataSource describes each function.
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
  bool keepsHistory() override { return true; }
  const EarlierState* wentBackTo() override { return pointerTo(_earlier); }
  void willTakeChanges(const String& pushId) override { _pushId = pushId; }
  std::optional<bool> tookChanges(const String& pushId) override;

 private:
  void findEarlierState();
  void readWhatWasLost(LoomerClient& client);
  void readPushes();
  void tellAges();
  Age ageOf(const String& origin) const;
  bool isNews(const String& origin) const { return ageOf(origin) == Age::news; }
  bool hasNews(const pelto::HubOrigins& origins) const;
  std::vector<pelto::HubState> statesGivenAgain();
  void setOrigins(pelto::HubPush& push);
  String originOfDeletion(const String& id, const String& pushId) const;
  std::unordered_map<String, pelto::HubRecord> lostRecords();
  pelto::HubOrigins originsAt(const pelto::HubRecord& held);
  pelto::HubOrigins settledOrigins(const pelto::HubRecord& held) const;
  void keepOrigins(const std::vector<pelto::HubRecord>& given);
  void keepPushes(const String& pushId, const pelto::HubState& seen);
  void forgetFormer();
  void askForPushes();
  void readTree();
  void takeMarksOff();
  std::vector<pelto::HubRecord> recordsOfBase();
  void noteWhatIsLeft(LoomerClient& client, const char* key, std::size_t count) const;
  void noteWhatIsLost(LoomerClient& client, bool isGiven) const;
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
  std::int64_t _client = 0;   ///< its row in the store
  std::int64_t _session = 0;  ///< this session's number
  std::optional<Journal> _journal;
  /// The number of the session at whose end the service held what it has lost and is given again; 0 when it
  /// lost nothing, or has it all again.
  std::int64_t _lostSession = 0;
  /// The number of the last session at whose end it held nothing that it has lost.
  std::int64_t _partedSession = 0;
  /// The origins of all that, and of the rest.
  std::unordered_map<String, pelto::HubOrigins> _knownOrigins;
  std::unordered_map<String, String> _knownDeletions;
  /// The pushes out of which its states have grown that the base has stood for.
  std::unordered_set<String> _knownPushes;

  bool _hasTree = false;
  std::vector<pelto::HubRecord> _tree;
  std::array<std::size_t, 2> _given{};  ///< how much of `_tree` was read for each entity

  String _pushId;
  std::vector<pelto::HubRecord> _push;
  bool _offersAgain = false;  ///< what was postponed or left out before
  std::size_t _mostRecords;
  std::size_t _inPush = 0;
  /// By push id: whether the push is part of the account's history.
  std::unordered_map<String, bool> _pushesAskedFor;
  std::size_t _leftOut = 0;
  std::size_t _tooLong = 0;
  std::size_t _postponed = 0;
  double _pushSeconds = 0;
  bool _overtaken = false;
  bool _foundNoRoom = false;
};

}  // namespace corvane::loomer
