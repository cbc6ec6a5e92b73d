#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

class ClientTest : public EngineTest {
 protected:
  LoomerClient* enter(const char* identifier) {
    return manager().registerClientWithIdentifier(identifier, descriptionPath);
  }
  Dictionary storedDescription(const char* identifier) {
    return loomer::ClientTable(store()).description(manager().clientWithIdentifier(identifier)->row());
  }
};

TEST_F(ClientTest, RegistrationIsFoundAgainAlsoAfterReopening) {
  EXPECT_EQ(manager().clientWithIdentifier("a"), nullptr);
  LoomerClient* client = enter("a");
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->clientIdentifier(), "a");
  EXPECT_EQ(manager().clientWithIdentifier("a"), client);
  EXPECT_EQ(enter("a"), client) << "the existing registration is answered";
  reopen();
  EXPECT_NE(manager().clientWithIdentifier("a"), nullptr);
  EXPECT_EQ(loomer::ClientTable(store()).find("a")->registered, platform.clock.time);
}

TEST_F(ClientTest, RegistrationByBundleNamesThePathInsideIt) {
  EXPECT_NE(
      manager().registerClientWithIdentifier("a", "com.keldra.Corvane", "CorvaneClientDescription.plist"),
      nullptr);
  platform.log.expectMessages(
      {"Loomer - cannot register client b with description x.plist of bundle com.nobody: there is no such "
       "bundle"});
  EXPECT_EQ(manager().registerClientWithIdentifier("b", "com.nobody", "x.plist"), nullptr);
}

TEST_F(ClientTest, RegisteringAgainRenewsADescriptionThatDiffers) {
  enter("a")->setObject(Value(7), "kept");
  Dictionary changed = *readPropertyList(contents(descriptionPath)).as<Dictionary>();
  changed.set("DisplayName", "Another");
  platform.realFiles.write(descriptionPath, writeXmlPropertyList(changed));
  LoomerClient* client = enter("a");
  EXPECT_EQ(storedDescription("a").string("DisplayName"), "Another");
  EXPECT_EQ(client->objectForKey("kept"), Value(7));
}

TEST_F(ClientTest, NewsAreWhatMayMakeItsNextSessionAnotherOne) {
  const auto news = [&] { return manager().newsForClient("a"); };
  EXPECT_TRUE(news().isBehind) << "it is not even registered";
  const auto a = makeClient("a");
  const auto b = makeClient("b");
  a->addBookmark("", "ant", "http://ant/");
  ASSERT_EQ(a->sync(), "");
  const LoomerNews quiet = news();
  EXPECT_FALSE(quiet.isBehind || quiet.isPending || quiet.isApproved);
  EXPECT_EQ(news(), quiet);
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(news().sessions, quiet.sessions + 1);
  EXPECT_EQ(news().revision, quiet.revision);
  EXPECT_FALSE(news().isBehind);
  b->addBookmark("", "bee", "http://bee/");
  ASSERT_EQ(b->sync(), "");
  EXPECT_NE(news().revision, quiet.revision);
  EXPECT_TRUE(news().isBehind);
  EXPECT_FALSE(manager().newsForClient("b").isBehind);
  ASSERT_EQ(a->sync(), "");
  EXPECT_FALSE(news().isBehind);
  loomer::ClientTable(store()).setRestorePending(manager().clientWithIdentifier("a")->row(), true);
  EXPECT_TRUE(news().isPending);
  EXPECT_FALSE(manager().newsForClient("b").isPending);
}

// By its path a client may be registered for a command that must not say anything; by its bundle it is
// registered for a session.
TEST_F(ClientTest, UnusableDescriptionsAnswerNoneAndABundlesOneLogLine) {
  struct Row {
    const char* phrase;
    std::string bytes;
    const char* cause;
  };
  const auto with = [](const char* dataClass, Array entities) {
    return writeXmlPropertyList(Dictionary{{"DataClass", dataClass}, {"Entities", entities}});
  };
  const Dictionary usable = *readPropertyList(contents(descriptionPath)).as<Dictionary>();
  const auto without = [&usable](const char* key) {
    Dictionary description = usable;
    description.remove(key);
    return writeXmlPropertyList(description);
  };
  const auto changed = [&usable](const char* key, const Value& value) {
    Dictionary description = usable;
    description.set(key, value);
    return writeXmlPropertyList(description);
  };
  const Row rows[] = {
      {"no dictionary", writeXmlPropertyList(Array{1}), "it is no dictionary but a array"},
      {"no data class", writeXmlPropertyList(Dictionary{}), "it names no data class"},
      {"another data class", with("com.keldra.Contacts", {}), "com.keldra.Contacts"},
      {"no entities", with("com.keldra.Bookmarks", {}), "it names no entities"},
      {"an entity that the schema lacks", with("com.keldra.Bookmarks", {"com.keldra.bookmarks.Tag"}),
       "com.keldra.bookmarks.Tag"},
      {"no name", without("DisplayName"), "it has no text under \"DisplayName\""},
      {"an empty name", changed("DisplayName", ""), "it has no text under \"DisplayName\""},
      {"a name that is no text", changed("DisplayName", 7), "it has no text under \"DisplayName\""},
      {"no tool", without("ToolPath"), "it has no text under \"ToolPath\""},
      {"an image that is no path", changed("ImagePath", Array{}),
       "what it has under \"ImagePath\" is no path"},
      {"no property list", "bplist00garbage", "offset"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.phrase);
    platform.realFiles.write(descriptionPath, row.bytes);
    platform.log.messages.clear();
    EXPECT_EQ(enter("a"), nullptr);
    EXPECT_TRUE(platform.log.messages.empty()) << "by its path";
    EXPECT_EQ(
        manager().registerClientWithIdentifier("a", "com.keldra.Corvane", "CorvaneClientDescription.plist"),
        nullptr);
    ASSERT_EQ(platform.log.messages.size(), 1u) << "by its bundle";
    EXPECT_THAT(platform.log.messages[0], testing::HasSubstr(descriptionPath));
    EXPECT_THAT(platform.log.messages[0], testing::HasSubstr(row.cause));
    EXPECT_EQ(manager().clientWithIdentifier("a"), nullptr);
  }
  platform.log.messages.clear();
}

TEST_F(ClientTest, ImageIsNotNeeded) {
  Dictionary description = *readPropertyList(contents(descriptionPath)).as<Dictionary>();
  description.remove("ImagePath");
  platform.realFiles.write(descriptionPath, writeXmlPropertyList(description));
  EXPECT_NE(enter("a"), nullptr);
  EXPECT_EQ(storedDescription("a"), description);
}

TEST_F(ClientTest, UnregisteringRemovesBaseValuesAndResetButNeverTheTruth) {
  const auto a = makeClient("a");
  a->addBookmark("", "A", "http://a/");
  ASSERT_EQ(a->sync(), "");
  loomer::ClientTable(store()).setResetPending(manager().clientWithIdentifier("a")->row(), true);
  manager().unregisterClient(*manager().clientWithIdentifier("a"));
  EXPECT_EQ(manager().clientWithIdentifier("a"), nullptr);
  EXPECT_EQ(number("SELECT (SELECT count(*) FROM base) + (SELECT count(*) FROM client_values)"), 0);
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 1);
  EXPECT_EQ(a->sync(), "") << "a new registration, without a pending reset";
  EXPECT_TRUE(a->delivered.empty());
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 1) << "matched again, not doubled";
}

TEST_F(ClientTest, UnregisteredByAnotherProcessIsGoneHereToo) {
  enter("a");
  loomer::EmbeddedManager other(storePath);
  other.unregisterClient(*other.clientWithIdentifier("a"));
  EXPECT_EQ(manager().clientWithIdentifier("a"), nullptr);
}

TEST_F(ClientTest, ValuesOfEveryTypeComeBackBitForBit) {
  const double odd = std::nextafter(783'000'000.123456, 1e10);
  const Dictionary nested{{"z", Value(1)}, {"a", Array{Value(Date{odd}), Value("x")}}};
  const std::pair<const char*, Value> values[] = {
      {"true", true},
      {"false", false},
      {"least integer", std::numeric_limits<std::int64_t>::min()},
      {"greatest unsigned", std::numeric_limits<std::uint64_t>::max()},
      {"real", 0.1},
      {"negative zero", -0.0},
      {"infinity", std::numeric_limits<double>::infinity()},
      {"date", Date{odd}},
      {"date before", Date{-0.000001}},
      {"empty text", ""},
      {"text", "Ünïcödé 🎈"},
      {"data", Data(std::string_view("\0\xff\x01", 3))},
      {"array", Array{1, "two", Data(std::string_view("3"))}},
      {"dictionary", nested},
  };
  LoomerClient* client = enter("a");
  for (const auto& [key, value] : values) client->setObject(value, key);
  reopen();
  client = manager().clientWithIdentifier("a");
  for (const auto& [key, value] : values) {
    const auto stored = client->objectForKey(key);
    ASSERT_TRUE(stored) << key;
    EXPECT_EQ(*stored, value) << key;
    EXPECT_EQ(writeBinaryPropertyList(*stored), writeBinaryPropertyList(value)) << key;
  }
  EXPECT_TRUE(std::signbit(*client->objectForKey("negative zero")->as<double>()));
  const auto real = std::numeric_limits<double>::quiet_NaN();
  client->setObject(Value(real), "nan");
  EXPECT_TRUE(std::isnan(*client->objectForKey("nan")->as<double>()));
}

TEST_F(ClientTest, ValuesBelongToOneClientAndCanBeRemoved) {
  LoomerClient* a = enter("a");
  LoomerClient* b = enter("b");
  a->setObject(Value(1), "k");
  EXPECT_EQ(b->objectForKey("k"), std::nullopt);
  a->setObject(std::nullopt, "k");
  EXPECT_EQ(a->objectForKey("k"), std::nullopt);
  EXPECT_THROW(a->setObject(Value(Url{"http://x/"}), "k"), PropertyListException);
}

TEST_F(ClientTest, EqualValueWritesNothing) {
  LoomerClient* a = enter("a");
  a->setObject(Value(1), "k");
  const std::int64_t before = number("PRAGMA data_version");
  loomer::TruthStore other(storePath);
  const std::int64_t seen = other.database().integer("PRAGMA data_version", "test");
  a->setObject(Value(1), "k");
  EXPECT_EQ(other.database().integer("PRAGMA data_version", "test"), seen);
  EXPECT_EQ(number("PRAGMA data_version"), before);
}

TEST_F(ClientTest, ManagerOfTheScopeIsTheSharedOne) {
  EXPECT_EQ(&LoomerManager::sharedManager(), &manager());
  loomer::EmbeddedManager other(platform.directory / "other/Truth.db");
  {
    LoomerManagerScope scope(other);
    EXPECT_EQ(&LoomerManager::sharedManager(), &other);
  }
  EXPECT_EQ(&LoomerManager::sharedManager(), &manager());
}

TEST_F(ClientTest, WithoutAScopeTheEmbeddedManagerOfTheUsersHomeIsShared) {
  close();
  platform.process.home = platform.directory / "own home";
  LoomerManager& shared = LoomerManager::sharedManager();
  EXPECT_EQ(&LoomerManager::sharedManager(), &shared);
  std::error_code error;
  EXPECT_TRUE(platform.realFiles.attributes(
      platform.directory / "own home/Library/Application Support/Loomer/Truth.db", error));
}

TEST(LoomerChangeTest, DescribesItself) {
  EXPECT_EQ(LoomerChange(1, "X", Dictionary{{"name", "A"}}).description(),
            "LoomerChange type 1 identifier X record {name = A}");
  EXPECT_EQ(LoomerChange(3, "X", std::nullopt).description(),
            "LoomerChange type 3 identifier X record (null)");
}

}  // namespace
}  // namespace corvane
