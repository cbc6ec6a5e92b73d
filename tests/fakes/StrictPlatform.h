#pragma once

#include <gtest/gtest.h>

#include "tests/fakes/FakePlatform.h"

namespace corvane {

/// A FakePlatform that fails the running test when the system log did not receive exactly the declared
/// messages
/// (`log.expectMessages`).
class StrictPlatform : public FakePlatform {
 public:
  ~StrictPlatform() { EXPECT_EQ(log.difference(), ""); }
};

}  // namespace corvane
