#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/ObjectRequests.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceProbe.h"
#include "CorvaneSyncClient/platform/pelto/place/WebDavPlace.h"
#include "tests/pelto/place/ServerGrounds.h"

namespace corvane::pelto {
namespace {

// The obvious way to make a new object on a WebDAV server, and the reason why WebDavPlace has another one:
// Apache looks whether the file is there, and writes it afterwards.
class ConditionalPutPlace : public WebDavPlace {
 public:
  ConditionalPutPlace(const PlaceAddress& address, Deadline deadline)
      : WebDavPlace(address, {}, deadline), _origin(address.origin), _client(settings(), deadline) {
    put({{"probe/before", "-"}});
  }

  Made putNew(const std::string& name, std::string_view bytes) override {
    const HttpRequest request = putNewRequest(name, bytes, _origin + '/' + name);
    return madeBy(_client, request, _client.perform(request));
  }
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override {
    std::vector<GetRequest> plain = requests;
    for (GetRequest& request : plain) request.writing = Writing::alone;
    return WebDavPlace::get(plain);
  }

 private:
  static HttpSettings settings() {
    HttpSettings settings;
    settings.pauseBeforeEnd = kProbePause;
    return settings;
  }

  std::string _origin;
  HttpClient _client;
};

TEST(RacyServerTest, ARealServerWhereTwoWritersWinIsFoundOut) {
  const std::unique_ptr<WebDavGround> ground = makeOpenApacheGround();
  try {
    probePlace([&] { return std::make_unique<ConditionalPutPlace>(ground->address(), after(300)); });
    ADD_FAILURE() << "taken";
  } catch (const PlaceException& exception) {
    EXPECT_THAT(exception.reason(), testing::HasSubstr("two computers can make the same thing"));
    RecordProperty("refusal", exception.reason());
    std::cout << exception.reason() << '\n';
  }
}

}  // namespace
}  // namespace corvane::pelto
