// Long lists of children: that the indexed list answers like the walk, and takes no time that grows with it.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <random>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "tests/kit/TestSize.h"
#include "tests/model/ModelFixtures.h"

namespace corvane {
namespace {

class LongListTest : public ModelTest {};

// The placement walk word for word, against which long lists are checked.
std::size_t literalPlace(const std::vector<String>& uids, const CorvaneBookmark& child, bool inRoot,
                         const BookmarkMap& map) {
  const auto compare = [](const String& a, const String& b) {
    return compareCaseInsensitive(a.view(), b.view());
  };
  for (std::size_t i = 0; i < uids.size(); ++i) {
    const CorvaneBookmark* sibling = map.find(uids[i]);
    if (child.position() == kUnknownPosition) {
      if (inRoot && !child.special() && sibling && sibling->special()) continue;
      if (sibling && sibling->title() && (!child.title() || compare(child.title(), sibling->title()) >= 0))
        continue;
      return i;
    }
    if (!sibling) return i;
    if (child.position() > sibling->position()) continue;
    if (child.position() < sibling->position()) return i;
    const int order =
        child.title() ? compare(child.title(), sibling->title() ? sibling->title() : String("")) : 0;
    if (order < 0 || (order == 0 && child.asFolder())) return i;
  }
  return uids.size();
}

// Random edits of one long list of the root, and of a second folder that lists some of the same uids, with
// siblings that are renamed, moved, replaced, made special, ignored by sync and missing in between, and nodes
// that are in no list.
class LongList {
 public:
  // `choose` answers a number below the one it is given.
  explicit LongList(std::function<int(int)> choose) : chosen(std::move(choose)) {
    std::vector<Value> hidden;
    for (int i = 0; i < 6; ++i) {
      Dictionary entry = bookmarkEntry(uid(i).toString().c_str(), "hidden");
      entry.set("ShouldOmitFromUI", true);
      hidden.emplace_back(std::move(entry));
    }
    CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(rootEntry(std::move(hidden)), String(), 0, map);
    map.insert(std::make_unique<CorvaneBookmarkFolder>("Other"));
    for (int i = 0; i < 80; ++i) {
      change(i);
      expected.push_back(uid(i));
      other.push_back(uid(i));
    }
    map.root()->setChildren(expected);
    map.findFolder("Other")->setChildren(other);
  }

  void step() {
    const int i = chosen(120);
    switch (chosen(7)) {
      case 0:
        return change(i);
      case 1:
        return map.remove(uid(i));
      case 2:
        if (map.find(uid(i))) remove(*map.root(), expected, i);
        return;
      case 3:
        if (map.find(uid(i))) remove(*map.findFolder("Other"), other, i);
        return;
      case 4:
        if (map.find(uid(i))) add(*map.findFolder("Other"), other, i, false);
        return;
      case 5:
        return makeSpecial(i);
      default:
        if (map.find(uid(i))) add(*map.root(), expected, i, true);
    }
  }

  bool isAsExpected() const {
    return *map.root()->children() == expected && *map.findFolder("Other")->children() == other;
  }

 private:
  static String uid(int i) { return "u" + std::to_string(i); }

  template <typename Each>
  Each oneOf(std::initializer_list<Each> all) {
    return all.begin()[chosen(static_cast<int>(all.size()))];
  }

  // Enters the node, or overwrites it where it stands.
  void change(int i) {
    const bool isFolder = i % 3 == 0;
    if (!map.find(uid(i)) || chosen(4) == 0) {
      if (isFolder) map.insert(std::make_unique<CorvaneBookmarkFolder>(uid(i)));
      if (!isFolder) map.insert(std::make_unique<CorvaneBookmarkRecord>(uid(i)));
    }
    Dictionary record{{LoomerAttribute_Bookmarks_Bookmark_Position, oneOf({-1000, -2, -1, 0, 1, 5, 30})},
                      {LoomerAttribute_Bookmarks_Bookmark_Url, Url{"http://x/"}}};
    const char* title = oneOf({"", "a", "A", "b", "ab", "\u00e9"});
    if (*title) {
      record.set(LoomerAttribute_Bookmarks_Bookmark_Name, title);
      record.set(LoomerAttribute_Bookmarks_Folder_Name, title);
    }
    map.find(uid(i))->updateWithVessynDictionary(record, map);
  }

  // As the engine's record of a special folder does: it is special once it has its place in the root.
  void makeSpecial(int i) {
    Dictionary record = folderRecord(oneOf({"a", "B", "z"}), "Root");
    record.set(LoomerAttribute_Bookmarks_Bookmark_Position, kSpecialPosition);
    CorvaneBookmarkFolder::bookmarkWithUid(uid(i), record, map);
    std::erase(expected, uid(i));
    const std::size_t place = literalPlace(expected, *map.find(uid(i)), true, map);
    expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(place), uid(i));
  }

  void add(CorvaneBookmarkFolder& folder, std::vector<String>& list, int i, bool inRoot) {
    const CorvaneBookmark& child = *map.find(uid(i));
    const std::size_t place = literalPlace(list, child, inRoot, map);
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(place), child.uid());
    folder.addChild(child, map);
  }

  void remove(CorvaneBookmarkFolder& folder, std::vector<String>& list, int i) {
    std::erase(list, uid(i));
    folder.removeChild(*map.find(uid(i)));
  }

  std::function<int(int)> chosen;
  BookmarkMap map;
  std::vector<String> expected;
  std::vector<String> other;
};

RC_GTEST_PROP(PlacementProperty, LongListsAnswerLikeTheWalk, ()) {
  FakePlatform platform;
  LongList list([](int below) { return *rc::gen::inRange(0, below); });
  const int steps = *rc::gen::inRange(0, 200);
  for (int i = 0; i < steps; ++i) {
    list.step();
    if (*rc::gen::inRange(0, 8) == 0) RC_ASSERT(list.isAsExpected());
  }
  RC_ASSERT(list.isAsExpected());
}

TEST(PlacementOracle, AMillionStepsOfLongListsAnswerLikeTheWalk) {
  constexpr int kSteps = 2'000;
  constexpr unsigned kLists = sized<unsigned>(500, 10);
  const FakePlatform platform;
  for (unsigned seed = 0; seed < kLists; ++seed) {
    std::mt19937 random(seed);
    LongList list([&random](int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); });
    for (int i = 0; i < kSteps; ++i) {
      list.step();
      // Reading the list brings it up to date, so that it is not read after each step.
      const bool isLooked = random() % 8 == 0;
      ASSERT_TRUE(!isLooked || list.isAsExpected()) << "seed " << seed << ", step " << i;
    }
    ASSERT_TRUE(list.isAsExpected()) << "seed " << seed;
  }
}

TEST_F(LongListTest, LongListIsToldThatAListedFolderBecameSpecial) {
  read(rootEntry({}));
  std::vector<String> uids;
  for (int i = 0; i < 100; ++i)
    uids.push_back(add(("u" + std::to_string(i)).c_str(), kBookmark, "m", i).uid());
  map.root()->setChildren(uids);
  Dictionary record = folderRecord("z", "Root");
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, kSpecialPosition);
  CorvaneBookmarkFolder::bookmarkWithUid("S", record, map);
  ASSERT_EQ(childrenOf("Root").front(), "S");
  map.root()->addChild(add("NEW", kBookmark, "a", kUnknownPosition), map);
  uids.insert(uids.begin(), {"S", "NEW"});
  EXPECT_EQ(*map.root()->children(), uids) << "the new one goes behind the special folder";
}

TEST_F(LongListTest, UidListedInManyFoldersIsChangedWithoutVisitingThemAll) {
  // A node that is built anew in one folder after another stays listed in those before.
  constexpr int kFolders = sized(20'000, 2'000);
  std::vector<String> siblings;
  for (int i = 0; i < 64; ++i)
    siblings.push_back(add(("s" + std::to_string(i)).c_str(), kBookmark, "s", i).uid());
  for (int i = 0; i < kFolders; ++i) {
    const std::string uid = "f" + std::to_string(i);
    parent(uid.c_str(), siblings);
    Dictionary record = bookmarkRecord("moved", uid.c_str());
    record.set(LoomerAttribute_Bookmarks_Bookmark_Position, i % 64);
    CorvaneBookmarkRecord::bookmarkWithUid("A", record, map);
  }
  for (int i = 0; i < kFolders; ++i) {
    CorvaneBookmarkFolder& folder = *map.findFolder("f" + std::to_string(i));
    ASSERT_EQ(folder.children()->size(), 65u);
    folder.removeChild(node("A"));
    ASSERT_EQ(folder.children()->size(), 64u);
  }
}

TEST_F(LongListTest, CopyOfAChangedLongListIsUpToDate) {
  std::vector<String> uids;
  for (int i = 0; i < 100; ++i)
    uids.push_back(add(("u" + std::to_string(i)).c_str(), kBookmark, "t", i * 2).uid());
  parent("F", uids).addChild(add("NEW", kBookmark, "t", 31), map);
  uids.insert(uids.begin() + 16, "NEW");
  const auto copy = folder("F").copyWithZone();
  EXPECT_EQ(*copy->asFolder()->children(), uids);
  EXPECT_EQ(*map.scDeepMutableCopy()->findFolder("F")->children(), uids);
}

TEST_F(LongListTest, HundredThousandChildrenInOneFolder) {
  constexpr int kChildren = sized(100'000, 10'000);
  read(rootEntry({}));
  for (int i = 0; i < kChildren; ++i) {
    const int position = (i * 7919) % kChildren;
    Dictionary record = bookmarkRecord("t", "Root");
    record.set(LoomerAttribute_Bookmarks_Bookmark_Position, position);
    CorvaneBookmarkRecord::bookmarkWithUid(std::to_string(position), record, map);
  }
  const std::vector<String> children = *map.root()->children();
  ASSERT_EQ(children.size(), static_cast<std::size_t>(kChildren));
  for (int i = 0; i < kChildren; ++i) {
    ASSERT_EQ(children[static_cast<std::size_t>(i)].toString(), std::to_string(i));
  }
  for (const String& uid : children) {
    map.root()->removeChild(*map.find(uid));
    map.remove(uid);
  }
  EXPECT_TRUE(map.root()->children()->empty());
}

TEST_F(LongListTest, ListOfChildrenSharedByManyFoldersIsReadOnce) {
  constexpr int kFolders = sized(60'000, 6'000);
  Array shared;
  for (int i = 0; i < kFolders; ++i) shared.append(bookmarkEntry(("b" + std::to_string(i)).c_str(), "b"));
  Array folders;
  for (int i = 0; i < kFolders; ++i) {
    folders.append(with(folderEntry(("f" + std::to_string(i)).c_str(), "f"), "Children", shared));
  }
  read(with(rootEntry({}), "Children", folders));
  EXPECT_EQ(childrenOf("f0").size(), static_cast<std::size_t>(kFolders));
  EXPECT_TRUE(childrenOf("f1").empty()) << "what is listed a second time is a duplicate";
  EXPECT_EQ(map.size(), 2u * kFolders + 1);
}

}  // namespace
}  // namespace corvane
