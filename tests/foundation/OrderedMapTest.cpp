#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/values/OrderedMap.h"

namespace corvane {
namespace {

using Model = std::vector<std::pair<std::string, int>>;

auto findIn(Model& model, const std::string& key) {
  return std::find_if(model.begin(), model.end(), [&](const auto& entry) { return entry.first == key; });
}

Model contentsOf(const OrderedMap<int>& map) {
  Model contents;
  for (const auto& entry : map) contents.emplace_back(entry.key.toString(), entry.value);
  return contents;
}

// Sets and removes keys at random in the map and in a plain list that is searched from the front.
RC_GTEST_PROP(OrderedMap, BehavesAsAPlainList, ()) {
  const int keys = *rc::gen::element(3, 8, 9, 12, 40, 200);
  const auto steps = *rc::gen::container<std::vector<std::pair<int, int>>>(
      500, rc::gen::pair(rc::gen::inRange(0, keys), rc::gen::inRange(-3, 6)));
  OrderedMap<int> map;
  Model model;
  for (const auto& [number, value] : steps) {
    const std::string key = "key" + std::to_string(number);
    const auto at = findIn(model, key);
    if (value < 0) {
      RC_ASSERT(map.remove(String(key)) == (at != model.end()));
      if (at != model.end()) model.erase(at);
    } else {
      RC_ASSERT(map.set(key, value) == value);
      if (at != model.end()) {
        at->second = value;
      } else {
        model.emplace_back(key, value);
      }
    }
    RC_ASSERT(map.size() == model.size());
  }
  RC_ASSERT(contentsOf(map) == model);
  for (int number = 0; number < keys; ++number) {
    const std::string key = "key" + std::to_string(number);
    const auto at = findIn(model, key);
    const int* found = map.find(std::string_view(key));
    RC_ASSERT((found != nullptr) == (at != model.end()));
    if (found) RC_ASSERT(*found == at->second);
    RC_ASSERT(map.contains(String(key)) == (found != nullptr));
  }
}

TEST(OrderedMap, ReplacingKeepsThePlaceAndAddingAgainMovesToTheEnd) {
  OrderedMap<int> map;
  for (const char* key : {"a", "b", "c"}) map.set(key, 1);
  map.set("b", 2);
  EXPECT_EQ(contentsOf(map), (Model{{"a", 1}, {"b", 2}, {"c", 1}}));
  EXPECT_TRUE(map.remove("a"));
  map.set("a", 3);
  EXPECT_EQ(contentsOf(map), (Model{{"b", 2}, {"c", 1}, {"a", 3}}));
  EXPECT_FALSE(map.remove("z"));
}

TEST(OrderedMap, AnAbsentKeyIsNeverFound) {
  for (const int count : {1, 20}) {
    OrderedMap<int> map;
    for (int i = 0; i < count; ++i) map.set("k" + std::to_string(i), i);
    EXPECT_TRUE(map.remove("k0"));
    EXPECT_EQ(map.find(String()), nullptr);
    EXPECT_FALSE(map.remove(String()));
    EXPECT_THROW(map.set(String(), 1), PlatformException) << "nor can it be set";
    EXPECT_EQ(map.size(), static_cast<std::size_t>(count - 1));
  }
}

TEST(OrderedMap, AReservedMapFindsItsKeys) {
  OrderedMap<int> map;
  map.reserve(1000);
  EXPECT_TRUE(map.empty());
  for (int i = 0; i < 1000; ++i) map.set("k" + std::to_string(i), i);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(*map.find(String("k" + std::to_string(i))), i);
  EXPECT_EQ(map.keys().size(), 1000U);
  map.clear();
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.find("k1"), nullptr);
}

// A queue of keys: the entries that were removed in front must not be walked again and again.
TEST(OrderedMap, RemovingAllKeysInOrderLeavesNothing) {
  OrderedMap<int> map;
  for (int i = 0; i < 100000; ++i) map.set("k" + std::to_string(i), i);
  for (const String& key : map.keys()) EXPECT_TRUE(map.remove(key));
  EXPECT_TRUE(map.empty());
  EXPECT_TRUE(map.begin() == map.end());
}

}  // namespace
}  // namespace corvane
