#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::loomer {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCopies = 5;
constexpr std::size_t kLongestName = 200;  // bytes; file systems take 255
constexpr std::string_view kSuffix = ".plist";

// An identifier as one component of a path: it may hold slashes, and be longer than a name may be.
std::string componentOf(const String& identifier) {
  std::string name;
  for (const char c : identifier.view()) {
    if (c == '/' || c == '%') {
      name += c == '/' ? "%2F" : "%25";
    } else {
      name += c;
    }
  }
  if (name.size() <= kLongestName) return name;
  return "long-" + std::to_string(sipHash({}, identifier.view()));
}

// What a copy's name says: "NUMBER-ENTRIES-DIGEST.plist", numbered in the order in which they were kept,
// whatever the clock said.
struct Name {
  std::uint64_t number = 0;
  std::size_t entries = 0;
  std::string digest;

  std::string text() const {
    return std::to_string(number) + '-' + std::to_string(entries) + '-' + digest + std::string(kSuffix);
  }
};

template <typename Number>
bool takeNumber(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end == text.data() + text.size() || *end != '-') return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
  return true;
}

// Nothing for a file that is not one of the copies.
std::optional<Name> nameOf(std::string_view text) {
  Name name;
  if (!text.ends_with(kSuffix)) return std::nullopt;
  text.remove_suffix(kSuffix.size());
  if (!takeNumber(text, name.number) || !takeNumber(text, name.entries) || text.empty()) return std::nullopt;
  name.digest = text;
  return name;
}

// By number, newest first.
std::vector<Name> namesIn(const std::string& directory) {
  std::vector<Name> names;
  std::error_code error;
  for (fs::directory_iterator each(directory, error), end; !error && each != end; each.increment(error)) {
    if (auto name = nameOf(each->path().filename().string())) names.push_back(std::move(*name));
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw LoomerStoreException(directory, Message("cannot read the directory: %1", error.message()),
                               Message("Give yourself permission to read it."));
  }
  std::sort(names.begin(), names.end(), [](const Name& a, const Name& b) { return a.number > b.number; });
  return names;
}

[[noreturn]] void failToKeep(const std::string& path, const std::string& where, const Message& cause) {
  throw LoomerStoreException(
      where, Message("cannot keep a copy of %1, of which the save would leave entries out: %2", path, cause),
      Message("Nothing was saved. Remove the cause and sync again."));
}

}  // namespace

KeptFiles::KeptFiles(const std::string& storePath, const String& identifier)
    : _directory(storePath.substr(0, storePath.rfind('/') + 1) + "Kept/" + componentOf(identifier)) {}

std::vector<KeptFile> KeptFiles::all() const {
  std::vector<KeptFile> files;
  for (Name& name : namesIn(_directory)) {
    KeptFile& file = files.emplace_back();
    file.path = joinedPath(_directory, name.text());
    file.entries = name.entries;
    file.digest = std::move(name.digest);
    if (const auto attributes = Platform::current().files.attributesIfKnown(file.path))
      file.kept = attributes->modificationDate;
  }
  return files;
}

std::string KeptFiles::keep(const std::string& path, std::size_t entries, const std::string& digest) const {
  FileSystem& files = Platform::current().files;
  const std::vector<Name> kept = namesIn(_directory);
  for (const Name& each : kept) {
    if (each.digest == digest) return joinedPath(_directory, each.text());
  }
  if (const PrivateFileError problem = makePrivateDirectory(_directory))
    failToKeep(path, problem.path, problem.error.message());
  const Name name{kept.empty() ? 1 : kept.front().number + 1, entries, digest};
  const std::string copy = joinedPath(_directory, name.text());
  std::string contents;
  if (const std::error_code error = files.read(path, contents)) failToKeep(path, copy, error.message());
  if (const std::error_code error = files.writeAtomically(copy, contents))
    failToKeep(path, copy, error.message());
  // One that cannot be removed is one more than need be, until the next time.
  for (std::size_t i = kCopies - 1; i < kept.size(); ++i)
    static_cast<void>(files.remove(joinedPath(_directory, kept[i].text())));
  return copy;
}

}  // namespace corvane::loomer
