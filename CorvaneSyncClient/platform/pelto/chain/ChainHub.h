#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/chain/AccountRecords.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainObjects.h"
#include "CorvaneSyncClient/platform/pelto/chain/Decisions.h"
#include "CorvaneSyncClient/platform/pelto/chain/History.h"
#include "CorvaneSyncClient/platform/pelto/chain/KeptFile.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane::pelto {

/// Who exchanges, and how much the account may hold.
struct ChainHubOptions {
  std::string keptPath;  ///< where this computer keeps what it knows of the chain, private to the user
  String computer;       ///< its identifier, an upper-case UUID
  std::int64_t mostRecords = chain::kMostAccountRecords;
  std::int64_t mostBytes = chain::kMostAccountBytes;
};

/// A Hub in objects at a place that knows nothing: an append-only chain of sealed commits. docs/service.md
/// says how that works; what to do next is decided in Decisions.h, and done here.
///
/// It serves one exchange. From its first call to its end no other process of this computer exchanges with
/// what is kept under the same path; who waits for ten seconds gives up with a PlaceException. A push is
/// durable at `keptPath` before it is sent; where its outcome stays unknown, the next exchange finds it out
/// before it does anything else. All calls raise PlaceException.
class ChainHub : public Hub {
 public:
  /// All must outlive this object.
  ChainHub(Place& place, const Sealer& sealer, ChainHubOptions options);
  ~ChainHub() override;

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override;
  HubPushed push(const HubPush& push) override;
  bool hasPush(const String& pushId) override;
  /// Whether the last exchange has looked at the whole chain anew, as it does once a day and where something
  /// is not as it was.
  bool hasSurveyed() const { return _state.kept.surveyed == _state.now; }
  /// The name of the newest commit, which there has to be.
  std::string newest() const { return chain::nameOf(*_state.kept.head()); }
  /// Whether the generations before this one are to be looked at, and none of them was since.
  bool isReviewDue() const { return chain::isReviewDue(_state.kept); }
  void noteReviewed();
  /// What the newest commit hands over, when it is the last one of this generation: the account goes on under
  /// another key. Nothing is pushed any more.
  std::optional<GenerationChange> change();
  /// Ends this generation with `change`: the account goes on in a chain that `next` seals, which begins with
  /// all that there is now. Overtaken when another computer gave something meanwhile, or has ended the
  /// generation. When this raises, it may have happened all the same; then `change` tells of it.
  HubPushed::Outcome changeGeneration(const Sealer& next, const GenerationChange& change);
  /// Sees to it that this generation, which once ended with `change`, has ended: where the place forgot that,
  /// being put back, `change` is given again. Answers the change that it has ended with, which is another one
  /// where somebody who had not got `change` was faster.
  GenerationChange endAgain(const GenerationChange& change);

 private:
  void open();
  void settle();
  void carryOut();
  chain::Answer perform(const chain::Action& action);
  void give();
  void keep();
  [[noreturn]] void failStuck() const;

  const std::vector<chain::Link>& path() const { return _state.kept.path; }
  bool startsWithCheckpoint() const { return !path().empty() && path().front().isCheckpoint; }
  HubState headState() const;
  chain::Count countAtHead() const;

  /// Runs `work` on a settled exchange. Where it misses an object that a commit names, begins anew once,
  /// since another computer may just have removed what is old, and reads what is older instead of a
  /// checkpoint; where that does not help for a day, passes the commit by.
  void withWhatIsMissing(const std::function<void()>& work);
  void passBy(const chain::Link& link, const chain::MissingObject& missing, bool isForGood);
  void replaceLostCheckpoint();
  const std::vector<chain::PastState>& told();
  chain::History history(const std::vector<HubState>& seen);
  RemoteChanges readChanges(const std::vector<HubState>& seen);
  void readRecords(const std::vector<HubState>& seen, RemoteChanges& remote);
  void takeCommit(chain::AccountRecords& records, const chain::Link& link);
  void readAll(chain::AccountRecords& records);
  void measureRoom(RemoteChanges& remote);

  chain::Commit commitAfterHead(const String& pushId) const;
  chain::Commit checkpointAfterHead(std::int64_t keeps, const std::vector<chain::PastState>& states,
                                    chain::ChainObjects& objects, std::vector<NamedBytes>& segments);
  HubPushed::Outcome giveCommit(chain::Commit commit);
  bool checkpoint(std::int64_t keeps);
  void checkpointIfDue();
  std::vector<chain::PastState> statesToTell(std::int64_t keeps);
  void collect();

  Place& _place;
  chain::ChainObjects _objects;
  const Sealer& _sealer;
  ChainHubOptions _options;
  chain::KeptFile _file;
  std::unique_ptr<FileSystem::Hold> _lock;
  chain::KeptContents _kept;  ///< as the file has it
  chain::State _state;
  std::vector<NamedBytes> _segments;  ///< of the undecided push
  std::string _commit;                ///< its bytes
  std::optional<chain::Link> _reading;
  std::vector<chain::Link> _passedBy;  ///< commits of which something is missing for good
  std::optional<std::pair<std::string, std::vector<chain::PastState>>>
      _told;  ///< by the checkpoint of that hash
};

}  // namespace corvane::pelto
