#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace corvane {

/// What became of one value of an entry: each edit replaced a value that its author saw. A value that comes
/// twice is taken for one that no edit replaced, since nobody can tell which of the two was.
class ValueHistory {
 public:
  explicit ValueHistory(const std::string& first) { _followers[first]; }

  bool knows(const std::string& value) const { return _followers.contains(value); }
  void edit(const std::string& from, const std::string& to) {
    if (knows(to)) comeBack(to);
    ++_followers[from];
    _followers[to];
  }
  /// It is there again, whatever replaced it.
  void comeBack(const std::string& value) {
    _followers[value];
    _back.insert(value);
  }
  bool hasComeBack() const { return !_back.empty(); }
  /// Everybody sees that value from now on, and no other.
  void settle(const std::string& value);
  /// Those that no edit replaced. There are several where edits were made without knowing of one another.
  std::vector<std::string> last() const;

 private:
  std::map<std::string, int> _followers;
  std::set<std::string> _back;
};

/// What an entry says: its name, its address, whether it opens as tabs, and the entry that it is in.
using EntryValues = std::vector<std::string>;

/// What became of one entry.
class EntryHistory {
 public:
  explicit EntryHistory(const EntryValues& first);

  void edit(std::size_t which, const std::string& from, const std::string& to) {
    _values[which].edit(from, to);
  }
  bool knows(std::size_t which, const std::string& value) const { return _values[which].knows(value); }
  /// An entry was put into it, which is a folder.
  void fill(const std::string& entry) { _entered.insert(entry); }
  /// Somebody deleted it who saw these values, and at some time these entries in it.
  void erase(const EntryValues& seen, const std::set<std::string>& seenInIt) {
    _deletions.push_back({seen, seenInIt});
    _mustLive = false;
  }
  /// Somebody undid a deletion, and the entry has these values again.
  void revive(const EntryValues& values);

  /// All computers hold these values, or nothing of it: from now on everybody sees what came of the edits so
  /// far.
  void settle(const EntryValues* end);

  bool wasDeleted() const { return !_deletions.empty(); }
  /// Whether the only deletion was undone.
  bool mustLive() const { return _mustLive; }
  /// Whether somebody deleted it who knew of every edit, and of everything that was put into it. Not after an
  /// undo: whether he knew of that his values do not tell.
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
  bool _mustLive = false;
};

}  // namespace corvane
