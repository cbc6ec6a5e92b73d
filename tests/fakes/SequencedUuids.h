#pragma once

#include <deque>
#include <string>

#include "CorvaneSyncClient/platform/system/UuidSource.h"

namespace corvane {

/// Hands out the given strings first, then "UUID-1", "UUID-2", … , or the like in a UUID's form.
class SequencedUuids : public UuidSource {
 public:
  String newUuid() override {
    if (given.empty()) return numbered(std::to_string(++_numbered));
    String next = given.front();
    given.pop_front();
    return next;
  }

  std::deque<String> given;
  bool inForm = false;  ///< as an online service asks of identifiers

 private:
  String numbered(const std::string& number) const {
    if (!inForm) return "UUID-" + number;
    return "0E000000-0000-4000-8000-" + std::string(12 - number.size(), '0') + number;
  }

  int _numbered = 0;
};

}  // namespace corvane
