#include "bench/service/Edits.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Places.h"

namespace corvane::servicebench {

namespace {

using loomer::Entity;
using loomer::RecordId;
using loomer::TruthChange;
using loomer::TruthRecord;
using loomer::TruthState;
using Truth = std::vector<TruthRecord>;

constexpr int kFolderSize = 50;

// Texts about as various as people's; each number gives the same ones every time.
std::string words(std::mt19937_64& drawing, std::uint64_t count, char between) {
  constexpr const char* kWords[] = {"the",      "quiet",  "river",  "house",   "on",     "bread", "light",
                                    "northern", "winter", "guide",  "to",      "small",  "notes", "about",
                                    "open",     "old",    "garden", "map",     "of",     "paper", "stones",
                                    "first",    "letter", "road",   "two",     "summer", "how",   "why",
                                    "green",    "field",  "theory", "practice"};
  std::string text;
  for (std::uint64_t i = 0; i < count; ++i) {
    if (i > 0) text += between;
    text += kWords[drawing() % std::size(kWords)];
  }
  return text;
}

std::string titleOf(std::uint64_t number) {
  std::mt19937_64 drawing(number);
  return words(drawing, 2 + drawing() % 5, ' ') + " " + std::to_string(drawing() % 1000);
}

std::string addressOf(std::uint64_t number) {
  std::mt19937_64 drawing(~number);
  const std::string host = words(drawing, 1, '-') + std::to_string(drawing() % 1000) + ".example.org/";
  return "https://" + host + words(drawing, 1 + drawing() % 4, '/') +
         "?id=" + std::to_string(drawing() % 100'000);
}

TruthRecord newBookmark(RecordId id, std::uint64_t number, const TruthState& state) {
  TruthRecord record;
  record.id = id;
  record.revision = state.revision + 1;
  record.content.name = titleOf(number);
  record.content.url = addressOf(number);
  return record;
}

TruthRecord newFolder(RecordId id, std::int64_t place, const TruthState& state) {
  TruthRecord record;
  record.id = id;
  record.revision = state.revision + 1;
  record.entity = Entity::folder;
  record.place = place;
  record.content.name = "Folder " + std::to_string(id);
  return record;
}

// Behind everything in the folder.
std::int64_t endOf(const Truth& truth, RecordId folder) {
  std::int64_t last = 0;
  for (const TruthRecord& record : truth) {
    if (!record.deleted && record.parent == folder) last = std::max(last, record.place);
  }
  return last + loomer::kPlaceSpread;
}

// Any of the live records that `isWanted`; null when there is none.
const TruthRecord* any(const Truth& truth, Random& random, bool (*isWanted)(const TruthRecord&)) {
  std::vector<const TruthRecord*> found;
  for (const TruthRecord& record : truth) {
    if (!record.deleted && isWanted(record)) found.push_back(&record);
  }
  return found.empty() ? nullptr : found[random() % found.size()];
}

bool isFolder(const TruthRecord& record) { return record.entity == Entity::folder; }
bool isBookmark(const TruthRecord& record) { return record.entity == Entity::bookmark; }

RecordId anyFolder(const Truth& truth, Random& random) {
  const TruthRecord* const folder = any(truth, random, isFolder);
  return folder ? folder->id : loomer::kRoot;
}

}  // namespace

loomer::TruthPlanner additions(int records) {
  return [records](const Truth& truth, const TruthState& state) {
    const std::int64_t rootEnd = endOf(truth, loomer::kRoot);
    std::vector<TruthChange> changes;
    RecordId folder = loomer::kRoot;
    for (int i = 0; i < records; ++i) {
      const RecordId id = state.nextRecord + i;
      const std::int64_t place = i * loomer::kPlaceSpread;
      if (i % (kFolderSize + 1) == 0) {
        folder = id;
        changes.push_back({std::nullopt, newFolder(id, rootEnd + place, state)});
        continue;
      }
      TruthRecord bookmark = newBookmark(id, static_cast<std::uint64_t>(id), state);
      bookmark.parent = folder;
      bookmark.place = place;
      changes.push_back({std::nullopt, std::move(bookmark)});
    }
    return changes;
  };
}

loomer::TruthPlanner newTitle(Random& random) {
  return [&random](const Truth& truth, const TruthState& state) {
    std::vector<TruthChange> changes;
    if (const TruthRecord* const before = any(truth, random, [](const TruthRecord&) { return true; })) {
      TruthRecord after = *before;
      after.revision = state.revision + 1;
      after.content.name = titleOf(random());
      changes.push_back({*before, std::move(after)});
    }
    return changes;
  };
}

loomer::TruthPlanner dailyEdit(Random& random) {
  return [&random](const Truth& truth, const TruthState& state) -> std::vector<TruthChange> {
    const std::uint64_t drawn = random() % 20;
    const TruthRecord* const before = drawn < 8 ? nullptr : any(truth, random, isBookmark);
    TruthRecord after = before ? *before : newBookmark(state.nextRecord, random(), state);
    after.revision = state.revision + 1;
    if (before && drawn < 14) {
      after.deleted = true;
    } else if (before && drawn < 17) {
      after.content.name = titleOf(random());
    } else {
      after.parent = anyFolder(truth, random);
      after.place = endOf(truth, after.parent);
    }
    return {{before ? std::optional(*before) : std::nullopt, std::move(after)}};
  };
}

}  // namespace corvane::servicebench
