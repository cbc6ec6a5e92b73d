#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/chain/AccountRecords.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/chain/MemoryPlace.h"

namespace corvane::pelto::chain {
namespace {

constexpr std::size_t kPages = 20;

class AccountRecordsTest : public testing::Test {
 protected:
  AccountRecordsTest() { platform.uuids.inForm = true; }

  // A commit with so many pages of one record each, named `name`, with that identifier or with one each.
  Link commitWithPages(const std::string& name, bool isDeleted = false, const String& id = {}) {
    Commit commit;
    commit.link.number = ++_commits;
    commit.link.previous = std::string(kHashBytes, 'p');
    commit.link.pushId = newUuidString();
    commit.writer = newUuidString();
    for (std::size_t i = 0; i < kPages; ++i) {
      HubRecord record;
      record.id = id ? id : newUuidString();
      record.deleted = isDeleted;
      if (!isDeleted) record.name = name;
      NamedBytes page;
      commit.segments.push_back(objects.sealSegment(writeSegment({record}), page));
      place.objects[page.name].bytes = page.bytes;
    }
    const std::string bytes = objects.sealCommit(commit, commit.link);
    place.objects[sealer.folder() + "/c/" + nameOf(commit.link)].bytes = bytes;
    return commit.link;
  }

  // How many pages are asked for until it is enough.
  std::size_t pagesAskedFor(const Link& commit, AccountLimits most) {
    objects.commit(commit);
    place.requests = 0;
    AccountRecords records(objects, most);
    try {
      records.takeCommit(commit);
    } catch (const PlaceException& exception) {
      EXPECT_THAT(exception.reason(), testing::HasSubstr("more than an account may hold"));
      EXPECT_LT(place.requests, kPages);
    }
    return place.requests;
  }

  StrictPlatform platform;
  MemoryPlace place;
  std::unique_ptr<Place> connection = place.connect();
  Sealer sealer{AccountKey(std::string(AccountKey::kBytes, 'k')), "0A000000-0000-4000-8000-000000000001", 1};
  ChainObjects objects{*connection, sealer};

 private:
  std::int64_t _commits = 0;
};

TEST_F(AccountRecordsTest, AreReadPageByPageUpToWhatAnAccountMayHold) {
  const Link live = commitWithPages("12345"), gone = commitWithPages("", true);
  EXPECT_EQ(pagesAskedFor(live, {}), kPages);
  EXPECT_EQ(pagesAskedFor(live, {.records = 1}), 8u) << "with tombstones it may be five";
  EXPECT_EQ(pagesAskedFor(live, {.records = 2}), 16u);
  EXPECT_EQ(pagesAskedFor(live, {.records = 4}), kPages);
  EXPECT_EQ(pagesAskedFor(gone, {.records = 2}), 16u);
  EXPECT_EQ(pagesAskedFor(live, {.bytes = 5 * 8 - 1}), 8u);
  EXPECT_EQ(pagesAskedFor(live, {.bytes = 5 * 16 - 1}), 16u);
  EXPECT_EQ(pagesAskedFor(live, {.bytes = 5 * kPages}), kPages);
}

TEST_F(AccountRecordsTest, OfARecordOneVersionAloneCounts) {
  const Link same = commitWithPages("12345", false, newUuidString());
  EXPECT_EQ(pagesAskedFor(same, {.records = 1, .bytes = 5}), kPages);
}

}  // namespace
}  // namespace corvane::pelto::chain
