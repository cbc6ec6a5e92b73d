#include "tools/corvane-hub/Accounts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"
#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/ObjectNames.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

void makeDirectory(const std::string& path) {
  if (const PrivateFileError failed = makePrivateDirectory(path)) {
    throw HubFailure(tr("%1 cannot be made", failed.path), failed.error);
  }
}

// In the name of an account that is being deleted, behind the account's.
constexpr const char* kRemovedMark = ".old.";

std::vector<std::string> entriesOf(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), &::closedir);
  if (!directory) throw HubFailure(tr("%1 cannot be read", path), lastSystemError());
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(directory.get())) {
    names.emplace_back(entry->d_name);
  }
  return names;
}

/// Names in a directory that a principal could have, in alphabetical order.
std::vector<std::string> namesIn(const std::string& path) {
  std::vector<std::string> names = entriesOf(path);
  std::erase_if(names, [](const std::string& name) { return !isPrincipalName(name); });
  std::sort(names.begin(), names.end());
  return names;
}

/// A small file that is replaced as a whole, and is on the disk afterwards.
void replaceFile(const std::string& path, const std::string& text) {
  const PrivateUmask ownAlone;
  if (const std::error_code error = LinuxFileSystem().writeAtomically(path, text)) {
    throw HubFailure(tr("%1 cannot be written", path), error);
  }
}

/// Absent when there is no such file.
std::optional<std::string> contentsOf(const std::string& path) {
  std::string text;
  const std::error_code error = readRegular(path, text, [](const struct stat&) { return std::error_code(); });
  if (error == std::errc::no_such_file_or_directory) return {};
  if (error) throw HubFailure(tr("%1 cannot be read", path), error);
  return text;
}

}  // namespace

void Accounts::prepare() {
  makeDirectory(_data);
  makeDirectory(_data + "/accounts");
  makeDirectory(_data + "/removed");
  struct stat status {};
  if (::stat(changedFile().c_str(), &status) != 0) announceChange();
}

void Accounts::synchronize() const {
  const FileDescriptor directory(
      retryingInterrupted([&] { return ::open(_data.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!directory || ::syncfs(directory.number()) != 0)
    throw HubFailure(tr("%1 did not reach the disk", _data), lastSystemError());
}

void Accounts::clearRemoved() const {
  const std::string path = _data + "/removed";
  for (const std::string& name : entriesOf(path)) {
    if (name.find(kRemovedMark) == std::string::npos) continue;
    if (const std::error_code error = LinuxFileSystem().remove(path + '/' + name)) {
      throw HubFailure(tr("%1 cannot be deleted", path + '/' + name), error);
    }
  }
}

std::vector<std::string> Accounts::names() const { return namesIn(_data + "/accounts"); }

bool Accounts::has(const std::string& account) const {
  struct stat status {};
  return ::stat(directoryOf(account).c_str(), &status) == 0;
}

bool Accounts::add(const std::string& account, std::uint64_t quota) {
  // Made whole beside its place, which it takes in one step: no server ever finds half an account.
  const std::string whole = directoryOf(account);
  const std::string made = _data + "/removed/" + account + ".new." + std::to_string(::getpid());
  LinuxFileSystem().remove(made);  // what a killed process of the same id left
  makeDirectory(made + "/tokens");
  makeDirectory(made + "/objects");
  replaceFile(made + "/quota", std::to_string(quota) + '\n');
  const std::error_code error = LinuxFileSystem().renameWithoutReplacing(made, whole);
  if (!error) {
    synchronize();
    return true;
  }
  LinuxFileSystem().remove(made);
  if (error == std::errc::file_exists) return false;
  throw HubFailure(tr("%1 cannot be made", whole), error);
}

bool Accounts::remove(const std::string& account) {
  if (!has(account)) return false;
  const std::string removed = _data + "/removed/" + account + kRemovedMark + std::to_string(::getpid());
  {
    const UsageLedger lock(directoryOf(account));
    if (const std::error_code error =
            LinuxFileSystem().renameWithoutReplacing(directoryOf(account), removed)) {
      throw HubFailure(tr("%1 cannot be moved to %2", directoryOf(account), removed), error);
    }
  }
  announceChange();
  clearRemoved();
  synchronize();
  return true;
}

std::uint64_t Accounts::quota(const std::string& account) const {
  const std::string path = directoryOf(account) + "/quota";
  std::string text = contentsOf(path).value_or("");
  if (text.ends_with('\n')) text.pop_back();
  const std::optional<std::uint64_t> quota = parsedSize(text);
  if (!quota) throw HubFailure(tr("%1 holds no number of bytes", path));
  return *quota;
}

void Accounts::setQuota(const std::string& account, std::uint64_t quota) {
  replaceFile(directoryOf(account) + "/quota", std::to_string(quota) + '\n');
}

std::vector<AccountComputer> Accounts::computers(const std::string& account) const {
  std::vector<AccountComputer> computers;
  for (const std::string& name : namesIn(directoryOf(account) + "/tokens")) {
    const std::optional<TokenRecord> record = tokenRecord(account, name);
    computers.push_back({name, !record || record->revoked});
  }
  return computers;
}

std::optional<std::string> Accounts::addToken(const std::string& account, const std::string& computer) {
  const UsageLedger lock(directoryOf(account));
  const std::optional<TokenRecord> old = tokenRecord(account, computer);
  if (old && !old->revoked) return {};
  const NewToken token = newToken(account, computer);
  replaceFile(tokenFile(account, computer), textOf(TokenRecord{token.hash, false}));
  return token.text;
}

bool Accounts::revoke(const std::string& account, const std::string& computer) {
  {
    // Whoever makes an object under the lock has looked at the token under it, too.
    const UsageLedger lock(directoryOf(account));
    std::optional<TokenRecord> record = tokenRecord(account, computer);
    if (!record || record->revoked) return false;
    record->revoked = true;
    replaceFile(tokenFile(account, computer), textOf(*record));
  }
  announceChange();
  return true;
}

Standing Accounts::standing(const ComputerToken& token) const {
  const std::optional<TokenRecord> record = tokenRecord(token.account, token.computer);
  if (!record || !equalHashes(record->hash, token.hash)) return Standing::unknown;
  return record->revoked ? Standing::revoked : Standing::good;
}

std::string Accounts::tokenFile(const std::string& account, const std::string& computer) const {
  return directoryOf(account) + "/tokens/" + computer;
}

std::optional<TokenRecord> Accounts::tokenRecord(const std::string& account,
                                                 const std::string& computer) const {
  const std::string path = tokenFile(account, computer);
  const std::optional<std::string> text = contentsOf(path);
  if (!text) return {};
  const std::optional<TokenRecord> record = parsedTokenRecord(*text);
  if (!record) throw HubFailure(tr("%1 holds no token's hash", path));
  return record;
}

void Accounts::announceChange() const {
  const FileDescriptor file(retryingInterrupted([&] {
    return ::open(changedFile().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivateFileMode);
  }));
  if (!file) throw HubFailure(tr("%1 cannot be opened", changedFile()), lastSystemError());
  if (const std::error_code error = writeAll(file, "tokens\n")) {
    throw HubFailure(tr("%1 cannot be written", changedFile()), error);
  }
}

}  // namespace corvane::hubserver
