#pragma once

#include <string>
#include <vector>

#include "tests/pelto/chain/ChainModelWorld.h"

namespace corvane::model {

/// What must not be.
struct Fault {
  std::string what;
};

/// What may happen to a computer's next step.
enum class Luck { good, lost, late, stale };

/// What the computers of a world do, each action of the decisions and each thing that happens between two of
/// them being one step. Raises Fault.
class Computers {
 public:
  /// Both must outlive this object.
  Computers(const Bounds& bounds, const Decisions& decisions) : _bounds(bounds), _decisions(decisions) {}

  void beginSession(const World& world, Writer& writer) const;
  /// One step of a computer that is at work.
  void step(World& world, std::size_t i, Luck luck);
  /// Steps until the computer does something that others can see.
  void goOnAlone(World& world, std::size_t i);
  /// Carries a request out; false when something is there.
  static bool make(World& world, const Request& request);

  Action next(const Writer& writer) const { return _decisions.next(writer.work->state); }
  const Registry& registry() const { return _registry; }

 private:
  bool give(World& world, Writer& writer, Luck luck);
  static void believe(Work& work);
  Found find(const World& world, const Writer& writer, const std::string& name) const;

  void conclude(World& world, std::size_t i);
  void concludeExchange(World& world, std::size_t i);
  void goOnWithExchange(World& world, std::size_t i);
  void concludeCommit(World& world, std::size_t i, bool isDone);
  void carryOut(World& world, std::size_t i);

  History historyOf(const std::vector<Link>& path) const;
  void takeIn(World& world, std::size_t i);
  void takeCommit(const World& world, std::size_t i, const Made& commit, bool isNews) const;
  void settlePush(Writer& writer, const std::string& hash) const;

  bool needs(const World& world, const Writer& writer, const Link& link) const;
  const Link* missingOf(const World& world, const Writer& writer) const;
  const Link* missingOfAll(const World& world, const Writer& writer) const;
  void readAgain(World& world, Writer& writer) const;
  void remedy(World& world, std::size_t i, Link missing);

  Made commitAfterHead(std::size_t i, const Work& work) const;
  Edits readable(const Work& work) const;
  void tell(Made& commit, const std::vector<Link>& path, std::int64_t keeps) const;
  void identify(Made& commit, const std::string& key);
  void give(World& world, std::size_t i, Made commit, Doing doing);
  void push(World& world, std::size_t i, Edits edits);
  void checkpoint(World& world, std::size_t i, std::int64_t keeps, Doing doing);

  Made lastCommit(std::size_t i, const Work& work) const;
  Made firstCommit(std::size_t i, const Work& work, const Link& last) const;
  void beginGeneration(World& world, std::size_t i);
  static void makeFirst(World& world, const Work& work);
  void adopt(World& world, std::size_t i) const;
  void review(World& world, std::size_t i) const;
  void concludeReview(World& world, std::size_t i);
  void endReview(World& world, std::size_t i, bool isDone);
  void leave(World& world, Writer& writer) const;
  std::vector<std::string> leftBy(const World& world, const Writer& writer, const std::string& key,
                                  const std::string& last) const;

  Collectable collectableAt(const World& world, const Writer& writer) const;
  static void remove(World& world, Writer& writer);

  const Bounds& _bounds;
  const Decisions& _decisions;
  Registry _registry;
};

}  // namespace corvane::model
