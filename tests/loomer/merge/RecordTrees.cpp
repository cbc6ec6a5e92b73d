#include "tests/loomer/merge/RecordTrees.h"

#include <cstdint>
#include <map>

namespace corvane::loomer::test {

kit::TreeNode nodeOf(const std::string& label, Entity entity, const Content& content) {
  const bool isFolder = entity == Entity::folder;
  return {.label = label,
          .folder = isFolder,
          .title = content.name,
          .url = isFolder ? String() : content.url,
          .tabGroup = content.tabGroup,
          .special = content.special};
}

std::string printTruth(const std::vector<TruthRecord>& truth,
                       const std::function<std::string(const TruthRecord&)>& labelOf) {
  std::map<RecordId, std::multimap<std::int64_t, const TruthRecord*>> byPlace;
  for (const TruthRecord& record : truth) {
    if (!record.deleted) byPlace[record.parent].emplace(record.place, &record);
  }
  const auto childrenOf = [&](const TruthRecord* folder) {
    std::vector<const TruthRecord*> children;
    for (const auto& [place, record] : byPlace[folder ? folder->id : kRoot]) children.push_back(record);
    return children;
  };
  const auto node = [&](const TruthRecord* record) {
    return nodeOf(labelOf(*record), record->entity, record->content);
  };
  const TruthRecord* const root = nullptr;
  return kit::printTree(kit::treeBelow(root, childrenOf, node));
}

std::string printTruth(const std::vector<TruthRecord>& truth) {
  return printTruth(truth, [](const TruthRecord& record) { return record.content.name.toString(); });
}

}  // namespace corvane::loomer::test
