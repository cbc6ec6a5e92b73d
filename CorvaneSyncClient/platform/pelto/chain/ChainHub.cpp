#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

// The exchange: the decisions' actions, carried out. What is read and taken in stands in ChainHubReading.cpp,
// what is given in ChainHubGiving.cpp.

namespace corvane::pelto {

using namespace chain;

ChainHub::ChainHub(Place& place, const Sealer& sealer, ChainHubOptions options)
    : _place(place),
      _objects(place, sealer),
      _sealer(sealer),
      _options(std::move(options)),
      _file(_options.keptPath, sealer.folder()) {}

ChainHub::~ChainHub() = default;

void ChainHub::open() {
  if (_lock) return;
  PrivateFileError problem;
  _lock = holdBeside(_options.keptPath, problem);
  if (!_lock) throw PlaceException(Message("Can't lock %1: %2.", problem.path, problem.error.message()));
  _kept = _file.read();
  _state.kept = _kept.kept;
  _commit = _kept.commit;
  _segments = _kept.segments;
  _objects.setTags(_kept.tags);
}

void ChainHub::settle() {
  _state = begin(std::move(_state.kept), Platform::current().clock.now());
  carryOut();
}

void ChainHub::carryOut() {
  while (true) {
    const Action action = next(_state);
    if (action.kind == Action::Kind::none) break;
    const Answer answer = perform(action);
    _state = after(std::move(_state), action, answer);
  }
  keep();
  if (_state.stage == Stage::stuck) failStuck();
}

Answer ChainHub::perform(const Action& action) {
  Answer answer;
  switch (action.kind) {
    case Action::Kind::keep:
      keep();
      break;
    case Action::Kind::give:
      give();
      break;
    case Action::Kind::get:
      answer.found = _objects.find(action.names);
      break;
    case Action::Kind::list:
      for (const PlaceObject& each : _objects.listCommits()) answer.listed.push_back(each.name);
      break;
    case Action::Kind::none:
      break;
  }
  answer.now = Platform::current().clock.now();
  return answer;
}

void ChainHub::give() {
  if (!_segments.empty()) _objects.put(_segments);
  _objects.putNew(nameOf(*_state.kept.undecided), _commit);
}

void ChainHub::keep() {
  if (!_state.kept.undecided) {
    _commit.clear();
    _segments.clear();
  }
  const auto tagOf = [](const std::map<std::string, TaggedLink>& tags, const Link* head) {
    const auto found = head ? tags.find(nameOf(*head)) : tags.end();
    return found == tags.end() ? std::string() : found->second.tag;
  };
  const Link* const head = _state.kept.head();
  if (_state.kept == _kept.kept && tagOf(_objects.tags(), head) == tagOf(_kept.tags, head)) return;
  KeptContents contents{_state.kept, _commit, _segments, _objects.tags()};
  _file.write(contents);
  _kept = std::move(contents);
}

void ChainHub::failStuck() const {
  const Message where = _objects.whereabouts();
  switch (_state.cause) {
    case Cause::damaged:
      throw PlaceException(
          Message("The object %1 in %2 is damaged. If it stays so for ten minutes, it is passed by.",
                  "c/" + _state.damaged, where));
    case Cause::forgets:
      throw PlaceException(Message("What is given does not stay in %1. Sync again later.", where));
    case Cause::restless:
    case Cause::none:
      break;
  }
  throw PlaceException(
      Message("What is kept in %1 is another each time that it is read. Sync again later.", where));
}

HubState ChainHub::headState() const {
  const Link* const head = _state.kept.head();
  const String account(_sealer.account());
  return head ? HubState{account, head->number, head->pushId} : HubState{account, 0, {}};
}

}  // namespace corvane::pelto
