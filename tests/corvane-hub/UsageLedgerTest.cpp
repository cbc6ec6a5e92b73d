#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/TemporaryDirectory.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

class UsageLedgerRules : public testing::Test {
 protected:
  UsageLedgerRules() {
    ::mkdir((directory / "objects").c_str(), 0700);
    ::mkdir((directory / "objects/f.c").c_str(), 0700);
    writeObject("f.c/1", 5000);
    writeObject("f.c/2", 10);
  }

  void writeObject(const std::string& path, std::size_t size) const {
    std::ofstream(directory / ("objects/" + path)) << std::string(size, 'x');
  }
  void writeRecord(const std::string& text) const { std::ofstream(directory / "usage") << text; }
  std::string boot() const {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
  }
  std::uint64_t bytes() const { return UsageLedger(directory.path()).bytes(); }

  TemporaryDirectory directory;
  const std::uint64_t counted = 1024 + 5000 + 1024;
};

TEST_F(UsageLedgerRules, WithoutARecordTheObjectsAreCounted) { EXPECT_EQ(bytes(), counted); }

TEST_F(UsageLedgerRules, ARecordIsBelieved) {
  writeRecord(textOf(LedgerRecord{boot(), 77, {}}));
  EXPECT_EQ(bytes(), 77u);
  EXPECT_EQ(UsageLedger::bytesAtOnce(directory.path()), 77u);
}

TEST_F(UsageLedgerRules, ARecordFromBeforeThePowerCutIsNot) {
  writeRecord(textOf(LedgerRecord{"00000000-0000-0000-0000-000000000000", 77, {}}));
  EXPECT_FALSE(UsageLedger::bytesAtOnce(directory.path()));
  EXPECT_EQ(bytes(), counted);
}

TEST_F(UsageLedgerRules, ARecordThatCannotBeReadIsNot) {
  const std::string whole = textOf(LedgerRecord{boot(), 77, {}});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    writeRecord(whole.substr(0, length));
    ASSERT_EQ(bytes(), counted) << length;
  }
  writeRecord(whole + "x");
  EXPECT_EQ(bytes(), counted);
}

TEST_F(UsageLedgerRules, AChangeThatWasBegunCountsWhenItHappened) {
  const auto begun = [&](LedgerChange::Kind kind, const char* path) {
    writeRecord(textOf(LedgerRecord{boot(), 10'000, LedgerChange{kind, 3000, path}}));
    return bytes();
  };
  EXPECT_EQ(begun(LedgerChange::Kind::addition, "f.c/1"), 13'000u);
  EXPECT_EQ(begun(LedgerChange::Kind::addition, "f.c/9"), 10'000u);
  EXPECT_EQ(begun(LedgerChange::Kind::removal, "f.c/1"), 10'000u);
  EXPECT_EQ(begun(LedgerChange::Kind::removal, "f.c/9"), 7000u);
}

TEST_F(UsageLedgerRules, OneAtATimeChangesIt) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 100; ++n) {
        UsageLedger ledger(directory.path());
        ledger.announce({LedgerChange::Kind::addition, 5, "f.c/9"});
        ledger.settle(true);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(bytes(), counted + 8 * 100 * 5);
}

TEST_F(UsageLedgerRules, AnAccountThatIsGoneHasNone) {
  EXPECT_THROW(UsageLedger(directory / "gone"), HubFailure);
  EXPECT_FALSE(UsageLedger::bytesAtOnce(directory / "gone"));
}

}  // namespace

}  // namespace corvane::hubserver
