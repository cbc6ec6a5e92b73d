#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/corvane-hub/HubProcess.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane {

/// The account "ada", on which servers come and go.
class HubKill : public testing::Test {
 protected:
  std::string account() const { return directory / "data/accounts/ada"; }

  /// That what the account is said to hold is what it holds.
  void expectRightUsage() const {
    const std::uint64_t said = hubserver::UsageLedger(account()).bytes();
    std::filesystem::remove(account() + "/usage");
    EXPECT_EQ(hubserver::UsageLedger(account()).bytes(), said);
  }

  TemporaryDirectory directory;
  std::string token = accountCommand(directory.path(), {"add", "ada", "c0"});
};

}  // namespace corvane
