#include "tools/corvane-hub/UsageLedger.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"
#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

namespace {

constexpr std::uint64_t kSmallestCharge = 1024;
// All records are of one length and within one page, of which the kernel copies all or nothing before a kill
// takes effect.
constexpr std::size_t kRecordLength = 512;

std::string bootOf() {
  static const std::string boot = [] {
    std::string text;
    const std::error_code error = readRegular("/proc/sys/kernel/random/boot_id", text,
                                              [](const struct stat&) { return std::error_code(); });
    if (error) throw HubFailure(tr("%1 cannot be read", "/proc/sys/kernel/random/boot_id"), error);
    while (text.ends_with('\n')) text.pop_back();
    return text;
  }();
  return boot;
}

/// The record in the file; absent where it is none, or from before the machine was started.
std::optional<LedgerRecord> readRecord(const FileDescriptor& file) {
  std::string text(kRecordLength + 1, '\0');
  const ssize_t size =
      retryingInterrupted([&] { return ::pread(file.number(), text.data(), text.size(), 0); });
  if (size < 0) throw HubFailure(tr("a record of usage cannot be read"), lastSystemError());
  std::optional<LedgerRecord> record =
      parsedLedgerRecord(std::string_view(text).substr(0, static_cast<std::size_t>(size)));
  if (record && record->boot != bootOf()) record.reset();
  return record;
}

/// Takes the text before the next blank out of `text`.
std::string_view nextWord(std::string_view& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return word;
}

std::optional<std::uint64_t> number(std::string_view word) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error != std::errc() || end != word.data() + word.size()) return {};
  return value;
}

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

Directory opened(const std::string& path) {
  Directory directory(::opendir(path.c_str()), &::closedir);
  if (!directory) throw HubFailure(tr("%1 cannot be read", path), lastSystemError());
  return directory;
}

std::uint64_t chargeOfFolder(const std::string& path) {
  const Directory folder = opened(path);
  std::uint64_t bytes = kFolderCharge;
  while (const dirent* entry = ::readdir(folder.get())) {
    struct stat status {};
    if (::fstatat(::dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throw HubFailure(tr("%1 cannot be looked at", path + '/' + entry->d_name), lastSystemError());
    }
    if (S_ISREG(status.st_mode)) bytes += chargeOf(static_cast<std::uint64_t>(status.st_size));
  }
  return bytes;
}

}  // namespace

std::uint64_t chargeOf(std::uint64_t bytes) { return std::max(bytes, kSmallestCharge); }

std::string textOf(const LedgerRecord& record) {
  std::string text = record.boot + ' ' + std::to_string(record.bytes);
  if (const auto& pending = record.pending) {
    text += std::string(" ") + static_cast<char>(pending->kind) + ' ' + std::to_string(pending->bytes) + ' ' +
            pending->path;
  }
  text.resize(kRecordLength - 1, ' ');
  return text + '\n';
}

std::optional<LedgerRecord> parsedLedgerRecord(std::string_view text) {
  if (text.size() != kRecordLength || text.back() != '\n') return {};
  text.remove_suffix(1);
  text = text.substr(0, text.find_last_not_of(' ') + 1);
  LedgerRecord record;
  record.boot = nextWord(text);
  const std::optional<std::uint64_t> bytes = number(nextWord(text));
  if (record.boot.empty() || !bytes) return {};
  record.bytes = *bytes;
  if (text.empty()) return record;
  const std::string_view kind = nextWord(text);
  const std::optional<std::uint64_t> changed = number(nextWord(text));
  if ((kind != "+" && kind != "-") || !changed || text.empty() || text.find(' ') != std::string_view::npos)
    return {};
  record.pending = {static_cast<LedgerChange::Kind>(kind[0]), *changed, std::string(text)};
  return record;
}

UsageLedger::UsageLedger(const std::string& account) : _account(account) {
  const std::string path = account + "/usage";
  _file = FileDescriptor(retryingInterrupted(
      [&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kPrivateFileMode); }));
  if (!_file) throw HubFailure(tr("%1 cannot be opened", path), lastSystemError());
  if (retryingInterrupted([&] { return ::flock(_file.number(), LOCK_EX); }) != 0) {
    throw HubFailure(tr("%1 cannot be locked", path), lastSystemError());
  }
  struct stat mine {};
  struct stat named {};
  // Whoever removes an account moves it away under its lock: this one may be the lock of an account that is
  // gone.
  if (::fstat(_file.number(), &mine) != 0 || ::stat(path.c_str(), &named) != 0 ||
      mine.st_ino != named.st_ino) {
    throw HubFailure(tr("%1 has been removed", account),
                     std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const std::optional<LedgerRecord> record = readRecord(_file);
  if (!record) {
    _record = {bootOf(), counted(), {}};
    write();
  } else {
    _record = *record;
    if (_record.pending) {
      struct stat status {};
      const bool exists = ::lstat((account + "/objects/" + _record.pending->path).c_str(), &status) == 0;
      settle(exists == (_record.pending->kind == LedgerChange::Kind::addition));
    }
  }
}

std::optional<std::uint64_t> UsageLedger::bytesAtOnce(const std::string& account) {
  const FileDescriptor file(retryingInterrupted(
      [&] { return ::open((account + "/usage").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW); }));
  if (!file || ::flock(file.number(), LOCK_SH | LOCK_NB) != 0) return {};
  const std::optional<LedgerRecord> record = readRecord(file);
  if (!record || record->pending) return {};
  return record->bytes;
}

void UsageLedger::announce(LedgerChange change) {
  _record.pending = std::move(change);
  write();
}

void UsageLedger::settle(bool happened) {
  if (happened) apply(*_record.pending);
  _record.pending.reset();
  write();
}

void UsageLedger::apply(const LedgerChange& change) {
  if (change.kind == LedgerChange::Kind::addition) {
    _record.bytes += change.bytes;
  } else {
    // What came by other hands than a server's was never counted.
    _record.bytes -= std::min(change.bytes, _record.bytes);
  }
}

void UsageLedger::write() {
  const std::string text = textOf(_record);
  const ssize_t count =
      retryingInterrupted([&] { return ::pwrite(_file.number(), text.data(), text.size(), 0); });
  if (count < 0) throw HubFailure(tr("%1 cannot be written", _account + "/usage"), lastSystemError());
  if (count != static_cast<ssize_t>(text.size())) {
    throw HubFailure(tr("%1 cannot be written", _account + "/usage"),
                     std::make_error_code(std::errc::no_space_on_device));
  }
}

std::uint64_t UsageLedger::counted() const {
  const std::string path = _account + "/objects";
  const Directory objects = opened(path);
  std::uint64_t bytes = 0;
  while (const dirent* entry = ::readdir(objects.get())) {
    if (entry->d_name[0] != '.') bytes += chargeOfFolder(path + "/" + entry->d_name);
  }
  return bytes;
}

}  // namespace corvane::hubserver
