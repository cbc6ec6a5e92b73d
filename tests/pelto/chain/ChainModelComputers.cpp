#include "tests/pelto/chain/ChainModelComputers.h"

#include <algorithm>

namespace corvane::model {

namespace {

[[noreturn]] void fail(const std::string& what) { throw Fault{what}; }

const Chain& chainOf(const World& world, const std::string& key) {
  static const Chain kNone;
  const auto found = world.place->find(key);
  return found == world.place->end() ? kNone : found->second;
}

// Once there is nothing more to decide.
bool actsAtPlace(Doing doing) {
  return doing == Doing::collection || doing == Doing::beginning || doing == Doing::undoing ||
         doing == Doing::leaving;
}

bool isReviewing(const Work& work) {
  return work.doing == Doing::reviewing || work.doing == Doing::endingAgain;
}

// Of the chain that the computer is at.
const std::string& keyOf(const Writer& writer) {
  return isReviewing(*writer.work) ? writer.former[writer.work->reviewed - 1].key : writer.key;
}

void keep(Writer& writer, const Kept& kept) {
  (isReviewing(*writer.work) ? writer.keptOfFormer[keyOf(writer)] : writer.kept) = kept;
}

std::string nameOfLast(const Writer& writer) { return pelto::chain::nameOf(*writer.kept.head()); }

}  // namespace

void Computers::beginSession(const World& world, Writer& writer) const {
  writer.work.emplace();
  writer.work->state = _decisions.begin(writer.kept, Date{world.clock});
}

// One action of a computer, or what its engine does between two exchanges.
void Computers::step(World& world, std::size_t i, Luck luck) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  const Action action = _decisions.next(work.state);
  if (action.kind == Action::Kind::none) return conclude(world, i);
  Answer answer;
  switch (action.kind) {
    case Action::Kind::keep:
      keep(writer, _decisions.kept(work.state.kept));
      break;
    case Action::Kind::give:
      if (!give(world, writer, luck)) return;
      break;
    case Action::Kind::get:
      for (const std::string& each : action.names) answer.found.push_back(find(world, writer, each));
      if (luck == Luck::stale) {
        --world.left.stale;
        answer.found.back() = {};
      }
      break;
    case Action::Kind::list:
      for (const auto& [name, cell] : chainOf(world, keyOf(writer)).commits) answer.listed.push_back(name);
      break;
    case Action::Kind::none:
      break;
  }
  answer.now = Date{world.clock};
  work.state = _decisions.after(std::move(work.state), action, answer);
  if (action.kind == Action::Kind::give && _decisions.believesAnswers) believe(work);
}

// What touches nothing but the computer itself needs no interleaving with others. It may be killed before
// it keeps what it decided.
void Computers::goOnAlone(World& world, std::size_t i) {
  while (const auto& work = world.writers[i]->work) {
    const Action::Kind kind = _decisions.next(work->state).kind;
    const bool isKept = kind == Action::Kind::keep || work->doing == Doing::adopting;
    if (isKept ? world.left.kills > 0 : kind != Action::Kind::none || actsAtPlace(work->doing)) return;
    step(world, i, Luck::good);
  }
}

// False when more steps of giving follow.
bool Computers::give(World& world, Writer& writer, Luck luck) {
  Work& work = *writer.work;
  const Link& push = *work.state.kept.undecided;
  Chain& chain = world.place.change()[keyOf(writer)];
  if (!work.hasPutSegment) {
    chain.segments[push.hash] = world.placeTime;
    work.hasPutSegment = true;
    return false;
  }
  const Request request{keyOf(writer), pelto::chain::nameOf(push), push.hash};
  if (_decisions.replaces && !work.sawNone) {
    work.sawNone = true;
    work.wasMade = !chain.commits.contains(request.name);
    return false;
  }
  const bool replaces = _decisions.replaces && work.wasMade;
  work.hasPutSegment = work.sawNone = false;
  if (luck == Luck::lost) --world.left.lost;
  if (luck == Luck::late) {
    --world.left.late;
    world.late.push_back(request);
  }
  if (replaces) chain.commits.erase(request.name);
  work.wasMade = luck == Luck::good && make(world, request);
  return true;
}

// As one would who takes an error for a request that was not carried out.
void Computers::believe(Work& work) {
  const Link push = *work.state.kept.undecided;
  work.state.kept.undecided.reset();
  if (work.wasMade) work.state.kept.path.push_back(push);
  work.state.stage = Stage::settled;
}

bool Computers::make(World& world, const Request& request) {
  if (chainOf(world, request.key).commits.contains(request.name)) return false;
  if (world.left.rollBacks > 0) world.past.push_back(world.place);
  world.place.change()[request.key].commits[request.name] = {request.hash, Damage::none, world.placeTime};
  return true;
}

Found Computers::find(const World& world, const Writer& writer, const std::string& name) const {
  const Chain& chain = chainOf(world, keyOf(writer));
  const auto found = chain.commits.find(name);
  if (found == chain.commits.end()) return {};
  const Cell& cell = found->second;
  if (cell.damage != Damage::none) return {Found::State::damaged, {}, "damaged " + cell.hash};
  Found good{Found::State::good, _registry.at(cell.hash).link, cell.hash};
  if (good.link.isCheckpoint && writer.work->state.listed)
    good.link.isWhole = chain.segments.contains(cell.hash);
  return good;
}

// What the engine makes of a settled exchange or push.
void Computers::conclude(World& world, std::size_t i) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  if (work.doing == Doing::collection) return remove(world, writer);
  if (work.doing == Doing::beginning) return beginGeneration(world, i);
  if (work.doing == Doing::adopting) return adopt(world, i);
  if (work.doing == Doing::leaving) return leave(world, writer);
  if (work.doing == Doing::undoing) {
    world.place.change().erase(work.next);
    return writer.work.reset();
  }
  keep(writer, _decisions.kept(work.state.kept));
  if (isReviewing(work)) return concludeReview(world, i);
  if (work.state.stage == Stage::stuck) return writer.work.reset();
  if (work.doing == Doing::exchange) return concludeExchange(world, i);
  concludeCommit(world, i,
                 work.state.kept.head() && isIn(work.state.kept.path, _registry.at(work.pushed).link));
}

void Computers::concludeExchange(World& world, std::size_t i) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  if (isEnded(work.state.kept)) {
    const Made& last = _registry.at(work.state.kept.head()->hash);
    if (work.removes) return writer.work.reset();
    if (last.removed == i) {
      writer.isOut = true;
      return writer.work.reset();
    }
    work.next = last.next;
    work.doing = Doing::adopting;
    return;
  }
  if (work.removes) {
    if (work.state.isBlocked || missingOfAll(world, writer)) return writer.work.reset();
    work.doing = Doing::beginning;
    return;
  }
  const bool canReplace = !work.hasReplaced && !work.state.isBlocked && !missingOfAll(world, writer);
  if (work.hasReadAgain && canReplace && goesAround(work.state.kept.path)) {
    work.hasReplaced = true;
    return checkpoint(world, i, work.state.kept.head()->number, Doing::replacing);
  }
  if (const Link* const missing = missingOf(world, writer)) return remedy(world, i, *missing);
  // Elsewhere the last commit of a generation stays, and looking at it is nothing but more states.
  const bool reviews = _bounds.rollBacks > 0 && !writer.former.empty();
  if (!reviews || !_decisions.isReviewDue(work.state.kept)) return goOnWithExchange(world, i);
  work.exchange = work.state;
  work.reviewed = writer.former.size();
  review(world, i);
}

void Computers::goOnWithExchange(World& world, std::size_t i) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  takeIn(world, i);
  const Edits given = writer.truth & ~writer.base;
  if (given != 0 && !work.state.isBlocked) return push(world, i, given);
  for (const auto& [key, last] : writer.left) {
    if (leftBy(world, writer, key, last).empty()) continue;
    work.doing = Doing::leaving;
    return;
  }
  writer.work.reset();
}

void Computers::concludeCommit(World& world, std::size_t i, bool isDone) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  switch (work.doing) {
    case Doing::push:
      if (!isDone) break;
      settlePush(writer, work.pushed);
      if (world.left.checkpoints == 0 || work.state.isBlocked || missingOfAll(world, writer)) break;
      --world.left.checkpoints;
      return checkpoint(world, i, work.state.kept.head()->number, Doing::checkpoint);
    case Doing::checkpoint:
      if (!isDone) break;
      work.doing = Doing::collection;
      work.collected = collectableAt(world, writer);
      return;
    case Doing::passing:
      return readAgain(world, writer);
    case Doing::replacing:
      work.doing = Doing::exchange;
      return;
    case Doing::ending:
      work.doing = isDone ? Doing::adopting : Doing::undoing;
      return;
    default:
      break;
  }
  writer.work.reset();
}

void Computers::settlePush(Writer& writer, const std::string& hash) const {
  writer.base = _registry.at(hash).all;
  writer.seen = hash;
  writer.known.insert(hash);
  writer.journal.clear();
}

History Computers::historyOf(const std::vector<Link>& path) const {
  std::vector<PastState> told;
  if (!path.empty() && path.front().isCheckpoint) told = _registry.at(path.front().hash).told;
  return {path, told};
}

void Computers::takeIn(World& world, std::size_t i) {
  Writer& writer = world.writers[i].change();
  const std::vector<Link>& path = writer.work->state.kept.path;
  const History history = historyOf(path);
  const Link seen = writer.seen.empty() ? Link() : _registry.at(writer.seen).link;
  const bool continues = writer.seen.empty() || _decisions.contains(history, seen);
  if (!continues && !world.hasRolledBack && _bounds.damages == 0 && _bounds.losses == 0)
    fail("what stood in the chain no longer does, though the place never went back");
  if (!continues) writer.base = 0;
  if (!writer.journal.empty() && continues && history.hasPush(_registry.at(writer.journal).link.pushId))
    writer.base |= _registry.at(writer.journal).edits;
  const bool isWhole =
      !continues || (!path.empty() && path.front().isCheckpoint && path.front().number > seen.number);
  for (const Link& link : path) {
    const Made& commit = _registry.at(link.hash);
    const bool isFirst = link.hash == path.front().hash;
    if (isWhole && isFirst) writer.base |= commit.all;
    if (!isWhole && link.number <= seen.number) continue;
    takeCommit(world, i, commit, continues && !isWhole);
    writer.known.insert(link.hash);
    writer.base |= commit.edits;
  }
  writer.truth |= writer.base;
  const Edits held = path.empty() ? 0 : _registry.at(path.back().hash).all;
  if (writer.base != held) fail("a computer takes the service to hold what it does not hold");
  writer.seen = path.empty() ? std::string() : path.back().hash;
  writer.journal.clear();
}

void Computers::takeCommit(const World& world, std::size_t i, const Made& commit, bool isNews) const {
  if (world.hasRolledBack) return;
  const Writer& writer = *world.writers[i];
  const bool isKnown = writer.journal == commit.link.hash || writer.known.contains(commit.link.hash);
  if (isNews && commit.writer == i && commit.edits != 0 && !isKnown)
    fail("a computer takes its own old values for another's new ones");
}

// Whether what the commit names is to be read by who takes in all.
bool Computers::needs(const World& world, const Writer& writer, const Link& link) const {
  const Work& work = *writer.work;
  const bool isFront = link.hash == work.state.kept.path.front().hash;
  const bool isRead = link.isCheckpoint ? isFront : _registry.at(link.hash).edits != 0;
  return isRead && !isIn(work.passedBy, link) && !isReadable(chainOf(world, writer.key), link.hash);
}

// The first commit on the way from what the computer has seen of which something is missing.
const Link* Computers::missingOf(const World& world, const Writer& writer) const {
  const std::vector<Link>& path = writer.work->state.kept.path;
  const Link seen = writer.seen.empty() ? Link() : _registry.at(writer.seen).link;
  const bool reaches = !writer.seen.empty() && !path.empty() && seen.number >= path.front().number &&
                       History(path, {}).contains(seen.number, seen.pushId);
  for (const Link& link : path) {
    if ((!reaches || link.number > seen.number) && needs(world, writer, link)) return &link;
  }
  return nullptr;
}

const Link* Computers::missingOfAll(const World& world, const Writer& writer) const {
  for (const Link& link : writer.work->state.kept.path) {
    if (needs(world, writer, link)) return &link;
  }
  return nullptr;
}

void Computers::readAgain(World& world, Writer& writer) const {
  Work& work = *writer.work;
  work.doing = Doing::exchange;
  work.hasReadAgain = true;
  work.hasReplaced = false;
  work.state.kept.path.clear();
  work.state = _decisions.begin(std::move(work.state.kept), Date{world.clock});
}

void Computers::remedy(World& world, std::size_t i, Link missing) {
  if (_bounds.losses == 0 && !world.hasRolledBack) fail("a commit names what is not there");
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  while (true) {
    const bool isForGood =
        _decisions.isMissingForGood(work.state.kept, missing, work.state.now, Date{world.clock});
    if (!work.hasReadAgain) return readAgain(world, writer);
    if (!isForGood || work.state.isBlocked) {
      writer.kept = _decisions.kept(work.state.kept);
      return writer.work.reset();
    }
    work.passedBy.push_back(missing);
    const Link* const another = missingOfAll(world, writer);
    if (!another) break;
    missing = *another;
  }
  checkpoint(world, i, _decisions.continuedWithout(work.passedBy), Doing::passing);
}

Made Computers::commitAfterHead(std::size_t i, const Work& work) const {
  const std::vector<Link>& path = work.state.kept.path;
  Made commit;
  commit.writer = i;
  Link& link = commit.link;
  link.number = 1;
  link.previous = beginning();
  link.attempt = work.state.attempt;
  if (path.empty()) return commit;
  commit.all = _registry.at(path.back().hash).all;
  link.number = path.back().number + 1;
  link.previous = path.back().hash;
  link.before = path.front().isCheckpoint ? path.front().number : 0;
  link.tail = path.back().tail + 1;
  return commit;
}

// What all of the path holds but for what is passed by.
Edits Computers::readable(const Work& work) const {
  Edits edits = 0;
  const std::vector<Link>& path = work.state.kept.path;
  for (const Link& link : path) {
    if (isIn(work.passedBy, link)) continue;
    const Made& commit = _registry.at(link.hash);
    edits |= link.isCheckpoint && link.hash == path.front().hash ? commit.all : commit.edits;
  }
  return edits;
}

// As a checkpoint that continues the states up to that number.
void Computers::tell(Made& commit, const std::vector<Link>& path, std::int64_t keeps) const {
  commit.link.isCheckpoint = true;
  commit.link.keeps = keeps;
  commit.link.tail = 0;
  std::vector<PastState> states;
  for (auto each = path.rbegin(); each != path.rend(); ++each)
    states.push_back({each->number, each->pushId, {}});
  if (!path.empty() && path.front().isCheckpoint) {
    const std::vector<PastState>& before = _registry.at(path.front().hash).told;
    states.insert(states.end(), before.begin(), before.end());
  }
  std::erase_if(states, [&](const PastState& each) { return each.number > keeps; });
  commit.told.insert(commit.told.end(), states.begin(), states.end());
}

void Computers::identify(Made& commit, const std::string& key) {
  Digest digest;
  digest.add(key);
  digest.add(commit.link.previous);
  digest.add(commit.link.attempt);
  digest.add(commit.link.isCheckpoint);
  digest.add(commit.link.keeps);
  digest.add(commit.edits);
  digest.add(commit.all);
  digest.add(commit.writer);
  digest.add(commit.next);
  digest.add(commit.isAgain);
  // As long as real ones, or a listing would take their names for something else.
  const auto [one, other] = digest.value();
  for (const std::uint64_t each : {one, other, one, other})
    commit.link.hash.append(reinterpret_cast<const char*>(&each), sizeof each);
  commit.link.pushId = commit.link.hash.substr(0, 15);  // so short that copies take no memory
  _registry.try_emplace(commit.link.hash, commit);
}

void Computers::give(World& world, std::size_t i, Made commit, Doing doing) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  identify(commit, writer.key);
  work.doing = doing;
  work.pushed = commit.link.hash;
  work.state = _decisions.beginPush(std::move(work.state), _registry.at(commit.link.hash).link);
}

void Computers::push(World& world, std::size_t i, Edits edits) {
  Made commit = commitAfterHead(i, *world.writers[i]->work);
  if (commit.all & edits) fail("an edit is given twice");
  commit.edits = edits;
  commit.all |= edits;
  give(world, i, std::move(commit), Doing::push);
  Writer& writer = world.writers[i].change();
  writer.journal = writer.work->pushed;
}

void Computers::checkpoint(World& world, std::size_t i, std::int64_t keeps, Doing doing) {
  const Work& work = *world.writers[i]->work;
  Made commit = commitAfterHead(i, work);
  commit.all = readable(work);
  tell(commit, work.state.kept.path, keeps);
  give(world, i, std::move(commit), doing);
}

Made Computers::lastCommit(std::size_t i, const Work& work) const {
  Made last = commitAfterHead(i, work);
  last.link.isLast = true;
  last.next = work.next;
  last.removed = *work.removes;
  return last;
}

// Under the next key.
Made Computers::firstCommit(std::size_t i, const Work& work, const Link& last) const {
  Made first = commitAfterHead(i, work);
  first.all = readable(work);
  if (!_decisions.beginsWithoutStates) {
    first.told.push_back({last.number, last.pushId, {}});
    tell(first, work.state.kept.path, last.number - 1);
  }
  first.link.isCheckpoint = true;
  first.link.keeps = last.number;
  first.link.number = last.number + 1;
  first.link.attempt = 0;
  first.link.before = 0;
  return first;
}

void Computers::makeFirst(World& world, const Work& work) {
  world.place.change()[work.next].segments[work.first.hash] = world.placeTime;
  make(world, work.first);
}

// The chain under the next key is there before the last commit of this one hands that key over.
void Computers::beginGeneration(World& world, std::size_t i) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  work.next = std::to_string(i) + "." + std::to_string(world.left.changes);
  Made last = lastCommit(i, work);
  identify(last, writer.key);
  Made first = firstCommit(i, work, last.link);
  identify(first, work.next);
  work.first = {work.next, pelto::chain::nameOf(first.link), first.link.hash};
  writer.left[work.next] = "";
  if (!_decisions.handsOverAtOnce) makeFirst(world, work);
  give(world, i, std::move(last), Doing::ending);
}

void Computers::adopt(World& world, std::size_t i) const {
  Writer& writer = world.writers[i].change();
  const Work work = *writer.work;
  if (_decisions.handsOverAtOnce && work.removes) makeFirst(world, work);
  writer.left[writer.key] = nameOfLast(writer);
  writer.left.erase(work.next);
  const std::size_t removed = _registry.at(writer.kept.head()->hash).removed;
  writer.former.push_back({writer.key, work.next, removed, nameOfLast(writer)});
  writer.key = work.next;
  writer.kept = {};
  writer.work.reset();
  if (!work.removes) beginSession(world, writer);
}

void Computers::review(World& world, std::size_t i) const {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  work.doing = Doing::reviewing;
  work.timesEnded = 0;
  work.state = _decisions.begin(writer.keptOfFormer[keyOf(writer)], Date{world.clock});
}

void Computers::concludeReview(World& world, std::size_t i) {
  constexpr int kMostTimes = 3;
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  Former& former = writer.former[work.reviewed - 1];
  const bool isStuck = work.state.stage == Stage::stuck;
  if (!isStuck && isEnded(work.state.kept)) {
    const std::string last = pelto::chain::nameOf(*work.state.kept.head());
    if (former.last != last) writer.left[former.key] = former.last = last;
    if (--work.reviewed == 0) return endReview(world, i, true);
    return review(world, i);
  }
  if (work.doing == Doing::endingAgain && !isStuck) {
    // Another commit has the slot.
    work.doing = Doing::reviewing;
    work.state = _decisions.begin(std::move(work.state.kept), Date{world.clock});
    return;
  }
  if (isStuck || work.state.isBlocked || work.timesEnded++ == kMostTimes) return endReview(world, i, false);
  Made last = commitAfterHead(i, work);
  last.link.isLast = last.isAgain = true;
  last.next = former.next;
  last.removed = former.removed;
  identify(last, former.key);
  work.doing = Doing::endingAgain;
  work.state = _decisions.beginPush(std::move(work.state), _registry.at(last.link.hash).link);
}

void Computers::endReview(World& world, std::size_t i, bool isDone) {
  Writer& writer = world.writers[i].change();
  Work& work = *writer.work;
  work.reviewed = 0;
  work.doing = Doing::exchange;
  work.state = std::move(work.exchange);
  work.state.kept.isReviewed = isDone;
  writer.kept = _decisions.kept(work.state.kept);
  goOnWithExchange(world, i);
}

std::vector<std::string> Computers::leftBy(const World& world, const Writer& writer, const std::string& key,
                                           const std::string& last) const {
  if (key == writer.key) return {};
  std::vector<pelto::PlaceObject> objects;
  const Chain& chain = chainOf(world, key);
  for (const auto& [name, cell] : chain.commits) objects.push_back({name, 0, Date{cell.written}});
  for (const auto& [hash, written] : chain.segments) objects.push_back({hash, 0, Date{written}});
  return _decisions.leftBehind(objects, last, Date{world.placeTime});
}

void Computers::leave(World& world, Writer& writer) const {
  for (const auto& [key, last] : writer.left) {
    for (const std::string& each : leftBy(world, writer, key, last)) {
      Chain& chain = world.place.change()[key];
      chain.commits.erase(each);
      chain.segments.erase(each);
    }
  }
  writer.work.reset();
}

// The place may have gone back since it was listed.
void Computers::remove(World& world, Writer& writer) {
  Chain& chain = world.place.change()[writer.key];
  for (const std::string& each : writer.work->collected.commits) chain.commits.erase(each);
  for (const std::string& each : writer.work->collected.segments) chain.segments.erase(each);
  writer.work.reset();
}

Collectable Computers::collectableAt(const World& world, const Writer& writer) const {
  const Chain& chain = chainOf(world, writer.key);
  std::vector<pelto::PlaceObject> commits, segments;
  std::vector<std::string> named;
  for (const auto& [name, cell] : chain.commits) {
    commits.push_back({name, 0, Date{cell.written}});
    named.push_back(cell.hash);
  }
  for (const auto& [name, written] : chain.segments) segments.push_back({name, 0, Date{written}});
  std::sort(named.begin(), named.end());
  return _decisions.collectable(commits, segments, writer.work->state.kept.path.front().before, named);
}

}  // namespace corvane::model
