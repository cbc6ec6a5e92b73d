#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::pelto {

/// Contents of a commit that are not of their form, though an account's computer has sealed them: a newer or
/// a broken version wrote them. The reason tells what is wrong where, as in "computer 2: no key of 32 bytes".
class SealedFormException : public PlatformException {
 public:
  explicit SealedFormException(Message reason)
      : PlatformException("DotPeltoSealedFormException", std::move(reason)) {}
};

/// One computer that takes part in an account.
struct RosterEntry {
  String computer;        ///< an upper-case UUID
  std::string name;       ///< as its owner calls it: UTF-8, 1 to `kLongestComputerName` bytes
  std::string publicKey;  ///< of its ComputerKeys
  Date lastSeen;          ///< when it last took part, by its own clock, to the day
  friend bool operator==(const RosterEntry&, const RosterEntry&) = default;
};

inline constexpr std::size_t kLongestComputerName = 255;
inline constexpr std::size_t kMostComputers = 1000;

/// The computers of an account, ordered by identifier; each stands once.
class Roster {
 public:
  const std::vector<RosterEntry>& entries() const { return _entries; }
  /// Null when that computer is not on it.
  const RosterEntry* find(const String& computer) const;

  /// Puts the computer on it, or what is new about it in the place of what was. Raises SealedFormException
  /// when the entry is not as described above, or the roster is full.
  void set(RosterEntry entry);
  /// Whether the computer was on it.
  bool remove(const String& computer);

  friend bool operator==(const Roster&, const Roster&) = default;

 private:
  std::vector<RosterEntry> _entries;
};

/// The roster as part of a commit: an array of dictionaries.
Value valueOf(const Roster& roster);
/// Reads what `valueOf` wrote, and nothing else. Raises SealedFormException.
Roster rosterFrom(const Value& value);

}  // namespace corvane::pelto
