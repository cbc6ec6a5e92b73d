#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <tuple>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {
namespace {

using Entries = std::vector<std::pair<std::string, std::int64_t>>;

Entries entriesOf(const Dictionary& dictionary) {
  Entries entries;
  for (const auto& [key, value] : dictionary) entries.emplace_back(key.toString(), *value.as<std::int64_t>());
  return entries;
}

auto entryOf(Entries& entries, const std::string& key) {
  return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
}

// A dictionary and the list that it must be like.
struct Tried {
  Dictionary dictionary;
  Entries entries;

  void set(const String& key, std::int64_t value) {
    dictionary.set(key, value);
    const auto at = entryOf(entries, key.toString());
    if (at == entries.end()) {
      entries.emplace_back(key.toString(), value);
    } else {
      at->second = value;
    }
  }

  void remove(const String& key) {
    const auto at = entryOf(entries, key.toString());
    RC_ASSERT(dictionary.remove(key) == (at != entries.end()));
    if (at != entries.end()) entries.erase(at);
  }

  void check() const {
    RC_ASSERT(dictionary.size() == entries.size());
    RC_ASSERT(entriesOf(dictionary) == entries);
    for (const auto& [key, value] : entries) {
      RC_ASSERT(*dictionary.find(key.c_str()) == Value(value));
      RC_ASSERT(*dictionary.find(interned(key)) == Value(value));
    }
    RC_ASSERT(!dictionary.find("no such key"));
  }
};

// Three dictionaries are changed at random and copied over one another.
RC_GTEST_PROP(Dictionary, BehavesAsAPlainListWhateverBecomesOfItsCopies, ()) {
  const int keys = *rc::gen::element(3, 7, 9, 12, 40);
  const auto steps = *rc::gen::container<std::vector<std::tuple<int, int, int, int>>>(
      200, rc::gen::tuple(rc::gen::inRange(0, 3), rc::gen::inRange(0, 3), rc::gen::inRange(0, keys),
                          rc::gen::inRange(-3, 6)));
  Tried tried[3];
  for (const auto& [one, other, number, value] : steps) {
    const std::string key = "key" + std::to_string(number);
    if (value == 0) {
      tried[one] = tried[other];
    } else if (value < 0) {
      tried[one].remove(key);
    } else {
      tried[one].set(value % 2 == 0 ? interned(key) : String(key), value);
    }
  }
  for (const Tried& each : tried) each.check();
}

TEST(Dictionary, ThoseWithTheSameKeysShareOneList) {
  const KeyList* const list = KeyList::none().with("first")->with(std::string("second"));
  ASSERT_TRUE(list);
  EXPECT_EQ(KeyList::none().with(interned("first"))->with("second"), list);
  EXPECT_NE(KeyList::none().with("second")->with("first"), list);
  EXPECT_EQ(list->without(1), KeyList::none().with("first"));
  EXPECT_EQ(list->find(String("second")), 1U);
  EXPECT_EQ(list->find(String("third")), KeyList::kNowhere);
}

// Whoever wants to fill memory gives each dictionary other keys.
TEST(KeyListLimit, ThereAreOnlySoManyListsAndDictionariesBeyondThem) {
  std::vector<Dictionary> dictionaries;
  for (std::int64_t i = 0; i < 10'000; ++i) {
    const std::string own = "own" + std::to_string(i);
    dictionaries.push_back({{own, i}, {"common", 2 * i}});
    dictionaries.back().remove("common");
  }
  EXPECT_EQ(KeyList::none().with("one more"), nullptr);
  for (std::int64_t i = 0; i < 10'000; ++i) {
    const Entries entries{{"own" + std::to_string(i), i}};
    EXPECT_EQ(entriesOf(dictionaries[static_cast<std::size_t>(i)]), entries);
  }
}

}  // namespace
}  // namespace corvane
