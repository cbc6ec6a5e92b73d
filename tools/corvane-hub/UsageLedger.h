#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::hubserver {

/// What an object of this many bytes counts for in its account's quota: a file costs something, however
/// small.
std::uint64_t chargeOf(std::uint64_t bytes);
/// What a folder counts for, for as long as the account exists.
inline constexpr std::uint64_t kFolderCharge = 1024;

/// A change of what lies below "objects" that has been begun.
struct LedgerChange {
  enum class Kind : char { addition = '+', removal = '-' } kind;
  std::uint64_t bytes;
  std::string path;  ///< below "objects"
};

/// What the file "usage" of an account says: whatever is sure, and a change of which a killed server cannot
/// tell whether it happened.
struct LedgerRecord {
  std::string boot;  ///< the machine's run that wrote this: after a power cut, file and objects are of
                     ///< different moments
  std::uint64_t bytes = 0;
  std::optional<LedgerChange> pending;
};
std::string textOf(const LedgerRecord& record);
/// Absent for text that `textOf` does not make.
std::optional<LedgerRecord> parsedLedgerRecord(std::string_view text);

/// How many bytes an account holds, known without looking at each object, and right whenever a server is
/// killed. Also the account's lock: while an object of this class lives, no other one of the same account
/// does, in any thread or process, and nothing of the account appears or goes.
class UsageLedger {
 public:
  /// Waits for the lock. `account` is the account's directory. Counts the objects where the record is
  /// missing, unreadable, or from before the machine was started. Raises HubFailure; with ENOENT as its cause
  /// when the account was removed.
  explicit UsageLedger(const std::string& account);

  std::uint64_t bytes() const { return _record.bytes; }
  /// What the record says, without waiting and without counting; absent when that would take either.
  static std::optional<std::uint64_t> bytesAtOnce(const std::string& account);
  /// To be called before the change is made; `settle` afterwards, with whether it was.
  void announce(LedgerChange change);
  void settle(bool happened);

 private:
  void write();
  void apply(const LedgerChange& change);
  std::uint64_t counted() const;

  std::string _account;
  FileDescriptor _file;
  LedgerRecord _record;
};

}  // namespace corvane::hubserver
