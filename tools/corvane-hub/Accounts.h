#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/corvane-hub/ComputerToken.h"

namespace corvane::hubserver {

/// What a token is worth.
enum class Standing { unknown, revoked, good };

struct AccountComputer {
  std::string name;
  bool revoked = false;
};

/// The accounts in the data directory, each a directory in "accounts":
///
///     accounts/ada/quota             bytes, in decimal digits
///     accounts/ada/usage             what it holds, and its lock (UsageLedger.h)
///     accounts/ada/tokens/laptop     the hash of a computer's token, and whether it is revoked
///     accounts/ada/objects/f.c/12-ab the object "f/c/12-ab"
///     removed/                       accounts on their way out
///     changed                        written whenever tokens stop being good, for running servers to see
///
/// Any number of processes work on it at once. Everything raises HubFailure where the system fails.
class Accounts {
 public:
  explicit Accounts(std::string data) : _data(std::move(data)) {}

  /// Makes the directories, for their owner alone, where they are missing.
  void prepare();
  /// Returns once everything that can be seen is on the disk.
  void synchronize() const;
  /// Deletes what removals left behind that were killed.
  void clearRemoved() const;

  const std::string& data() const { return _data; }
  std::string directoryOf(const std::string& account) const { return _data + "/accounts/" + account; }
  /// The file that is written when tokens stop being good.
  std::string changedFile() const { return _data + "/changed"; }

  /// In alphabetical order.
  std::vector<std::string> names() const;
  bool has(const std::string& account) const;
  /// False when the account exists.
  bool add(const std::string& account, std::uint64_t quota);
  /// Moves the account away and deletes it, with what removals left that were killed; false when there is
  /// none.
  bool remove(const std::string& account);

  std::uint64_t quota(const std::string& account) const;
  void setQuota(const std::string& account, std::uint64_t quota);

  std::vector<AccountComputer> computers(const std::string& account) const;
  /// Makes a token for a computer that has none, or a revoked one; absent for any other.
  std::optional<std::string> addToken(const std::string& account, const std::string& computer);
  /// From the return on the token makes nothing more in the account; false when the computer has no good one.
  bool revoke(const std::string& account, const std::string& computer);
  Standing standing(const ComputerToken& token) const;

 private:
  std::string tokenFile(const std::string& account, const std::string& computer) const;
  std::optional<TokenRecord> tokenRecord(const std::string& account, const std::string& computer) const;
  void announceChange() const;

  std::string _data;
};

}  // namespace corvane::hubserver
