// The real tools and an account at a place, a directory: two computers and nothing else.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/front/Installation.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

class PlaceComputer {
 public:
  /// The exit status of loomerctl; what it prints is in `printed` then.
  int ctl(const std::string& arguments, const std::string& input = "") {
    const std::string in = _installation.home() + "/in", out = _installation.home() + "/out";
    std::ofstream(in, std::ios::binary) << input;
    const std::string command = "HOME='" + _installation.home() + "' " CORVANE_LOOMERCTL " " + arguments +
                                " <'" + in + "' >'" + out + "' 2>'" + out + ".err'";
    const int status = std::system(command.c_str());
    printed = contentsOf(out);
    errors = contentsOf(out + ".err");
    return WEXITSTATUS(status);
  }
  std::optional<int> run(const char* command) { return statusOf(_installation, {command}); }
  std::optional<int> sync() {
    return statusOf(_installation, {"--sync", "com.keldra.Corvane", "--entitynames", "anything"});
  }

  void write(const std::vector<std::string>& titles) {
    Array children;
    for (const std::string& each : titles) {
      children.append(Dictionary{{"WebBookmarkType", "WebBookmarkTypeLeaf"},
                                 {"WebBookmarkUUID", each + "-uid"},
                                 {"URLString", "http://" + each + ".example/"},
                                 {"URIDictionary", Dictionary{{"title", each}}}});
    }
    fs::create_directories(fs::path(_installation.bookmarks()).parent_path());
    std::ofstream(_installation.bookmarks(), std::ios::binary) << writeBinaryPropertyList(Dictionary{
        {"WebBookmarkFileVersion", 1}, {"WebBookmarkType", "WebBookmarkTypeList"}, {"Children", children}});
  }
  std::vector<std::string> titles() const {
    const Value tree = readPropertyList(contentsOf(_installation.bookmarks()));
    std::vector<std::string> titles;
    const Array* const children = tree.as<Dictionary>()->array("Children");
    if (!children) return titles;
    for (const Value& each : *children)
      titles.push_back(each.as<Dictionary>()->dictionary("URIDictionary")->string("title").toString());
    return titles;
  }
  std::vector<std::string> log() const { return _installation.systemLog(); }
  std::string accountFile() const { return pelto::accountPathForHome(_installation.home()); }

  std::string printed, errors;

 private:
  Installation _installation;
};

class PlaceToolTest : public ::testing::Test {
 protected:
  // The second computer joins the first one's account, and both have synced.
  void meet() {
    ASSERT_EQ(first.ctl("account set '" + place + "'"), 0) << first.errors;
    first.write({"ant"});
    ASSERT_EQ(first.run("--register"), 0);
    ASSERT_EQ(first.sync(), 0);
    ASSERT_EQ(first.ctl("account invite"), 0);
    ASSERT_EQ(second.ctl("account join", first.printed), 0) << second.errors;
    second.write({"bee"});
    ASSERT_EQ(second.run("--register"), 0);
    ASSERT_EQ(second.sync(), 0);
    ASSERT_EQ(first.sync(), 0);
  }

  const TemporaryDirectory directory;
  const std::string place = directory.path();
  PlaceComputer first, second;
};

TEST_F(PlaceToolTest, TwoComputersMeet) {
  meet();
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee"));
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee"));
  EXPECT_THAT(first.log(), IsEmpty());
  EXPECT_THAT(second.log(), IsEmpty());
}

TEST_F(PlaceToolTest, ThePlaceLearnsNoTitleAndNoAddress) {
  meet();
  for (const auto& each : fs::recursive_directory_iterator(place)) {
    if (!each.is_regular_file()) continue;
    const std::string bytes = contentsOf(each.path());
    EXPECT_EQ(bytes.size() % 1024, 0u) << each.path();
    for (const char* word : {"ant", ".example", "bplist"})
      EXPECT_EQ(bytes.find(word), std::string::npos) << each.path();
  }
}

TEST_F(PlaceToolTest, SwitchingOffAsksNobody) {
  meet();
  fs::rename(place, place + "-elsewhere");
  EXPECT_EQ(first.run("--isregistered"), 0);
  EXPECT_EQ(first.run("--unregister"), 0);
  EXPECT_EQ(first.run("--isregistered"), 1);
  EXPECT_THAT(first.log(), IsEmpty());
  fs::rename(place + "-elsewhere", place);
  second.write({"ant", "bee", "cat"});
  EXPECT_EQ(second.sync(), 0);
  EXPECT_EQ(first.sync(), 0);
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee")) << "switched off";
}

// The place keeps, of each folder, what it had before.
void copyInto(const fs::path& to, const fs::path& from) {
  fs::remove_all(to);
  fs::copy(from, to, fs::copy_options::recursive);
}

TEST_F(PlaceToolTest, APlaceOlderThanTheInvitationIsNotBelieved) {
  const TemporaryDirectory kept;
  ASSERT_EQ(first.ctl("account set '" + place + "'"), 0);
  first.write({"ant"});
  ASSERT_EQ(first.run("--register"), 0);
  ASSERT_EQ(first.sync(), 0);
  copyInto(kept / "older", place);
  first.write({"ant", "bee"});
  ASSERT_EQ(first.sync(), 0);
  ASSERT_EQ(first.ctl("account invite"), 0);
  copyInto(place, kept / "older");
  ASSERT_EQ(second.ctl("account join", first.printed), 0);
  ASSERT_EQ(second.run("--register"), 0);
  ASSERT_EQ(second.sync(), 0);
  ASSERT_EQ(second.log().size(), 1u);
  EXPECT_THAT(second.log()[0], HasSubstr("in an older state than when this computer was invited"));
  ASSERT_EQ(first.sync(), 0);  // gives again what the place forgot
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(second.titles(), IsEmpty()) << "another history than that of the invitation";
  ASSERT_EQ(first.ctl("account invite"), 0);
  ASSERT_EQ(second.ctl("account remove"), 0);
  ASSERT_EQ(second.ctl("account join", first.printed), 0);
  ASSERT_EQ(second.run("--register"), 0);
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee"));
}

TEST_F(PlaceToolTest, RemovingTheAccountForgetsTheChainToo) {
  meet();
  const fs::path chain = fs::path(first.accountFile()).parent_path() / "Chain.plist";
  EXPECT_TRUE(fs::exists(chain));
  EXPECT_EQ(first.ctl("account remove"), 0);
  EXPECT_FALSE(fs::exists(chain));
}

}  // namespace
}  // namespace corvane
