#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using loomer::Entity;
using testing::HasSubstr;

class SchemaTest : public EngineTest {
 protected:
  static loomer::RecordSchema real() {
    return loomer::readRecordSchema({Url{String("file://" + resource("Corvane.syncschema"))}});
  }
  std::string errorWith(const std::string& schema) {
    platform.realFiles.write(schemaPath, schema);
    const auto client = makeClient("a");
    const std::string error = client->sync();
    EXPECT_TRUE(client->calls.empty()) << "no session begins";
    return error;
  }
};

TEST_F(SchemaTest, TheSchemaDeclaresTheRecordKeys) {
  const loomer::RecordSchema schema = real();
  const loomer::EntitySchema& folder = schema.of(Entity::folder);
  EXPECT_EQ(folder.name, LoomerEntity_Bookmarks_Folder);
  EXPECT_EQ(folder.nameKey, LoomerAttribute_Bookmarks_Folder_Name);
  EXPECT_EQ(folder.positionKey, LoomerAttribute_Bookmarks_Folder_Position);
  EXPECT_EQ(folder.positionAliases, std::vector<String>{LoomerAttribute_Bookmarks_Bookmark_Position});
  EXPECT_EQ(folder.parentKey, LoomerRelationship_Bookmarks_Folder_Parent);
  EXPECT_EQ(folder.tabGroupKey, "is tab group");
  EXPECT_EQ(folder.specialPosition, -2);
  const loomer::EntitySchema& bookmark = schema.of(Entity::bookmark);
  EXPECT_EQ(bookmark.name, LoomerEntity_Bookmarks_Bookmark);
  EXPECT_EQ(bookmark.nameKey, LoomerAttribute_Bookmarks_Bookmark_Name);
  EXPECT_EQ(bookmark.urlKey, LoomerAttribute_Bookmarks_Bookmark_Url);
  EXPECT_EQ(bookmark.positionKey, LoomerAttribute_Bookmarks_Bookmark_Position);
  EXPECT_EQ(bookmark.parentKey, LoomerRelationship_Bookmarks_Bookmark_Parent);
  EXPECT_EQ(schema.named("x"), nullptr);
}

TEST_F(SchemaTest, TextsOfRecordsAreWellFormedBothWays) {
  const loomer::EntitySchema schema = real().of(Entity::bookmark);
  const loomer::Content content{"cut \xED\xA0\xBD", "http://\xED\xB8\x80/\xFF", false, false};
  const Dictionary delivered = recordDictionary(schema, content, 0, {});
  EXPECT_EQ(delivered.string(schema.nameKey.view()), "cut \uFFFD");
  EXPECT_EQ(*delivered.find(schema.urlKey), Value(Url{"http://\uFFFD/\uFFFD"}));
  const loomer::ClientRecord taken = clientRecord(
      schema, "1", Dictionary{{schema.nameKey, content.name}, {schema.urlKey, Url{content.url}}});
  EXPECT_EQ(taken.content.name, "cut \uFFFD");
  EXPECT_EQ(taken.content.url, "http://\uFFFD/\uFFFD");
}

TEST_F(SchemaTest, MissingSchemaFailsTheSessionWithItsPath) {
  platform.realFiles.remove(schemaPath);
  const auto client = makeClient("a");
  const std::string error = client->sync();
  EXPECT_THAT(error, HasSubstr(schemaPath));
  EXPECT_THAT(error, HasSubstr("No such file"));
}

TEST_F(SchemaTest, MalformedSchemaFailsTheSessionWithPathAndCause) {
  const std::string good = contents(resource("Corvane.syncschema"));
  struct Row {
    const char* phrase;
    std::string from, to;
    const char* cause;
  };
  const Row rows[] = {
      {"cut off", "</plist>", "", "XML"},
      {"another data class", "com.keldra.Bookmarks<", "com.keldra.Contacts<", "bookmarks data class"},
      {"an unknown kind", "<string>folder</string>", "<string>drawer</string>", "unknown kind \"drawer\""},
      {"an unknown meaning", "<string>tab group</string>", "<string>colour</string>",
       "unknown meaning \"colour\""},
      {"a wrong type", "<string>URL</string>", "<string>string</string>", "must be of type URL"},
      {"no name", "<string>name</string>\n\t\t\t\t</dict>", "<string>url</string>\n\t\t\t\t</dict>", "type"},
      {"an ordering attribute that is no position",
       "<key>OrderingAttribute</key>\n\t\t\t<string>folder position<",
       "<key>OrderingAttribute</key>\n\t\t\t<string>folder name<", "is not its position"},
      {"an identity attribute that is not declared", "<array>\n\t\t\t\t<string>url</string>",
       "<array>\n\t\t\t\t<string>address</string>",
       "the identity attributes of the entity com.keldra.bookmarks.Bookmark are \"address\", \"name\", "
       "\"parent\", "
       "but records are told apart by \"name\", \"parent\", \"url\""},
      {"an identity attribute more", "<array>\n\t\t\t\t<string>folder name</string>",
       "<array>\n\t\t\t\t<string>is tab group</string>\n\t\t\t\t<string>folder name</string>",
       "are \"folder name\", \"is tab group\", \"parent\", but records are told apart by \"folder name\", "
       "\"parent\""},
      {"an identity attribute less", "<array>\n\t\t\t\t<string>folder name</string>", "<array>",
       "are \"parent\", but records are told apart by"},
      {"no identity attributes", "IdentityAttributes", "Identity",
       "has no identity attributes, but records are told apart by"},
      {"another special position", "<integer>-2</integer>", "<integer>-3</integer>",
       "the special position of the entity com.keldra.bookmarks.Folder is not -2"},
      {"no special position", "SpecialPosition", "Special", "is not -2"},
      {"no parent", "ParentRelationship", "Parents", "has no \"ParentRelationship\""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.phrase);
    std::string bad = good;
    const std::size_t at = bad.find(row.from);
    ASSERT_NE(at, std::string::npos);
    bad.replace(at, row.from.size(), row.to);
    const std::string error = errorWith(bad);
    EXPECT_THAT(error, HasSubstr(schemaPath));
    EXPECT_THAT(error, HasSubstr(row.cause));
  }
}

TEST_F(SchemaTest, WrongTypesInRecordsCountAsAbsent) {
  const loomer::RecordSchema schema = real();
  const auto bookmark = loomer::clientRecord(
      schema.of(Entity::bookmark), "id",
      Dictionary{{"name", 5}, {"url", Array{}}, {"position", "x"}, {"parent", "not an array"}});
  EXPECT_FALSE(bookmark.content.name);
  EXPECT_FALSE(bookmark.content.url);
  EXPECT_FALSE(bookmark.parentLocalId);
  EXPECT_EQ(bookmark.position, 0);
}

TEST_F(SchemaTest, UrlsAreUrlValuesOrStrings) {
  const loomer::RecordSchema schema = real();
  EXPECT_EQ(loomer::clientRecord(schema.of(Entity::bookmark), "id", Dictionary{{"url", Url{"http://a/"}}})
                .content.url,
            "http://a/");
  EXPECT_EQ(
      loomer::clientRecord(schema.of(Entity::bookmark), "id", Dictionary{{"url", "http://b/"}}).content.url,
      "http://b/");
}

TEST_F(SchemaTest, SpecialFoldersAreKnownByTheirPositionDirectlyInTheRoot) {
  const loomer::RecordSchema schema = real();
  const auto special = [&](Dictionary record) {
    return loomer::clientRecord(schema.of(Entity::folder), "id", record).content.special;
  };
  EXPECT_TRUE(special({{"folder position", -2}}));
  EXPECT_TRUE(special({{"folder position", -2}, {"parent", Array{"Root"}}}));
  EXPECT_FALSE(special({{"folder position", -2}, {"parent", Array{"other"}}}));
  EXPECT_FALSE(special({{"folder position", 2}}));
}

TEST_F(SchemaTest, PathsOfFileUrls) {
  EXPECT_EQ(loomer::pathOfFileUrl(Url{"file:///a%20b/c"}), "/a b/c");
  EXPECT_EQ(loomer::pathOfFileUrl(Url{"file://localhost/a"}), "/a");
  EXPECT_EQ(loomer::pathOfFileUrl(Url{"file:///100%"}), "/100%");
  EXPECT_EQ(loomer::pathOfFileUrl(Url{"http://a/"}), std::nullopt);
  EXPECT_EQ(loomer::pathOfFileUrl(Url{"file://host"}), std::nullopt);
}

}  // namespace
}  // namespace corvane
