#pragma once

#include <string>

namespace corvane::loomer::test {

/// The children of one folder on the three sides of a merge, one letter each: a record has the same letter on
/// all sides. What the base has and a side lacks was deleted there; what the base lacks was inserted.
struct SiblingOrders {
  std::string base;
  std::string truth;
  std::string client;
  bool refresh = false;
};

/// The merged order.
std::string mergedOrder(const SiblingOrders& orders);

/// Merges and raises std::runtime_error, with the orders, if one of the rules for the order of siblings does
/// not hold:
///  - two siblings that both sides order alike keep that order;
///  - a reorder on one side alone arrives exactly;
///  - what one side inserted between two siblings lies between them where the other side has these two in
///  that
///    order;
///  - what one side appended stays behind all its siblings, and what it put first before them;
///  - what was inserted together stays together;
///  - merging again changes nothing;
///  - the change log names a sibling of every pair that a side turned round and the merge did not, with what
///  the
///    two sides really say, and never two equal values.
void requireOrderRules(const SiblingOrders& orders);

/// `requireOrderRules` for random orders of up to twelve siblings, drawn from RapidCheck.
void ordersKeepTheirRules();

}  // namespace corvane::loomer::test
