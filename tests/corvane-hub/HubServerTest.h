#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/corvane-hub/HubClient.h"
#include "tests/corvane-hub/HubProcess.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane {

/// A server with the account "ada", whose first computer's token the tests have.
class HubServerTest : public testing::Test {
 protected:
  TemporaryDirectory directory;
  std::string token = accountCommand(directory.path(), {"add", "ada", "laptop"});
  HubProcess hub{directory.path()};
  HubClient client{hub.port(), token};
};

}  // namespace corvane
