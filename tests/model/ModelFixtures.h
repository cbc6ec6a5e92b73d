#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/kit/Entries.h"

namespace corvane {

/// A FakePlatform and an empty map; after each test the tree is verified and the system log compared with
/// what the test declared.
class ModelTest : public testing::Test {
 protected:
  static constexpr bool kFolder = true;
  static constexpr bool kBookmark = false;

  /// Reads a file's contents into the map.
  CorvaneBookmarkFolder* read(const Dictionary& file);
  /// The written form of the root.
  Dictionary written() const { return map.root()->corvaneDictionaryRepresentation(map); }
  /// The written form of the root's child number `index`.
  Dictionary writtenChild(std::size_t index) const {
    const Dictionary file = written();
    return *(*file.array("Children"))[index].as<Dictionary>();
  }
  CorvaneBookmark& node(const char* uid) const;
  CorvaneBookmarkFolder& folder(const char* uid) const;
  CorvaneBookmarkRecord& bookmark(const char* uid) const;
  std::vector<std::string> childrenOf(const char* uid) const;
  /// Puts a node into the map, in no list.
  CorvaneBookmark& add(const char* uid, bool isFolder, const char* title, int position);
  CorvaneBookmarkFolder& parent(const char* uid, std::vector<String> children);

  StrictPlatform platform;
  BookmarkMap map;

  void TearDown() override;
};

/// What must hold of every map: each node stands under its uid, and only the root lacks a parent id among
/// nodes read from a file.
void verifyTree(const BookmarkMap& map);

/// The entries of a written folder, by uid.
std::vector<std::string> writtenUids(const Dictionary& folder);

}  // namespace corvane
