#include "tests/loomer/merge/OrderProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "tests/loomer/merge/History.h"

namespace corvane::loomer::test {
namespace {

using Letters = std::string;

bool has(const Letters& list, char letter) { return list.find(letter) != Letters::npos; }

Letters only(const Letters& list, const Letters& wanted) {
  Letters result;
  std::copy_if(list.begin(), list.end(), std::back_inserter(result), [&](char c) { return has(wanted, c); });
  return result;
}

bool precedes(const Letters& list, char a, char b) { return list.find(a) < list.find(b); }

RecordId idOf(char letter) { return letter; }
String localIdOf(char letter) { return String("L-" + std::string(1, letter)); }
Content contentOf(char letter) {
  const std::string text(1, letter);
  return {.name = String(text), .url = String("http://" + text)};
}

MergeInput inputOf(const SiblingOrders& orders) {
  MergeInput input;
  for (std::size_t i = 0; i < orders.truth.size(); ++i) {
    const char letter = orders.truth[i];
    input.truth.push_back({.id = idOf(letter),
                           .place = static_cast<std::int64_t>(i + 1) << 20,
                           .content = contentOf(letter),
                           .revision = 1});
  }
  for (std::size_t i = 0; i < orders.base.size(); ++i) {
    const char letter = orders.base[i];
    BaseRecord record;
    record.localId = localIdOf(letter);
    record.record = idOf(letter);
    record.position = static_cast<std::int32_t>(i);
    record.content = contentOf(letter);
    input.base.push_back(record);
    if (has(orders.truth, letter)) continue;
    input.truth.push_back({.id = idOf(letter), .deleted = true, .content = contentOf(letter), .revision = 2});
  }
  input.client.emplace();
  for (std::size_t i = 0; i < orders.client.size(); ++i) {
    const char letter = orders.client[i];
    input.client->push_back(
        {localIdOf(letter), String(), Entity::bookmark, static_cast<std::int32_t>(i), contentOf(letter)});
  }
  input.refresh = orders.refresh;
  input.nextRecord = 1000;
  input.revision = 10;
  return input;
}

std::vector<TruthRecord> truthAfter(const MergeInput& input, const MergeResult& result) {
  std::vector<TruthRecord> records = input.truth;
  for (const TruthChange& change : result.truthChanges) {
    std::erase_if(records, [&](const TruthRecord& record) { return record.id == change.after.id; });
    records.push_back(change.after);
  }
  std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) { return a.place < b.place; });
  return records;
}

Letters lettersOf(const std::vector<TruthRecord>& records) {
  Letters result;
  for (const TruthRecord& record : records) {
    if (!record.deleted) result += record.content.name.toString();
  }
  return result;
}

// One merge of siblings, held to the rules.
class OrderCase {
 public:
  explicit OrderCase(const SiblingOrders& orders)
      : _orders(orders),
        _input(inputOf(orders)),
        _result(merge(_input)),
        _merged(lettersOf(truthAfter(_input, _result))),
        _truth(only(orders.truth, _merged)),
        _client(only(orders.client, _merged)),
        _shared(only(_truth, _client)),
        _base(only(orders.base, _shared)) {}

  const Letters& merged() const { return _merged; }

  void requireRules() const {
    requireSound(_input, _result);
    requireAgreedOrder();
    requireOneSidedReorders();
    requireInsertions(_truth, _client, "the truth");
    requireInsertions(_client, _truth, "the client");
    requireTrueLosses();
    requireCompleteLosses(_truth, "the truth");
    requireCompleteLosses(_client, "the client");
    requireRest();
  }

 private:
  void require(bool holds, const std::string& rule) const {
    if (holds) return;
    throw std::runtime_error(rule + ": base " + _orders.base + ", truth " + _orders.truth + ", client " +
                             _orders.client + (_orders.refresh ? ", refresh" : "") + " gives " + _merged);
  }

  void requireAgreedOrder() const {
    for (const char a : _shared) {
      for (const char b : _shared) {
        if (!precedes(_truth, a, b) || !precedes(_client, a, b)) continue;
        require(precedes(_merged, a, b), std::string("both sides have ") + a + " before " + b);
      }
    }
  }

  void requireOneSidedReorders() const {
    if (_base.size() != _shared.size()) return;
    const Letters merged = only(_merged, _shared);
    if (_shared == _base) require(merged == only(_client, _shared), "the client alone reordered");
    if (only(_client, _shared) == _base) require(merged == _shared, "the truth alone reordered");
  }

  void requireInsertions(const Letters& side, const Letters& other, const std::string& who) const {
    for (std::size_t at = 0; at < side.size(); ++at) {
      const char letter = side[at];
      if (has(other, letter)) continue;
      const auto isShared = [&](char c) { return has(_shared, c); };
      const auto before = std::find_if(side.rend() - static_cast<std::ptrdiff_t>(at), side.rend(), isShared);
      const auto after = std::find_if(side.begin() + static_cast<std::ptrdiff_t>(at), side.end(), isShared);
      const std::string what = who + " inserted " + letter;
      if (before == side.rend()) {
        for (const char c : _shared) require(precedes(_merged, letter, c), what + " first");
      } else if (after == side.end()) {
        for (const char c : _shared) require(precedes(_merged, c, letter), what + " last");
      } else if (precedes(other, *before, *after)) {
        require(precedes(_merged, *before, letter) && precedes(_merged, letter, *after),
                what + " between " + *before + " and " + *after);
      }
      if (at + 1 < side.size() && !has(other, side[at + 1])) {
        require(_merged.find(side[at + 1]) == _merged.find(letter) + 1,
                what + " right before " + side[at + 1]);
      }
    }
  }

  void requireTrueLosses() const {
    for (const Loss& loss : _result.losses) {
      if (loss.attribute != "order") continue;
      const auto letter = static_cast<char>(loss.record);
      require(loss.clientValue != loss.truthValue, "a loss names two equal values");
      require(isTrue(letter, loss.clientValue, _client) && isTrue(letter, loss.truthValue, _truth) &&
                  isTrue(letter, loss.clientWon ? loss.clientValue : loss.truthValue, _merged),
              "false loss of " + std::string(1, letter) + ": client " + loss.clientValue + ", truth " +
                  loss.truthValue);
    }
  }

  // Whether "after X" or "before X" holds for the letter in the list.
  static bool isTrue(char letter, const std::string& value, const Letters& list) {
    const char other = value.back();
    return value.starts_with("after ") ? precedes(list, other, letter) : precedes(list, letter, other);
  }

  void requireCompleteLosses(const Letters& side, const std::string& who) const {
    std::set<char> named;
    for (const Loss& loss : _result.losses) named.insert(static_cast<char>(loss.record));
    for (const char a : _base) {
      for (const char b : _base) {
        if (!precedes(_base, a, b) || !precedes(side, b, a) || !precedes(_merged, a, b)) continue;
        require(named.contains(a) || named.contains(b),
                who + " put " + b + " before " + a + ", which is lost without a word");
      }
    }
  }

  void requireRest() const {
    MergeInput again = _input;
    again.truth = truthAfter(_input, _result);
    again.base = _result.base;
    again.client.emplace();
    for (BaseRecord& record : again.base) {
      if (!record.localId) record.localId = String("N-" + std::to_string(record.record));
      again.client->push_back({record.localId, String(), record.entity, record.position, record.content});
    }
    again.refresh = false;
    again.revision = 11;
    const MergeResult result = merge(again);
    require(result.truthChanges.empty() && result.clientChanges.empty() && result.losses.empty(),
            "merging again changes something");
  }

  const SiblingOrders& _orders;
  MergeInput _input;
  MergeResult _result;
  // The lists of what lives after the merge; of the base what all three have.
  Letters _merged, _truth, _client, _shared, _base;
};

// Where to take a letter out and where to put one in, taken modulo the list's length.
struct ListEdit {
  unsigned kind = 0;
  unsigned from = 0;
  unsigned to = 0;
};

Letters edited(Letters list, const std::vector<ListEdit>& edits, char inserted) {
  for (const ListEdit& edit : edits) {
    const auto place = [&](unsigned at) {
      return list.begin() + static_cast<std::ptrdiff_t>(at % (list.size() + 1));
    };
    if (edit.kind < 2 || list.empty()) {
      list.insert(place(edit.to), inserted++);
      continue;
    }
    const std::size_t from = edit.from % list.size();
    const char letter = list[from];
    list.erase(from, 1);
    if (edit.kind > 2) list.insert(place(edit.to), letter);
  }
  return list;
}

rc::Gen<std::vector<ListEdit>> someEdits() {
  return rc::gen::resize(6, rc::gen::container<std::vector<ListEdit>>(rc::gen::build<ListEdit>(
                                rc::gen::set(&ListEdit::kind, rc::gen::inRange(0U, 10U)),
                                rc::gen::set(&ListEdit::from, rc::gen::inRange(0U, 16U)),
                                rc::gen::set(&ListEdit::to, rc::gen::inRange(0U, 16U)))));
}

}  // namespace

std::string mergedOrder(const SiblingOrders& orders) { return OrderCase(orders).merged(); }

void requireOrderRules(const SiblingOrders& orders) { OrderCase(orders).requireRules(); }

void ordersKeepTheirRules() {
  SiblingOrders orders;
  orders.base = Letters("abcdefghijkl").substr(0, *rc::gen::inRange<std::size_t>(0, 13));
  orders.truth = edited(orders.base, *someEdits(), 'p');
  orders.client = edited(orders.base, *someEdits(), 'u');
  orders.refresh = *rc::gen::inRange(0, 4) == 0;
  requireOrderRules(orders);
}

}  // namespace corvane::loomer::test
