// The commands on an account at a place, which is a directory here: the real program on it.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "tests/ctl/CtlFixture.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

namespace fs = std::filesystem;

class PlaceAccountTest : public CtlTest {
 protected:
  PlaceAccountTest() {
    fs::create_directory(place);
    useHome("first");
  }

  void useHome(const std::string& name) {
    home = platform.directory / name;
    fs::create_directory(home);
  }
  std::string accountFile() const { return pelto::accountPathForHome(home); }
  std::optional<pelto::Account> account() { return pelto::readAccount(accountFile()); }
  // Names of what lies in a folder of the place.
  std::vector<std::string> objects(const std::string& folder) {
    std::vector<std::string> names;
    if (!fs::exists(place + "/" + folder)) return names;
    for (const auto& each : fs::directory_iterator(place + "/" + folder))
      names.push_back(each.path().filename());
    return names;
  }
  static std::string folderOf(const pelto::Account& account) {
    const pelto::Membership& membership = account.membership;
    return pelto::Sealer(*membership.key, membership.account, membership.generation).folder();
  }
  // An invitation of the first computer's.
  std::string invitation(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments{"account", "invite"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return ctl(arguments).out;
  }

  const std::string place = platform.directory / "place";
};

TEST_F(PlaceAccountTest, SetMakesAKeyThatOnlyThisComputerHas) {
  const Run run = ctl({"account", "set", place});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr(place), HasSubstr("races of eight writers"),
                             HasSubstr("`corvanetool --register`"), HasSubstr("`loomerctl account invite`")));
  ASSERT_TRUE(account());
  EXPECT_EQ(account()->membership.generation, 1);
  EXPECT_EQ(account()->url, place);
  EXPECT_TRUE(account()->reached);
  struct stat status {};
  ASSERT_EQ(stat(accountFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  useHome("second");
  ctl({"account", "set", place});
  const auto first = account()->membership;
  useHome("first");
  EXPECT_FALSE(*account()->membership.key == *first.key);
  EXPECT_NE(account()->membership.account, first.account);
}

TEST_F(PlaceAccountTest, SetRefusesAPlaceThatCannotBeUsedAndKeepsNothing) {
  const Run run = ctl({"account", "set", place + "/missing"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(place + "/missing"));
  EXPECT_FALSE(account());
}

TEST_F(PlaceAccountTest, SetDoesNotLoseTheKeyOfAnEarlierAccount) {
  ctl({"account", "set", place});
  const auto before = account();
  fs::create_directory(place + "2");
  const Run run = ctl({"account", "set", place + "2"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("key would be lost"), HasSubstr("`loomerctl account remove`")));
  EXPECT_EQ(ctl({"account", "join"}, "CORVANE-").status, 1);
  EXPECT_EQ(ctl({"account", "set", place}).status, 0) << "the same one again";
  EXPECT_TRUE(*account()->membership.key == *before->membership.key);
  EXPECT_EQ(account()->computer, before->computer);
}

TEST_F(PlaceAccountTest, InvitationLetsAnotherComputerJoinInEitherForm) {
  ctl({"account", "set", place});
  const auto first = account();
  const std::string line = invitation(), words = invitation({"--words"});
  EXPECT_THAT(line, MatchesRegex("CORVANE(-[A-Z2-7]{16})+\n"));
  for (const std::string& text : {line, words}) {
    useHome(text == line ? "second" : "third");
    const Run run = ctl({"account", "join"}, text);
    EXPECT_EQ(run.status, 0) << run.err;
    ASSERT_TRUE(account());
    EXPECT_TRUE(*account()->membership.key == *first->membership.key);
    EXPECT_EQ(account()->membership.account, first->membership.account);
    EXPECT_EQ(account()->url, place);
    EXPECT_NE(account()->computer, first->computer);
    EXPECT_NE(account()->membership.keys->publicKey(), first->membership.keys->publicKey());
    EXPECT_THAT(run.out + run.err, Not(HasSubstr(text.substr(0, 20))));
  }
}

TEST_F(PlaceAccountTest, InvitationAsAQrCodeIsNotTheLine) {
  ctl({"account", "set", place});
  const std::string code = invitation({"--qr"});
  EXPECT_THAT(code, AllOf(HasSubstr("▀▄"), Not(HasSubstr("CORVANE"))));
}

TEST_F(PlaceAccountTest, AWrongInvitationNamesItsGroupAndChangesNothing) {
  ctl({"account", "set", place});
  std::string line = invitation();
  line[8 + 17 * 2 + 3] = line[8 + 17 * 2 + 3] == 'A' ? 'B' : 'A';
  useHome("second");
  const Run run = ctl({"account", "join"}, line);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("Group 3 of the invitation"), Not(HasSubstr(line.substr(8, 16)))));
  EXPECT_FALSE(account());
  EXPECT_EQ(ctl({"account", "join"}, "").status, 1);
}

TEST_F(PlaceAccountTest, JoiningWhatIsGoneIsRefusedAndLeavesNothing) {
  ctl({"account", "set", place});
  pelto::Account known = *account();
  known.membership.newest = {12, std::string(16, 'h')};
  pelto::writeAccount(accountFile(), known);
  const std::string line = invitation();
  ASSERT_EQ(ctl({"account", "passphrase"}, "one of our own\none of our own\n").status, 0);
  useHome("second");
  const Run joins[] = {ctl({"account", "join"}, line), ctl({"account", "join", place}, "one of our own\n")};
  for (const Run& each : joins) {
    EXPECT_EQ(each.status, 1);
    EXPECT_THAT(each.err, AllOf(HasSubstr("nothing of the account"), HasSubstr(place)));
    EXPECT_THAT(each.out, IsEmpty());
  }
  EXPECT_FALSE(fs::exists(accountFile()));
  EXPECT_FALSE(fs::exists(pelto::chainPathBeside(accountFile())));
}

TEST_F(PlaceAccountTest, PassphraseLetsAnotherComputerJoin) {
  ctl({"account", "set", place});
  const auto first = account();
  EXPECT_EQ(ctl({"account", "passphrase"}, "one of our own\nanother of ours\n").status, 1)
      << "not twice the same";
  EXPECT_THAT(objects("passphrase"), IsEmpty());
  EXPECT_EQ(ctl({"account", "passphrase"}, "short\nshort\n").status, 1);
  EXPECT_EQ(ctl({"account", "passphrase"}, "one of our own\none of our own\n").status, 0);
  const auto before = objects("passphrase");
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(ctl({"account", "passphrase"}, "another of ours\nanother of ours\n").status, 0);
  ASSERT_EQ(objects("passphrase").size(), 1u) << "the earlier one is gone";
  EXPECT_NE(objects("passphrase"), before);

  useHome("second");
  const Run wrong = ctl({"account", "join", place}, "one of our own\n");
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.err, AllOf(HasSubstr("opens no account"), HasSubstr(place), Not(HasSubstr("our own"))));
  EXPECT_FALSE(account());
  const Run run = ctl({"account", "join", place}, "another of ours\n");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out + run.err, Not(HasSubstr("another of ours")));
  EXPECT_TRUE(*account()->membership.key == *first->membership.key);
  EXPECT_EQ(account()->url, place);
}

TEST_F(PlaceAccountTest, ARemovedPassphraseLetsNobodyIn) {
  ctl({"account", "set", place});
  const Run none = ctl({"account", "passphrase", "--remove"});
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.err, HasSubstr("has no passphrase"));
  ASSERT_EQ(ctl({"account", "passphrase"}, "one of our own\none of our own\n").status, 0);
  writeFile(place + "/passphrase/0123-another-account", "its own");
  const Run run = ctl({"account", "passphrase", "--remove"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("`loomerctl account new-key`"));
  EXPECT_THAT(objects("passphrase"), ElementsAre("0123-another-account"));
  useHome("second");
  EXPECT_THAT(ctl({"account", "join", place}, "one of our own\n").err, HasSubstr("opens no account"));
}

TEST_F(PlaceAccountTest, ANewKeyLeavesInvitationAndPassphraseFromBeforeWithoutEffect) {
  ctl({"account", "set", place});
  const auto first = account();
  const std::string line = invitation();
  ASSERT_EQ(ctl({"account", "passphrase"}, "one of our own\none of our own\n").status, 0);
  fs::copy(place + "/passphrase", place + "-passphrase");
  const Run run = ctl({"account", "new-key"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr("has a new key"), HasSubstr("none.")));
  EXPECT_EQ(account()->membership.generation, 2);
  EXPECT_EQ(account()->membership.account, first->membership.account);
  EXPECT_FALSE(*account()->membership.key == *first->membership.key);
  EXPECT_THAT(objects("passphrase"), IsEmpty());
  const std::string next = invitation();

  useHome("second");
  fs::copy(place + "-passphrase", place + "/passphrase", fs::copy_options::recursive);
  const Run joins[] = {ctl({"account", "join"}, line), ctl({"account", "join", place}, "one of our own\n")};
  for (const Run& each : joins) {
    EXPECT_EQ(each.status, 1);
    EXPECT_THAT(each.err, AllOf(HasSubstr("has changed since"), HasSubstr(place)));
  }
  EXPECT_FALSE(fs::exists(accountFile()));
  EXPECT_FALSE(fs::exists(pelto::chainPathBeside(accountFile())));
  EXPECT_EQ(ctl({"account", "join"}, next).status, 0);
}

TEST_F(PlaceAccountTest, ShowAndTestAskThePlace) {
  ctl({"account", "set", place});
  EXPECT_THAT(ctl({"account", "show"}).out, AllOf(HasSubstr(place), HasSubstr("switched off")));
  EXPECT_EQ(ctl({"account", "test"}).status, 0);
  pelto::Account on = *account();
  on.membership.enabled = {"com.keldra.Bookmarks"};
  pelto::writeAccount(accountFile(), on);
  EXPECT_THAT(ctl({"account", "show"}).out, HasSubstr("switched on"));
  fs::rename(place, place + "-elsewhere");
  const Run run = ctl({"account", "test"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(place));
}

TEST_F(PlaceAccountTest, WithoutAnAccountThereIsNothingToInviteTo) {
  for (const char* command : {"invite", "passphrase", "computers", "new-key"}) {
    const Run run = ctl({"account", command});
    EXPECT_EQ(run.status, 1) << command;
    EXPECT_THAT(run.err, HasSubstr("No account is set.")) << command;
  }
}

TEST_F(PlaceAccountTest, RemoveForgetsTheKey) {
  ctl({"account", "set", place});
  EXPECT_EQ(ctl({"account", "remove"}).status, 0);
  EXPECT_FALSE(account());
  EXPECT_EQ(ctl({"account", "set", place}).status, 0);
}

}  // namespace
}  // namespace corvane
