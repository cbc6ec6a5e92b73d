#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

// The end of a generation of the account's key. The chain under the next key is there first, and nobody can
// open it before the last commit of this one hands the key over; its slot decides when two computers try.
// What others gave in between is lost to the new chain, and given again by those who see that their state is
// no part of its history.

namespace corvane::pelto {

using namespace chain;

namespace {

constexpr int kMostRounds = 3;

// Puts the first commit of a chain with what it names. Raises PlaceException unless it is there then.
void begin(ChainObjects& objects, const Commit& commit, Link& link, const std::vector<NamedBytes>& segments) {
  objects.put(segments);
  const std::string bytes = objects.sealCommit(commit, link);
  objects.putNew(nameOf(link), bytes);
  const Found found = objects.find({nameOf(link)}).front();
  if (found.state != Found::State::good || found.link.hash != link.hash)
    throw PlaceException(
        Message("What is given does not stay in %1. Try again later.", objects.whereabouts()));
}

void removeAll(ChainObjects& objects, const Link& link, const Snapshot& snapshot) {
  std::vector<std::string> segments{snapshot.history.name};
  for (const SegmentRef& each : snapshot.segments) segments.push_back(each.name);
  objects.remove({nameOf(link)}, segments);
}

}  // namespace

std::optional<GenerationChange> ChainHub::change() {
  open();
  if (_state.stage != Stage::settled) settle();
  if (!isEnded(_state.kept)) return std::nullopt;
  return _objects.commit(*_state.kept.head()).change;
}

HubPushed::Outcome ChainHub::changeGeneration(const Sealer& next, const GenerationChange& change) {
  open();
  settle();
  if (isEnded(_state.kept)) return HubPushed::Outcome::overtaken;
  ChainObjects objects(_place, next);
  Commit last, first;
  std::vector<NamedBytes> segments;
  withWhatIsMissing([&] {
    last = commitAfterHead(Platform::current().uuids.newUuid());
    const std::int64_t number = last.link.number;
    std::vector<PastState> states = statesToTell(number - 1);
    // By the place's clock, as all of them: this computer's may be wrong.
    const Date date = states.empty() ? Platform::current().clock.now() : states.front().date;
    states.insert(states.begin(), {number, last.link.pushId, date});
    segments.clear();
    first = checkpointAfterHead(number, states, objects, segments);
  });
  last.change = change;
  last.link.isLast = true;
  first.link.number = last.link.number + 1;
  first.link.before = 0;
  first.link.attempt = 0;
  begin(objects, first, first.link, segments);
  _segments.clear();
  const HubPushed::Outcome outcome = giveCommit(std::move(last));
  if (outcome != HubPushed::Outcome::done) removeAll(objects, first.link, *first.snapshot);
  return outcome;
}

void ChainHub::noteReviewed() {
  _state.kept.isReviewed = true;
  keep();
}

// Nothing is begun under the next key: whoever gives this has it, and gives what there is under it as to any
// place that went back.
GenerationChange ChainHub::endAgain(const GenerationChange& change) {
  open();
  for (int i = 0; i < kMostRounds; ++i) {
    settle();
    if (isEnded(_state.kept)) return *this->change();
    Commit last = commitAfterHead(Platform::current().uuids.newUuid());
    last.change = change;
    last.link.isLast = true;
    _segments.clear();
    const HubPushed::Outcome outcome = giveCommit(std::move(last));
    if (outcome == HubPushed::Outcome::done) return change;
    if (outcome == HubPushed::Outcome::full)
      throw PlaceFullException(Message("There is no room in %1.", _objects.whereabouts()));
  }
  throw PlaceException(Message("Others give all the time in %1. Sync again later.", _objects.whereabouts()));
}

}  // namespace corvane::pelto
