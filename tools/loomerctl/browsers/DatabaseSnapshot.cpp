#include "tools/loomerctl/browsers/DatabaseSnapshot.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "CorvaneSyncClient/platform/system/Clock.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

constexpr int kSnapshotAttempts = 10;
constexpr double kSnapshotPause = 0.1;  // seconds

// The database's header.
constexpr std::size_t kVersionsOffset =
    18;  // of writing and of reading, a byte each: 1 for a journal, 2 for a log
constexpr char kJournalVersion = 1;
constexpr char kLogVersion = 2;
constexpr std::size_t kDatabaseHeader = 100;

// The log's header, and that of each frame.
constexpr std::uint32_t kLogMagic = 0x377F0682;  // the lowest bit is set where the checksums are big-endian
constexpr std::size_t kLogHeader = 32;
constexpr std::size_t kLogPageSizeOffset = 8;
constexpr std::size_t kLogSaltOffset = 16;
constexpr std::size_t kLogSumOffset = 24;
constexpr std::size_t kFrameHeader = 24;
constexpr std::size_t kFrameSaltOffset = 8;
constexpr std::size_t kFrameSumOffset = 16;
constexpr std::size_t kSaltSize = 8;
constexpr std::size_t kSummedOfFrame = 8;

std::uint32_t numberAt(std::string_view bytes, std::size_t at, bool bigEndian = true) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t shift = 8 * (bigEndian ? 3 - i : i);
    number |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << shift;
  }
  return number;
}

bool isPageSize(std::size_t size) { return size >= 512 && size <= 65'536 && (size & (size - 1)) == 0; }

// The frames of a log, as far as they are whole, one after another.
class LogFrames {
 public:
  explicit LogFrames(std::string_view log) : _log(log) {
    if (log.size() < kLogHeader) return;
    const std::uint32_t magic = numberAt(log, 0);
    if ((magic & ~1U) != kLogMagic) return;
    _bigEndian = (magic & 1) != 0;
    const std::size_t size = numberAt(log, kLogPageSizeOffset);
    if (!isPageSize(size)) return;
    add(log.substr(0, kLogSumOffset));
    if (isSum(log, kLogSumOffset)) _pageSize = size;
  }

  // 0 where the bytes are no log.
  std::size_t pageSize() const { return _pageSize; }

  struct Frame {
    std::uint32_t page;  // from 1 on
    std::uint32_t size;  // of the database in pages, where this ends a transaction; else 0
    std::string_view bytes;
  };

  // Nothing at the first frame that is not whole, or of an earlier log.
  std::optional<Frame> next() {
    if (_pageSize == 0 || _log.size() - _at < kFrameHeader + _pageSize) return std::nullopt;
    const std::string_view frame = _log.substr(_at, kFrameHeader + _pageSize);
    if (frame.substr(kFrameSaltOffset, kSaltSize) != _log.substr(kLogSaltOffset, kSaltSize))
      return std::nullopt;
    add(frame.substr(0, kSummedOfFrame));
    add(frame.substr(kFrameHeader));
    if (!isSum(frame, kFrameSumOffset)) return std::nullopt;
    _at += frame.size();
    return Frame{numberAt(frame, 0), numberAt(frame, 4), frame.substr(kFrameHeader)};
  }

 private:
  // The checksum goes on over all that has been added.
  void add(std::string_view bytes) {
    for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
      _sum[0] += numberAt(bytes, at, _bigEndian) + _sum[1];
      _sum[1] += numberAt(bytes, at + 4, _bigEndian) + _sum[0];
    }
  }

  bool isSum(std::string_view bytes, std::size_t at) const {
    return numberAt(bytes, at) == _sum[0] && numberAt(bytes, at + 4) == _sum[1];
  }

  std::string_view _log;
  std::size_t _at = kLogHeader;
  std::size_t _pageSize = 0;
  bool _bigEndian = false;
  std::array<std::uint32_t, 2> _sum{};
};

// How many frames are committed; what comes after is no part of the database.
std::size_t committedFrames(std::string_view log) {
  std::size_t committed = 0;
  std::size_t count = 0;
  LogFrames frames(log);
  while (const auto frame = frames.next()) {
    ++count;
    if (frame->size > 0) committed = count;
  }
  return committed;
}

// All that the file holds; nothing where there is none.
std::optional<std::string> contentsIfAny(const std::string& path) {
  std::string contents;
  const std::error_code error = Platform::current().files.read(path, contents);
  if (error == std::errc::no_such_file_or_directory) return std::nullopt;
  if (error) throw Refused{tr("Cannot read %1: %2.", path, error.message())};
  return contents;
}

std::string_view headOf(const std::optional<std::string>& log) {
  return log ? std::string_view(*log).substr(0, kLogHeader) : std::string_view();
}

// Zeros at its head end a journal, where it is not deleted.
bool isHot(const std::optional<std::string>& journal) {
  return journal && !journal->empty() && journal->front() != 0;
}

// One moment of the files, or nothing: they are read one after another, and another program may write in
// between. A log only grows until it is begun anew, with another header, and what it holds goes into the
// database's own file.
std::optional<std::string> trySnapshot(const std::string& path) {
  const std::string logPath = path + "-wal";
  const auto logBefore = contentsIfAny(logPath);
  auto database = contentsIfAny(path);
  const auto log = contentsIfAny(logPath);
  const bool isSame = database && contentsIfAny(path) == database;
  const auto logAfter = contentsIfAny(logPath);
  if (!isSame || headOf(logBefore) != headOf(log) || headOf(log) != headOf(logAfter)) return std::nullopt;
  return withWriteAheadLog(std::move(*database), log ? *log : std::string_view(), path);
}

}  // namespace

std::string withWriteAheadLog(std::string database, std::string_view log, const std::string& name) {
  if (database.size() < kDatabaseHeader || database[kVersionsOffset] != kLogVersion) return database;
  // What is not written of a database is no more than what a transaction has freed again.
  const std::size_t largest = 2 * (database.size() + log.size());
  const std::size_t committed = committedFrames(log);
  LogFrames frames(log);
  const std::size_t pageSize = frames.pageSize();
  for (std::size_t i = 0; i < committed; ++i) {
    const auto frame = frames.next();
    if (frame->page == 0 || std::max(frame->page, frame->size) > largest / pageSize) {
      throw Refused{tr("%1 is damaged: frame %2 of its write-ahead log is of page %3, which cannot be.", name,
                       std::to_string(i + 1), std::to_string(frame->page))};
    }
    const std::size_t end = frame->page * pageSize;
    if (database.size() < end) database.resize(end);
    frame->bytes.copy(database.data() + end - pageSize, pageSize);
    if (i + 1 == committed) database.resize(frame->size * pageSize);
  }
  if (database.size() >= kDatabaseHeader) database.replace(kVersionsOffset, 2, 2, kJournalVersion);
  return database;
}

std::string databaseSnapshot(const std::string& path) {
  // What lies beside the database has the name of the file itself, not of a link to it.
  std::error_code error;
  const std::string file = std::filesystem::canonical(path, error);
  if (error) throw Refused{tr("Cannot read %1: %2.", path, error.message())};
  bool wasHot = false;
  for (int attempt = 0; attempt < kSnapshotAttempts; ++attempt) {
    if (attempt > 0) Platform::current().clock.sleep(kSnapshotPause);
    wasHot = isHot(contentsIfAny(file + "-journal"));
    if (wasHot) continue;
    if (auto snapshot = trySnapshot(file)) return std::move(*snapshot);
  }
  if (wasHot) {
    throw Refused{
        tr("%1 is in the middle of a change, by the journal beside it. Open the browser and close it again, "
           "then "
           "try again.",
           path)};
  }
  throw Refused{tr("%1 is being changed all the time. Close the browser, then try again.", path)};
}

}  // namespace corvane::loomerctl
