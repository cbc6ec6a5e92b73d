#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace corvane {

/// What became of one value of an entry: each edit replaced a value that its author saw. No value comes
/// twice.
class ValueHistory {
 public:
  explicit ValueHistory(const std::string& first) { _followers[first]; }

  bool knows(const std::string& value) const { return _followers.contains(value); }
  void edit(const std::string& from, const std::string& to) {
    ++_followers[from];
    _followers[to];
  }
  /// Everybody sees that value from now on, and no other.
  void settle(const std::string& value);
  /// Those that no edit replaced. There are several where edits were made without knowing of one another.
  std::vector<std::string> last() const;

 private:
  std::map<std::string, int> _followers;
};

/// What an entry says: its name, its address, whether it opens as tabs, and the entry that it is in.
using EntryValues = std::vector<std::string>;

/// What became of one entry.
class EntryHistory {
 public:
  explicit EntryHistory(const EntryValues& first);

  /// Of a new value only.
  void edit(std::size_t which, const std::string& from, const std::string& to) {
    _values[which].edit(from, to);
  }
  bool knows(std::size_t which, const std::string& value) const { return _values[which].knows(value); }
  /// An entry was put into it, which is a folder.
  void fill(const std::string& entry) { _entered.insert(entry); }
  /// Somebody deleted it who saw these values, and at some time these entries in it.
  void erase(const EntryValues& seen, const std::set<std::string>& seenInIt) {
    _deletions.push_back({seen, seenInIt});
  }

  /// All computers hold these values, or nothing of it: from now on everybody sees what came of the edits so
  /// far.
  void settle(const EntryValues* end);

  bool wasDeleted() const { return !_deletions.empty(); }
  /// Whether somebody deleted it who knew of every edit, and of everything that was put into it.
  bool mustBeGone() const;
  /// What is wrong with the values that it ended with; empty where they are right. Where somebody deleted it,
  /// and somebody else edited it, the edits of the first may have gone with it.
  std::string complaint(const EntryValues& end) const;

 private:
  struct Deletion {
    EntryValues seen;
    std::set<std::string> seenInIt;
  };

  std::vector<ValueHistory> _values;
  std::set<std::string> _entered;
  std::vector<Deletion> _deletions;
};

}  // namespace corvane
