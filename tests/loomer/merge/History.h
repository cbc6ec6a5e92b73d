#pragma once

#include <string>
#include <vector>

#include "tests/loomer/merge/ClientSimulation.h"

namespace corvane::loomer::test {

/// Several clients around one truth, wholly in memory. Every session checks everything that must hold after a
/// merge and raises std::logic_error with the reason where it does not.
class History {
 public:
  enum class Mode { slow, refresh, replace };

  explicit History(std::size_t clients);

  std::size_t size() const { return _clients.size(); }
  ClientSimulation& client(std::size_t at) { return _clients.at(at).simulation; }
  const std::vector<TruthRecord>& truth() const { return _truth; }

  /// What a slow session of the client would merge now.
  MergeInput inputFor(std::size_t at) { return inputFor(_clients.at(at), Mode::slow); }
  /// One session, as refresh if the client has no base yet; its result.
  MergeResult sync(std::size_t at, Mode mode = Mode::slow);
  /// A session that is killed after the client saved its file and before the engine committed.
  void syncKilled(std::size_t at);
  /// One session of every client.
  void round();
  /// Raises if the clients do not hold one tree, the truth's, or if another round would change anything.
  void requireConverged();

  std::string printTruth() const;
  std::size_t sessions() const { return _sessions; }

 private:
  struct Client {
    ClientSimulation simulation;
    std::vector<BaseRecord> base;
  };

  MergeInput inputFor(Client& client, Mode mode) const;
  MergeResult mergeChecked(const MergeInput& input) const;
  void commit(const MergeResult& result);
  void requireQuiet(Client& client);

  std::vector<Client> _clients;
  std::vector<TruthRecord> _truth;
  RecordId _nextRecord = 1;
  std::int64_t _revision = 1;
  std::size_t _sessions = 0;
};

/// Raises std::logic_error unless `result` is sound as an answer to `input`: the truth stays a forest, what
/// is delivered to the client is in order, and nothing is written that changes nothing.
void requireSound(const MergeInput& input, const MergeResult& result);

/// The records after the changes.
std::vector<TruthRecord> changedTruth(const std::vector<TruthRecord>& truth,
                                      const std::vector<TruthChange>& changes);

}  // namespace corvane::loomer::test
