#include "CorvaneSyncClient/model/ChildList.h"

#include <algorithm>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane {

namespace {

// Below this length a walk is cheaper than an index.
constexpr std::size_t kIndexedLength = 64;

const char* yesOrNo(bool value) { return value ? "YES" : "NO"; }

// The place of the first sibling that the child stops before.
std::size_t placeByWalking(const std::vector<String>& uids, const InsertionRule& rule,
                           const BookmarkMap& map) {
  std::size_t place = 0;
  while (place < uids.size() && !rule.stopsBefore(SiblingKey::of(map.find(uids[place])))) ++place;
  return place;
}

// Placement by title is traced sibling by sibling, up to the one at `place`, which the child stops before.
void traceByTitle(const std::vector<String>& uids, std::size_t place, const CorvaneBookmark& child,
                  const CorvaneBookmark& folder, const BookmarkMap& map) {
  for (std::size_t i = 0; i < uids.size() && i <= place; ++i) {
    const SiblingKey sibling = SiblingKey::of(map.find(uids[i]));
    SCLog(
        "====== can insert called, parent uid %@, candidate %@, previous %@, candidate/previous special "
        "%@/%@",
        folder.uid(), child.title(), sibling.title, yesOrNo(child.special()), yesOrNo(sibling.special));
  }
}

}  // namespace

ChildList::ChildList(const ChildList& other) : Describable(other), _present(other._present) {
  if (const auto* uids = other.uids()) _uids = *uids;
}

const std::vector<String>* ChildList::uids() const {
  if (!_present) return nullptr;
  if (_stale) {
    _uids = _index->uids();
    _stale = false;
  }
  return &_uids;
}

void ChildList::assign(std::vector<String> uids) {
  _index.reset();
  _uids = std::move(uids);
  _stale = false;
  _present = true;
}

void ChildList::add(const CorvaneBookmark& child, const CorvaneBookmark& folder, BookmarkMap& map,
                    BookmarkMap* folderMap) {
  if (!_present) return assign({child.uid()});
  const InsertionRule rule(child, folder.uid().isSameInstance(kRootUid));
  const bool isTraced = rule.order() != InsertionOrder::byPosition && SCLogIsOn();
  if (folderMap == &map && indexed(*folderMap)) {
    ChildIndex::Item* const next = _index->firstToStopAt(rule);
    if (isTraced) traceByTitle(*uids(), _index->placeOf(next), child, folder, map);
    _index->insertBefore(next, child.uid());
    _stale = true;
    return;
  }
  std::vector<String>& list = walkedList();
  const std::size_t place = placeByWalking(list, rule, map);
  if (isTraced) traceByTitle(list, place, child, folder, map);
  list.insert(list.begin() + static_cast<std::ptrdiff_t>(place), child.uid());
}

void ChildList::remove(const String& uid, BookmarkMap* folderMap) {
  if (!_present) return;
  if (folderMap && indexed(*folderMap)) {
    _stale = _index->remove(uid) || _stale;
    return;
  }
  std::erase(walkedList(), uid);
}

std::string ChildList::description() const {
  if (!_present) return "(null)";
  std::string text = "(";
  const char* separator = "";
  for (const String& uid : *uids()) {
    if (text.size() > kDescriptionLimit) return text + "…";
    text += separator;
    text += uid.view();
    separator = ", ";
  }
  return text + ")";
}

std::vector<String>& ChildList::walkedList() {
  uids();
  _index.reset();
  return _uids;
}

bool ChildList::indexed(BookmarkMap& map) {
  if (!_index && _uids.size() >= kIndexedLength) _index = std::make_unique<ChildIndex>(map, _uids);
  return _index != nullptr;
}

}  // namespace corvane
