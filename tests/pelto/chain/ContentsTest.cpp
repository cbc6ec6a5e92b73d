#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/chain/Contents.h"

namespace corvane::pelto::chain {
namespace {

constexpr const char* kPush = "0A000000-0000-4000-8000-000000000001";
constexpr const char* kRecord = "0B000000-0000-4000-8000-000000000002";

Commit fullCommit() {
  Commit commit;
  commit.link.number = 7;
  commit.link.previous = std::string(32, 'p');
  commit.link.pushId = kPush;
  commit.link.isCheckpoint = true;
  commit.link.keeps = 5;
  commit.link.before = 3;
  commit.link.tail = 9;
  commit.link.records = 1000;
  commit.link.bytes = 20'000;
  commit.link.segments = 2;
  commit.writer = kRecord;
  commit.time = Date{1.5};
  HubRecord folder, bookmark, gone;
  folder.id = kRecord;
  folder.folder = folder.tabGroup = true;
  folder.position = -3;
  folder.name = "F";
  bookmark.id = kPush;
  bookmark.parent = kRecord;
  bookmark.position = 2;
  bookmark.name = "";
  bookmark.url = "http://ü/";
  gone.id = "0C000000-0000-4000-8000-000000000003";
  gone.deleted = true;
  commit.records = {folder, bookmark, gone};
  const SegmentRef segment{std::string(32, 'a'), std::string(32, 'h')};
  commit.segments = {segment};
  commit.snapshot = Snapshot{segment, {segment, segment}, 2};
  return commit;
}

std::string text(const std::vector<HubRecord>& records) {
  std::string text;
  for (const HubRecord& each : records) {
    text += each.id.toString() + (each.folder ? " folder" : "") + (each.tabGroup ? " tabs" : "") +
            (each.special ? " special" : "") + (each.deleted ? " deleted" : "") + " in " +
            (each.parent ? each.parent.toString() : "none") + " at " + std::to_string(each.position) + " " +
            (each.name ? "'" + each.name.toString() + "'" : "-") + " " +
            (each.url ? "'" + each.url.toString() + "'" : "-") + " of " + std::to_string(each.revision) +
            "\n";
  }
  return text;
}

TEST(Contents, OfACommitAreReadAsTheyWereWritten) {
  Commit commit = fullCommit();
  commit.link.givesAgain = {{4, kRecord}, {3, kPush}};
  const Commit read = readCommit(writeCommit(commit));
  EXPECT_EQ(read.link, commit.link);
  EXPECT_EQ(read.writer, commit.writer);
  EXPECT_EQ(read.time, commit.time);
  EXPECT_EQ(read.segments, commit.segments);
  EXPECT_EQ(read.snapshot, commit.snapshot);
  EXPECT_EQ(
      text(read.records),
      "0B000000-0000-4000-8000-000000000002 folder tabs in none at -3 'F' - of 7\n"
      "0A000000-0000-4000-8000-000000000001 in 0B000000-0000-4000-8000-000000000002 at 2 '' 'http://ü/' "
      "of 7\n"
      "0C000000-0000-4000-8000-000000000003 deleted in none at 0 - - of 7\n");
}

TEST(Contents, OfASegmentKeepTheRevisions) {
  std::vector<HubRecord> records = fullCommit().records;
  records[1].revision = 12;
  EXPECT_EQ(text(readSegment(writeSegment(records))), text(records));
}

std::vector<HubRecord> recordsWithOrigins() {
  std::vector<HubRecord> records = fullCommit().records;
  records[0].origins = {kPush, kPush, kPush, kPush, kRecord};
  records[1].origins = {kRecord, "0C000000-0000-4000-8000-000000000003", String(), kPush, kPush};
  records[2].deletedBy = kRecord;
  return records;
}

TEST(Contents, KeepTheOriginsOfValues) {
  Commit commit = fullCommit();
  commit.records = recordsWithOrigins();
  for (const auto& read :
       {readCommit(writeCommit(commit)).records, readSegment(writeSegment(commit.records))}) {
    ASSERT_EQ(read.size(), 3u);
    for (std::size_t i = 0; i < read.size(); ++i) {
      EXPECT_EQ(read[i].origins, commit.records[i].origins) << i;
      EXPECT_EQ(read[i].deletedBy, commit.records[i].deletedBy) << i;
    }
  }
  EXPECT_EQ(readSegment(writeSegment(fullCommit().records))[0].origins, HubOrigins())
      << "as written by a version that knew of none";
}

TEST(Contents, OfAHistoryAreReadAsTheyWereWritten) {
  const std::vector<PastState> states{{9, kPush, Date{3}}, {4, kRecord, Date{-1.25}}};
  EXPECT_EQ(readHistory(writeHistory(states)), states);
  EXPECT_THROW(readHistory(writeHistory({states[1], states[0]})), ContentsException) << "out of order";
}

TEST(Contents, CutAnywhereAreRefused) {
  const std::string whole = writeCommit(fullCommit());
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_THROW(readCommit(std::string_view(whole).substr(0, size)), ContentsException) << size;
}

void changeRecords(Dictionary& entries, const char* key, Value value) {
  Dictionary records = *entries.dictionary("records");
  records.set(key, std::move(value));
  entries.set("records", records);
}

TEST(Contents, OfAnotherShapeAreRefused) {
  struct Row {
    const char* phrase;
    std::function<void(Dictionary&)> change;
  };
  const Row rows[] = {
      {"no number", [](Dictionary& all) { all.remove("number"); }},
      {"number 0", [](Dictionary& all) { all.set("number", 0); }},
      {"a number as text", [](Dictionary& all) { all.set("number", "7"); }},
      {"a number beyond all", [](Dictionary& all) { all.set("number", std::int64_t{1} << 60); }},
      {"a short hash", [](Dictionary& all) { all.set("previous", Data("p")); }},
      {"a push that is none", [](Dictionary& all) { all.set("push", Data("p")); }},
      {"a negative count", [](Dictionary& all) { all.set("live", -1); }},
      {"a checkpoint that keeps itself", [](Dictionary& all) { all.set("keeps", 7); }},
      {"a checkpoint before that is later", [](Dictionary& all) { all.set("before", 8); }},
      {"half a state given again", [](Dictionary& all) { all.set("again", Data(std::string(23, 1))); }},
      {"the beginning given again", [](Dictionary& all) { all.set("again", Data(std::string(24, 0))); }},
      {"segments as text", [](Dictionary& all) { all.set("segments", "none"); }},
      {"a segment as text", [](Dictionary& all) { all.set("segments", Array{"none"}); }},
      {"a segment elsewhere",
       [](Dictionary& all) {
         all.set("segments", Array{Dictionary{{"name", "../../c/1"}, {"hash", Data(std::string(32, 'h'))}}});
       }},
      {"unknown flags", [](Dictionary& all) { changeRecords(all, "flags", Data("\x80\x01\x08")); }},
      {"a tombstone with a name", [](Dictionary& all) { changeRecords(all, "flags", Data("\x28\x01\x08")); }},
      {"more flags than records",
       [](Dictionary& all) { changeRecords(all, "flags", Data("\x08\x08\x08\x08")); }},
      {"fewer flags than records", [](Dictionary& all) { changeRecords(all, "flags", Data("\x08")); }},
      {"a name that is a number",
       [](Dictionary& all) {
         changeRecords(all, "names", Array{1, 2});
       }},
      {"a name too many",
       [](Dictionary& all) {
         changeRecords(all, "names", Array{"a", "b", "c"});
       }},
      {"no addresses", [](Dictionary& all) { changeRecords(all, "urls", Array{}); }},
      {"an endless address",
       [](Dictionary& all) { changeRecords(all, "urls", Array{std::string(kLongestHubRecord + 1, 'u')}); }},
      {"half a push", [](Dictionary& all) { changeRecords(all, "pushes", Data(std::string(24, 1))); }},
      {"values from a push that is not named",
       [](Dictionary& all) { changeRecords(all, "pushes", Data(std::string(32, 1))); }},
      {"too few origins", [](Dictionary& all) { changeRecords(all, "origins", Data(std::string(18, 0))); }},
      {"too many origins", [](Dictionary& all) { changeRecords(all, "origins", Data(std::string(22, 0))); }},
      {"too few deletions",
       [](Dictionary& all) { changeRecords(all, "deletions", Data(std::string(1, 0))); }},
      {"too many deletions",
       [](Dictionary& all) { changeRecords(all, "deletions", Data(std::string(4, 0))); }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.phrase);
    Commit commit = fullCommit();
    commit.records = recordsWithOrigins();
    const Value value = readPropertyList(writeCommit(commit));
    Dictionary entries = *value.as<Dictionary>();
    row.change(entries);
    EXPECT_THROW(readCommit(writeBinaryPropertyList(entries)), ContentsException);
  }
}

TEST(Contents, OfASegmentWithRevisionsThatCannotBeOrTooManyRecordsAreRefused) {
  std::vector<HubRecord> records = fullCommit().records;
  for (const std::int64_t revision : {std::int64_t{-1}, (std::int64_t{1} << 53) + 1}) {
    records[1].revision = revision;
    EXPECT_THROW(readSegment(writeSegment(records)), ContentsException) << revision;
  }
  records[1].revision = std::int64_t{1} << 53;
  EXPECT_EQ(readSegment(writeSegment(records)).size(), 3u);
  records.assign(10'000, records[2]);
  EXPECT_EQ(readSegment(writeSegment(records)).size(), records.size());
  records.push_back(records[2]);
  EXPECT_THROW(readSegment(writeSegment(records)), ContentsException);
}

TEST(Contents, OfANewerFormAskForANewerProgram) {
  const Value value = readPropertyList(writeCommit(fullCommit()));
  Dictionary entries = *value.as<Dictionary>();
  entries.set("form", 2);
  EXPECT_THROW(readCommit(writeBinaryPropertyList(entries)), NewerContentsException);
}

TEST(Contents, AreCutIntoSegmentsByNumberAndByLength) {
  std::vector<HubRecord> records(kSegmentRecords + 1);
  EXPECT_EQ(segmented(records).size(), 2u);
  for (HubRecord& each : records) each.url = std::string(kSegmentBytes / 100, 'u');
  for (const auto& part : segmented(records)) EXPECT_LE(part.size(), 101u);
}

// The seeds of the fuzzer are of this form; CORVANE_SEEDS=DIRECTORY writes them anew.
TEST(Contents, OfTheSeedsAreStillRead) {
  const std::vector<std::pair<std::string, std::string>> seeds{
      {"commit", writeCommit(fullCommit())},
      {"segment", writeSegment(fullCommit().records)},
      {"history", writeHistory({{9, kPush, Date{3}}, {4, kRecord, Date{-1.25}}})}};
  const char* const to = std::getenv("CORVANE_SEEDS");
  for (const auto& [name, contents] : seeds) {
    SCOPED_TRACE(name);
    if (to) std::ofstream(std::filesystem::path(to) / name, std::ios::binary) << contents;
    std::ifstream file(std::filesystem::path(CORVANE_CORPUS) / name, std::ios::binary);
    std::ostringstream seed;
    seed << file.rdbuf();
    EXPECT_EQ(seed.str(), contents);
  }
}

}  // namespace
}  // namespace corvane::pelto::chain
