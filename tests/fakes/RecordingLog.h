#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

/// Keeps what is logged, messages and diagnostics apart, unescaped and in order.
class RecordingLog : public SystemLog {
 public:
  void write(Kind kind, std::string_view message) override {
    (kind == Kind::message ? messages : diagnostics).emplace_back(message);
  }

  /// Declares the next messages (not diagnostics) that the test calls for.
  void expectMessages(const std::vector<std::string>& texts) {
    expectedMessages.insert(expectedMessages.end(), texts.begin(), texts.end());
  }

  /// How the messages differ from the declared ones; empty when they are the same, in the same order.
  std::string difference() const;

  std::vector<std::string> messages;
  std::vector<std::string> diagnostics;
  std::vector<std::string> expectedMessages;
};

}  // namespace corvane
