#include "bench/hubload/Edits.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "CorvaneSyncClient/platform/loomer/merge/Places.h"

namespace corvane::hubload {

namespace {

using loomer::Entity;
using loomer::RecordId;
using loomer::TruthChange;
using loomer::TruthRecord;
using loomer::TruthState;

constexpr int kFolderSize = 50;

std::string titleOf(std::uint64_t number) {
  return "Bookmark " + std::to_string(number) + ", of some length";
}

TruthRecord newRecord(const TruthState& state, int number, RecordId parent, std::int64_t place) {
  TruthRecord record;
  record.id = state.nextRecord + number;
  record.parent = parent;
  record.place = place;
  record.revision = state.revision + 1;
  return record;
}

// The live records of one entity.
std::vector<const TruthRecord*> live(const std::vector<TruthRecord>& truth, Entity entity) {
  std::vector<const TruthRecord*> found;
  for (const TruthRecord& record : truth) {
    if (!record.deleted && record.entity == entity) found.push_back(&record);
  }
  return found;
}

// Behind everything in the folder.
std::int64_t endOf(const std::vector<TruthRecord>& truth, RecordId folder) {
  std::int64_t last = 0;
  for (const TruthRecord& record : truth) {
    if (!record.deleted && record.parent == folder) last = std::max(last, record.place);
  }
  return last + loomer::kPlaceSpread;
}

RecordId anyFolder(const std::vector<TruthRecord>& truth, Random& random) {
  const auto folders = live(truth, Entity::folder);
  return folders.empty() ? loomer::kRoot : folders[random() % folders.size()]->id;
}

TruthChange addition(const std::vector<TruthRecord>& truth, const TruthState& state, Random& random) {
  const RecordId folder = anyFolder(truth, random);
  TruthRecord added = newRecord(state, 0, folder, endOf(truth, folder));
  added.content.name = titleOf(random());
  added.content.url = "https://added.example.com/" + std::to_string(random());
  return {std::nullopt, std::move(added)};
}

TruthChange editOf(const TruthRecord& before, const std::vector<TruthRecord>& truth, const TruthState& state,
                   Random& random) {
  TruthRecord after = before;
  after.revision = state.revision + 1;
  switch (random() % 5) {
    case 0:
      after.deleted = true;
      break;
    case 1:
      after.parent = anyFolder(truth, random);
      after.place = endOf(truth, after.parent);
      break;
    default:
      after.content.name = titleOf(random());
  }
  return {before, std::move(after)};
}

}  // namespace

loomer::TruthPlanner additions(int records) {
  return [records](const std::vector<TruthRecord>&, const TruthState& state) {
    std::vector<TruthChange> changes;
    RecordId folder = loomer::kRoot;
    for (int i = 0; i < records; ++i) {
      const bool isFolder = i % (kFolderSize + 1) == 0;
      TruthRecord record =
          newRecord(state, i, isFolder ? loomer::kRoot : folder, (i + 1) * loomer::kPlaceSpread);
      if (isFolder) {
        folder = record.id;
        record.entity = Entity::folder;
        record.content.name = "Folder " + std::to_string(i);
      } else {
        record.content.name = titleOf(static_cast<std::uint64_t>(i));
        record.content.url = "https://www.example.com/articles/2026/" + std::to_string(i) + ".html";
      }
      changes.push_back({std::nullopt, std::move(record)});
    }
    return changes;
  };
}

loomer::TruthPlanner randomEdit(Random& random) {
  return [&random](const std::vector<TruthRecord>& truth, const TruthState& state) {
    const auto bookmarks = live(truth, Entity::bookmark);
    std::vector<TruthChange> changes;
    // As many bookmarks come as go.
    if (bookmarks.empty() || random() % 6 == 0) {
      changes.push_back(addition(truth, state, random));
    } else {
      changes.push_back(editOf(*bookmarks[random() % bookmarks.size()], truth, state, random));
    }
    return changes;
  };
}

}  // namespace corvane::hubload
