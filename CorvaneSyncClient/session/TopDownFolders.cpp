#include "CorvaneSyncClient/session/TopDownFolders.h"

#include <algorithm>
#include <unordered_map>

#include "CorvaneSyncClient/model/CorvaneBookmark.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

namespace {

// A folder by its arrival, and the pass that takes it; sorts into the order of the passes.
struct Taken {
  std::size_t pass;
  std::size_t arrival;
  friend auto operator<=>(const Taken&, const Taken&) = default;
};

// Folders that wait for another one: by that one's arrival, the arrivals of those that wait.
using Waiting = std::unordered_map<std::size_t, std::vector<std::size_t>>;

// Takes the folders that wait for a taken one, generation by generation.
void takeWaiting(std::vector<Taken>& taken, const Waiting& waiting) {
  for (std::size_t next = 0; next < taken.size(); ++next) {
    const Taken parent = taken[next];
    const auto children = waiting.find(parent.arrival);
    if (children == waiting.end()) continue;
    for (const std::size_t child : children->second) {
      taken.push_back({child > parent.arrival ? parent.pass : parent.pass + 1, child});
    }
  }
}

}  // namespace

String folderParentInRecord(const Dictionary& record) {
  return parentInRecord(record, LoomerRelationship_Bookmarks_Folder_Parent);
}

bool isNamedAsRoot(const Dictionary& record) {
  return record.string(LoomerAttribute_Bookmarks_Folder_Name.view()) == "/";
}

TopDownFolders topDownFolders(const SyncRecords& folders, const BookmarkMap& map) {
  const std::vector<String> uids = folders.keys();
  std::unordered_map<String, std::size_t> arrivals;
  for (std::size_t i = 0; i < uids.size(); ++i) arrivals.emplace(uids[i], i);

  TopDownFolders result;
  std::vector<Taken> taken;
  Waiting waiting;
  std::size_t arrival = 0;
  for (const auto& folder : folders) {
    const String parent = folderParentInRecord(folder.value);
    if (parent ? map.findFolder(parent) != nullptr : isNamedAsRoot(folder.value)) {
      taken.push_back({0, arrival});
    } else if (!parent) {
      result.parentless.push_back(folder.key);
    } else if (const auto found = arrivals.find(parent); found != arrivals.end()) {
      waiting[found->second].push_back(arrival);
    }
    ++arrival;
  }
  takeWaiting(taken, waiting);

  std::sort(taken.begin(), taken.end());
  result.keys.reserve(taken.size());
  for (const Taken& folder : taken) result.keys.push_back(uids[folder.arrival]);
  return result;
}

}  // namespace corvane
