#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "CorvaneSyncClient/platform/foundation/LoadedLibrary.h"

namespace corvane {
namespace {

using Root = double (*)(double);

std::string reasonWithout(std::initializer_list<const char*> libraries, const char* name) {
  try {
    static_cast<void>(loadedFunction(libraries, name));
  } catch (const MissingLibraryException& exception) {
    return exception.reason();
  }
  return "";
}

TEST(LoadedLibrary, TheFirstNameThatIsThereCounts) {
  const Root root = loadedFunction({"libcorvane-has-none.so.1", "libm.so.6", "libc.so.6"}, "sqrt");
  EXPECT_EQ(root(16), 4);
}

TEST(LoadedLibrary, AFunctionIsTheSameEachTime) {
  const Root first = loadedFunction({"libm.so.6"}, "sqrt");
  const Root second = loadedFunction({"libm.so.6"}, "sqrt");
  EXPECT_EQ(first, second);
}

TEST(LoadedLibrary, WhatIsMissingIsNamed) {
  EXPECT_NE(reasonWithout({"libcorvane-has-none.so.1"}, "sqrt").find("libcorvane-has-none.so.1"),
            std::string::npos);
  EXPECT_NE(reasonWithout({"libm.so.6"}, "corvaneHasNone").find("corvaneHasNone"), std::string::npos);
}

}  // namespace
}  // namespace corvane
