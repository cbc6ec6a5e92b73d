#pragma once

#include <deque>
#include <string>

#include "CorvaneSyncClient/platform/system/UuidSource.h"

namespace corvane {

/// Hands out the given strings first, then "UUID-1", "UUID-2", … .
class SequencedUuids : public UuidSource {
 public:
  String newUuid() override {
    if (given.empty()) return String("UUID-" + std::to_string(++_numbered));
    String next = given.front();
    given.pop_front();
    return next;
  }

  std::deque<String> given;

 private:
  int _numbered = 0;
};

}  // namespace corvane
