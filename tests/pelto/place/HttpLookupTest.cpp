#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <unistd.h>

#include <atomic>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"

namespace {

std::atomic<int> lookups = 0;

}  // namespace

// The system's resolver in this program: it never answers for one name.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** list) {
  if (name && std::string_view(name) == "silent.test") {
    ++lookups;
    while (true) ::pause();
  }
  const auto system = reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return system(name, service, hints, list);
}

namespace corvane::pelto {
namespace {

std::string failureWithin(const HttpSettings& settings, Deadline deadline) {
  HttpRequest request;
  request.what = "read f/1";
  request.method = "GET";
  request.url = "https://silent.test/f/1";
  request.mostBytes = 1000;
  try {
    HttpClient(settings, deadline).perform(request);
    return "(none)";
  } catch (const PlaceException& exception) {
    return exception.reason();
  }
}

TEST(HttpLookupTest, ASilentResolverIsGivenUpWithTheConnectionAndWithTheDeadline) {
  HttpSettings settings;
  settings.host = "silent.test";
  settings.firstPause = 0.001;
  EXPECT_THAT(failureWithin(settings, after(0.3)), testing::StartsWith("Can't read f/1 at silent.test: "));
  settings.connect = 0.2;
  EXPECT_THAT(failureWithin(settings, after(3600)), testing::StartsWith("Can't read f/1 at silent.test: "));
  EXPECT_GT(lookups, 1);
}

}  // namespace
}  // namespace corvane::pelto
