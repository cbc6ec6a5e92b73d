#include "CorvaneSyncClient/session/SkippedEntries.h"

#include <array>
#include <cinttypes>
#include <cstdio>

#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

// The same for the same entries, whatever else the file holds.
std::string digestOf(const Array& skipped) {
  const std::string bytes = writeBinaryPropertyList(skipped);
  std::array<char, 33> text;
  std::snprintf(text.data(), text.size(), "%016" PRIx64 "%016" PRIx64, sipHash({0, 0}, bytes),
                sipHash({1, 1}, bytes));
  return text.data();
}

}  // namespace

void keepFileOfSkippedEntries(const String& clientId, const std::string& path, const Array& skipped) {
  if (skipped.empty()) return;
  const std::size_t count = entryCount(skipped);
  const loomer::KeptFiles kept(loomer::storePathForHome(Platform::current().process.homeDirectory()),
                               clientId);
  const std::string copy = kept.keep(path, count, digestOf(skipped));
  systemLog(
      "%@: entries of the bookmarks file %@ that cannot be synced are left out (%d); the file as it was is "
      "kept in %@",
      clientId, path, count, copy);
}

}  // namespace corvane
