#include <gmock/gmock.h>

#include <random>
#include <stdexcept>

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

class ConvergenceTest : public EngineTest {
 protected:
  void SetUp() override {
    a = makeClient("a");
    b = makeClient("b");
  }
  void makeTree(ScriptedClient& client) {
    client.addSpecial("Bar");
    const std::string folder = client.addFolder("", "F");
    client.addBookmark(folder, "A", "http://a/");
    client.addBookmark(folder, "B", "http://b/");
    client.addBookmark(folder, "C", "http://c/");
    client.addBookmark("", "D", "http://d/");
  }
  void seed() {
    makeTree(*a);
    settle({a.get(), b.get()});
    ASSERT_EQ(a->text(), "Bar!() F(A@http://a/ B@http://b/ C@http://c/) D@http://d/");
    ASSERT_EQ(b->text(), a->text());
  }
  // Two rounds bring both together; a third changes nothing.
  void expectSettled(const std::string& text) {
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(a->sync(), "");
      ASSERT_EQ(b->sync(), "");
    }
    EXPECT_EQ(a->text(), text);
    EXPECT_EQ(b->text(), text);
    const std::int64_t revision = number("SELECT revision FROM truth");
    for (ScriptedClient* each : {a.get(), b.get()}) {
      each->mode = LoomerSyncModeSlow;
      ASSERT_EQ(each->sync(), "");
      EXPECT_TRUE(each->delivered.empty());
      each->mode = 0;
    }
    EXPECT_EQ(number("SELECT revision FROM truth"), revision);
    EXPECT_EQ(loomer::checkStore(store()), std::vector<std::string>());
  }
  std::unique_ptr<ScriptedClient> a, b;
};

TEST_F(ConvergenceTest, TitleEditedHereAndAddressEditedThereBothSurvive) {
  seed();
  a->rename(a->find("A"), "Alpha");
  b->readdress(b->find("A"), "http://alpha/");
  expectSettled("Bar!() F(Alpha@http://alpha/ B@http://b/ C@http://c/) D@http://d/");
}

TEST_F(ConvergenceTest, AdditionsMovesAndDeletionsOfBothArriveAsTheyWere) {
  seed();
  a->addBookmark(a->find("Bar"), "new", "http://n/");
  a->remove(a->find("B"));
  b->move(b->find("D"), b->find("F"), 0);
  b->addFolder("", "G");
  expectSettled("Bar!(new@http://n/) F(D@http://d/ A@http://a/ C@http://c/) G()");
}

TEST_F(ConvergenceTest, OneSidedReorderArrivesExactly) {
  seed();
  a->move(a->find("C"), a->find("F"), 0);
  expectSettled("Bar!() F(C@http://c/ A@http://a/ B@http://b/) D@http://d/");
}

TEST_F(ConvergenceTest, FolderDeletedHereLivesOnWithWhatWasAddedThere) {
  seed();
  a->remove(a->find("F"));
  b->addBookmark(b->find("F"), "kept", "http://k/");
  expectSettled("Bar!() F(kept@http://k/) D@http://d/");
}

TEST_F(ConvergenceTest, CrossingMovesCloseNoCycle) {
  const std::string f = a->addFolder("", "F"), g = a->addFolder("", "G");
  settle({a.get(), b.get()});
  a->move(f, g);
  b->move(b->find("G"), b->find("F"));
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  settle({a.get(), b.get()});
  EXPECT_EQ(a->text(), b->text());
  EXPECT_EQ(a->nodes.size(), 2u);
}

TEST_F(ConvergenceTest, EqualFirstTreesWithDifferentIdsMergeWithoutDuplicates) {
  makeTree(*a);
  makeTree(*b);
  a->addBookmark("", "twin", "http://t/");
  a->addBookmark("", "twin", "http://t/");
  b->addBookmark("", "twin", "http://t/");
  b->addBookmark("", "twin", "http://t/");
  expectSettled("Bar!() F(A@http://a/ B@http://b/ C@http://c/) D@http://d/ twin@http://t/ twin@http://t/");
}

TEST_F(ConvergenceTest, FirstSessionInterruptedAfterTheClientSavedHealsWithoutDuplicates) {
  makeTree(*a);
  ASSERT_EQ(a->sync(), "");
  // The client saves, and the session dies before the commit: the store knows nothing of it.
  std::map<std::string, ScriptedClient::Node> saved;
  std::map<std::string, std::vector<std::string>> savedChildren;
  b->onCall = [&](const std::string& call) {
    if (call != "will finish") return;
    saved = b->nodes;
    savedChildren = b->children;
    throw std::runtime_error("killed");
  };
  EXPECT_THROW(b->sync(), std::runtime_error);
  b->onCall = nullptr;
  b->nodes = saved;
  b->children = savedChildren;
  expectSettled(a->text());
}

TEST_F(ConvergenceTest, LargeOrderOfSiblingsIsTheSameEverywhere) {
  for (int i = 0; i < 200; ++i) a->addBookmark("", "N" + std::to_string(i), "http://n/" + std::to_string(i));
  settle({a.get(), b.get()});
  for (int i = 0; i < 50; ++i) a->move(a->find("N" + std::to_string(i * 3)), "", i);
  for (int i = 0; i < 20; ++i) b->addBookmark("", "M" + std::to_string(i), "http://m/", i * 7);
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(a->sync(), "");
  expectSettled(a->text());
  EXPECT_EQ(a->nodes.size(), 220u);
}

// Random edits in random turns, the seed printed. Two clients edit; after each session the store is checked,
// and at the end both hold one tree.
class RandomHistory : public ConvergenceTest, public testing::WithParamInterface<unsigned> {
 protected:
  std::string pick(ScriptedClient& client, bool folder, bool orRoot) {
    std::vector<std::string> ids;
    if (orRoot) ids.push_back("");
    for (const auto& [id, node] : client.nodes) {
      if (node.folder == folder && !node.isSpecial()) ids.push_back(id);
    }
    return ids.empty() ? "" : ids[random() % ids.size()];
  }
  void edit(ScriptedClient& client) {
    const std::string name = "n" + std::to_string(++_named);
    const std::string bookmark = pick(client, false, false);
    switch (random() % 6) {
      case 0:
        client.addFolder(pick(client, true, true), name);
        break;
      case 1:
        client.addBookmark(pick(client, true, true), name, "http://" + name + "/");
        break;
      case 2:
        if (!bookmark.empty()) client.rename(bookmark, name);
        break;
      case 3:
        if (!bookmark.empty()) client.readdress(bookmark, "http://" + name + "/");
        break;
      case 4:
        if (!bookmark.empty()) client.move(bookmark, pick(client, true, true), 0);
        break;
      default:
        if (!bookmark.empty() && random() % 3 == 0) client.remove(bookmark);
    }
  }
  unsigned random() { return static_cast<unsigned>(_generator()); }

 private:
  std::mt19937 _generator{GetParam()};
  int _named = 0;
};

TEST_P(RandomHistory, BothClientsEndWithOneTree) {
  SCOPED_TRACE("seed " + std::to_string(GetParam()));
  makeTree(*a);
  for (int turn = 0; turn < 25; ++turn) {
    ScriptedClient& client = random() % 2 ? *a : *b;
    for (unsigned edits = random() % 4; edits > 0; --edits) edit(client);
    ASSERT_EQ(client.sync(), "");
    ASSERT_EQ(loomer::checkStore(store()), std::vector<std::string>());
  }
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  ASSERT_EQ(a->sync(), "");
  expectSettled(b->text());
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomHistory, testing::Range(1u, 21u));

}  // namespace
}  // namespace corvane
