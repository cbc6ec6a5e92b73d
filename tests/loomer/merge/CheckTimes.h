#pragma once

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <iostream>
#include <sstream>

namespace corvane::loomer::test {

/// Checks `property` on `count` random inputs and prints how many were tried.
template <typename Property>
void checkTimes(int count, int size, const Property& property) {
  rc::detail::TestParams params = rc::detail::configuration().testParams;
  params.maxSuccess = count;
  params.maxSize = size;
  rc::detail::TestMetadata metadata;
  metadata.id = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  metadata.description = metadata.id;
  const rc::detail::TestResult result = rc::detail::checkTestable(property, metadata, params);
  std::ostringstream text;
  rc::detail::printResultMessage(result, text);
  std::cout << metadata.id << ": seed " << params.seed << ", " << text.str() << std::endl;
  EXPECT_TRUE(result.is<rc::detail::SuccessResult>()) << text.str();
}

}  // namespace corvane::loomer::test
