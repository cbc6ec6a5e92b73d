#include "CorvaneSyncClient/platform/loomer/edit/ImportPlan.h"

#include <algorithm>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/merge/Places.h"

namespace corvane::loomer {

namespace {

// Equal for records that are the same.
std::string matchKey(RecordId parent, Entity entity, std::string_view title, std::string_view url) {
  std::string key = std::to_string(parent);
  key += entity == Entity::folder ? 'f' : 'b';
  key += std::to_string(title.size());
  key += ' ';
  key += title;
  key += url;
  return key;
}

// The live records by match key; each can be taken once.
class KnownRecords {
 public:
  // Of records with equal keys, the one that is added last is taken first.
  void add(const TruthRecord& record) {
    const Content& content = record.content;
    const MatchKeys keys(record.parent, record.entity, content.name.view(), content.url.view());
    _byTitle[keys.exact].push_back(record.id);
    _byShownTitle[keys.shown].push_back(record.id);
  }

  std::optional<RecordId> take(RecordId parent, Entity entity, const Content& wanted) {
    const MatchKeys keys(parent, entity, wanted.name.view(), wanted.url.view());
    const auto exact = takeFrom(_byTitle, keys.exact);
    return exact ? exact : takeFrom(_byShownTitle, keys.shown);
  }

 private:
  using Stacks = std::unordered_map<std::string, std::vector<RecordId>>;

  struct MatchKeys {
    MatchKeys(RecordId parent, Entity entity, std::string_view title, std::string_view url)
        : exact(matchKey(parent, entity, title, url)),
          shown(matchKey(parent, entity, whiteSpaceCollapsed(title), url)) {}
    std::string exact;
    std::string shown;
  };

  std::optional<RecordId> takeFrom(Stacks& stacks, const std::string& key) {
    const auto found = stacks.find(key);
    if (found == stacks.end()) return std::nullopt;
    for (std::vector<RecordId>& stack = found->second; !stack.empty();) {
      const RecordId record = stack.back();
      stack.pop_back();
      if (_taken.insert(record).second) return record;
    }
    return std::nullopt;
  }

  Stacks _byTitle;
  Stacks _byShownTitle;
  std::unordered_set<RecordId> _taken;
};

class Import {
 public:
  Import(const std::vector<TruthRecord>& truth, RecordId nextRecord, std::int64_t revision)
      : _nextRecord(nextRecord), _revision(revision) {
    std::vector<const TruthRecord*> live;
    live.reserve(truth.size());
    for (const TruthRecord& record : truth) {
      if (!record.deleted) live.push_back(&record);
    }
    // Backwards, so that the first of equal siblings is the last of its list and taken first; a special
    // folder before an ordinary one of its title.
    std::sort(live.begin(), live.end(), [](const TruthRecord* a, const TruthRecord* b) {
      if (a->content.special != b->content.special) return b->content.special;
      return a->place > b->place;
    });
    for (const TruthRecord* record : live) {
      const Content& content = record->content;
      _known.add(*record);
      if (content.special && isSpecialTitle(content.name))
        _special[content.name == LoomerTitleBookmarksMenu] = true;
      std::int64_t& last = _lastPlaces.try_emplace(record->parent, record->place).first->second;
      last = std::max(last, record->place);
    }
  }

  ImportPlan run(const std::vector<ImportedNode>& nodes) {
    std::vector<RecordId> records;
    records.reserve(nodes.size());
    for (const ImportedNode& node : nodes) {
      const RecordId parent = node.parent == ImportedNode::kRoot ? kRoot : records[node.parent];
      const std::size_t before = _plan.changes.size();
      records.push_back(join(node, parent));
      if (_plan.changes.size() > before)
        _plan.added.push_back(static_cast<std::uint32_t>(records.size() - 1));
    }
    return std::move(_plan);
  }

 private:
  RecordId join(const ImportedNode& node, RecordId parent) {
    const Entity entity = node.folder ? Entity::folder : Entity::bookmark;
    const bool toolbar = node.toolbar && parent == kRoot && !_hasToolbar;
    if (toolbar) _hasToolbar = true;
    Content content;
    content.name = toolbar ? std::string(LoomerTitleBookmarksBar) : node.title;
    if (!node.folder) content.url = node.url;
    content.tabGroup = node.tabGroup;
    if (const auto record = _known.take(parent, entity, content)) {
      ++_plan.known;
      return *record;
    }
    content.special = makesSpecial(content, entity, parent);
    return add(entity, parent, std::move(content));
  }

  static bool isSpecialTitle(const String& title) {
    return title == LoomerTitleBookmarksBar || title == LoomerTitleBookmarksMenu;
  }

  // Clients know the two special folders by their titles.
  bool makesSpecial(const Content& content, Entity entity, RecordId parent) {
    if (entity != Entity::folder || parent != kRoot) return false;
    if (!isSpecialTitle(content.name)) return false;
    bool& seen = _special[content.name == LoomerTitleBookmarksMenu];
    return !std::exchange(seen, true);
  }

  RecordId add(Entity entity, RecordId parent, Content content) {
    TruthRecord record;
    record.id = _nextRecord++;
    record.entity = entity;
    record.parent = parent;
    record.place = _lastPlaces[parent] += kPlaceSpread;
    record.content = std::move(content);
    record.revision = _revision;
    ++(entity == Entity::folder ? _plan.folders : _plan.bookmarks);
    _plan.changes.push_back({std::nullopt, std::move(record)});
    return _plan.changes.back().after.id;
  }

  RecordId _nextRecord;
  std::int64_t _revision;
  KnownRecords _known;
  std::unordered_map<RecordId, std::int64_t> _lastPlaces;  // of each folder's contents
  bool _hasToolbar = false;
  bool _special[2] = {false, false};  // the toolbar's and the menu's folder are there
  ImportPlan _plan;
};

}  // namespace

ImportPlan planImport(const std::vector<TruthRecord>& truth, const std::vector<ImportedNode>& nodes,
                      RecordId nextRecord, std::int64_t revision) {
  return Import(truth, nextRecord, revision).run(nodes);
}

}  // namespace corvane::loomer
