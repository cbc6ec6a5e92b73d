#include "CorvaneSyncClient/platform/pelto/account/Account.h"

#include <memory>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/account/MembershipFile.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::pelto {

namespace {

constexpr const char* kFormerUrlKey = "URL";
constexpr const char* kAccountKey = "Account";  // a hash of what the note is about
constexpr const char* kReachedKey = "Reached";

constexpr TextKey kPermissionRemedy = TextKey("Give yourself permission to read and write there.");
constexpr TextKey kSetAgainRemedy = TextKey("Set the account again with `loomerctl account set`.");
constexpr TextKey kFormerRemedy = TextKey(
    "Set a place with `loomerctl account set` on one computer, and have the others join with `loomerctl "
    "account join`: each computer holds all of its bookmarks, and gives them to the place.");

// `what` is wrong, a clause.
[[noreturn]] void fail(const std::string& path, const Message& what, TextKey remedy) {
  throw PlatformException(DotPeltoException,
                          sentences(Message("The online service's account in %1: %2.", path, what), remedy));
}

// Whether these are the bytes of an account at a PostgreSQL server, a property list with its address.
bool isFormerAccount(const std::string& contents) {
  try {
    const Value value = readPropertyList(contents);
    const Dictionary* const entries = value.as<Dictionary>();
    const String url = entries ? entries->string(kFormerUrlKey) : String();
    return url && (url.view().starts_with("postgresql://") || url.view().starts_with("postgres://"));
  } catch (const PropertyListException&) {
    return false;
  }
}

Account accountIn(const std::string& path, const std::string& contents) {
  if (isMembershipFile(contents)) {
    if (auto account = accountInMembershipFile(contents)) return *std::move(account);
    fail(path, Message("it is damaged"), kSetAgainRemedy);
  }
  if (isFormerAccount(contents))
    fail(path, Message("it is at a PostgreSQL server, where bookmarks are no longer kept"), kFormerRemedy);
  fail(path, Message("it is no account"), kSetAgainRemedy);
}

std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string notePathOf(const std::string& path) {
  return joinedPath(directoryOf(path), "AccountReached.plist");
}

// Identifies the account in its note.
std::int64_t hashOf(const Account& account) {
  return static_cast<std::int64_t>(sipHash({}, account.computer.toString() + ' ' + account.url));
}

// Absent also when the note cannot be read: the next answer is noted again.
std::optional<Date> reachedIn(const std::string& notePath, const Account& account) {
  std::string contents;
  if (readPrivateFile(notePath, contents)) return std::nullopt;
  try {
    const Value value = readPropertyList(contents);
    const Dictionary* const entries = value.as<Dictionary>();
    const Value* const noted = entries ? entries->find(kAccountKey) : nullptr;
    const auto* const hash = noted ? noted->as<std::int64_t>() : nullptr;
    return hash && *hash == hashOf(account) ? entries->date(kReachedKey) : std::nullopt;
  } catch (const PropertyListException&) {
    return std::nullopt;
  }
}

// Makes the directory if it is missing.
void writePrivately(const std::string& path, std::string_view contents) {
  if (const auto problem = makePrivateDirectory(directoryOf(path)))
    fail(path, Message("can't make %1: %2", problem.path, problem.error.message()), kPermissionRemedy);
  // An old file passes its mode on to the new one.
  const auto problem = setMode(path, kPrivateFileMode);
  if (problem && problem.error != std::errc::no_such_file_or_directory)
    fail(path, Message("can't close it to other users: %1", problem.error.message()), kPermissionRemedy);
  const PrivateUmask umask;
  if (const auto error = Platform::current().files.writeAtomically(path, contents))
    fail(path, Message("can't write it: %1", error.message()), kPermissionRemedy);
}

// Of the account's file. A reader needs none, since the file is replaced at once.
std::unique_ptr<FileSystem::Hold> holdOf(const std::string& path) {
  PrivateFileError problem;
  auto hold = holdBeside(path, problem);
  if (hold) return hold;
  const std::string cause = problem.error.message();
  fail(path,
       problem.path.ends_with("-lock") ? Message("can't lock %1: %2", problem.path, cause)
                                       : Message("can't make %1: %2", problem.path, cause),
       kPermissionRemedy);
}

bool removeIfThere(const std::string& path) {
  const std::error_code error = Platform::current().files.remove(path);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return false;
  if (error) fail(path, Message("can't remove it: %1", error.message()), kPermissionRemedy);
  return true;
}

}  // namespace

std::string accountPathForHome(const std::string& homeDirectory) {
  return joinedPath(homeDirectory, "Library/Application Support/Loomer/Account.plist");
}

std::string chainPathBeside(const std::string& accountPath) {
  return joinedPath(directoryOf(accountPath), "Chain.plist");
}

std::string formerChainPathBeside(const std::string& accountPath, std::int64_t generation) {
  const std::string number = std::to_string(generation % kMostFormerGenerations);
  return joinedPath(directoryOf(accountPath), "FormerChain-" + number + ".plist");
}

std::optional<Account> readAccount(const std::string& path) {
  std::string contents;
  const std::error_code error = readPrivateFile(path, contents);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
    return std::nullopt;
  // Anyone who can read the file can read and change every bookmark.
  if (error == std::errc::operation_not_permitted) {
    fail(path, Message("it belongs to another user, or other users may read or write it"),
         TextKey("Close it with `chmod 600`. If somebody may have seen it, take this computer out of the "
                 "account with `loomerctl account remove-computer` on another one, and let it join anew."));
  }
  if (error) fail(path, Message("can't read it: %1", error.message()), kPermissionRemedy);
  const WipeAtEnd wiping(contents);  // keys included
  Account account = accountIn(path, contents);
  account.reached = reachedIn(notePathOf(path), account);
  return account;
}

void writeAccount(const std::string& path, const Account& account) {
  const auto hold = holdOf(path);
  writePrivately(path, membershipFileOf(account).view());
}

void changeMembership(const std::string& path, const Account& account,
                      const std::function<void(Membership&)>& change) {
  const auto hold = holdOf(path);
  auto kept = readAccount(path);
  if (!kept || !(kept->computer == account.computer) ||
      kept->membership.account != account.membership.account) {
    return;
  }
  change(kept->membership);
  writePrivately(path, membershipFileOf(*kept).view());
}

void noteAccountReached(const std::string& path, const Account& account, Date when) {
  writePrivately(notePathOf(path),
                 writeBinaryPropertyList(Dictionary{{kAccountKey, hashOf(account)}, {kReachedKey, when}}));
}

void forgetChain(const std::string& accountPath) {
  removeIfThere(chainPathBeside(accountPath));
  for (std::int64_t i = 0; i < kMostFormerGenerations; ++i)
    removeIfThere(formerChainPathBeside(accountPath, i));
}

bool removeAccount(const std::string& path) {
  std::unique_ptr<FileSystem::Hold> hold;
  if (Platform::current().files.attributesIfKnown(path)) hold = holdOf(path);
  const bool removed = removeIfThere(path);
  removeIfThere(notePathOf(path));
  forgetChain(path);
  return removed;
}

}  // namespace corvane::pelto
