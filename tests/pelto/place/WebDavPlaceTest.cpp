#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/WebDavPlace.h"
#include "tests/pelto/place/ScriptedServer.h"

// What is sent to a WebDAV server, in the cases that no real one can be brought to.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class WebDavPlaceTest : public testing::Test {
 protected:
  static WebDavPlace placeAt(const ScriptedServer& server) {
    return {parsePlaceAddress("http://" + server.host() + "/dav"), {}, after(30)};
  }
  static bool is(const std::string& request, const char* method) { return request.starts_with(method); }

  // The methods of all requests, in their order.
  static std::vector<std::string> methods(const ScriptedServer& server) {
    std::vector<std::string> methods;
    for (const std::string& request : server.requests())
      methods.push_back(request.substr(0, request.find(' ')));
    return methods;
  }
};

TEST_F(WebDavPlaceTest, ANewObjectIsAFilledCollectionThatIsMovedToItsName) {
  const ScriptedServer server(httpAnswer("201 Created"));
  EXPECT_EQ(placeAt(server).putNew("f/1", "bytes"), Made::made);
  const std::vector<std::string> requests = server.requests();
  ASSERT_THAT(methods(server), ElementsAre("MKCOL", "PUT", "MOVE"));
  EXPECT_THAT(requests[0], StartsWith("MKCOL /dav/f/tmp."));
  const std::string temporary = requests[0].substr(6, requests[0].find(' ', 6) - 6);
  EXPECT_THAT(requests[1], AllOf(StartsWith("PUT " + temporary + "o "), HasSubstr("\r\n\r\nbytes")));
  EXPECT_THAT(requests[2], AllOf(StartsWith("MOVE " + temporary + " "), HasSubstr("\r\nOverwrite: F\r\n"),
                                 HasSubstr("\r\nDestination: http://" + server.host() + "/dav/f/1/\r\n")));
}

TEST_F(WebDavPlaceTest, AMoveThatEndedUnclearlyIsMadeClearWhereThatIsPossible) {
  for (const char* unclear :
       {"500 Error", "405 Not", "423 Locked", "409 Conflict", "404 Not", "207 Multi", ""}) {
    SCOPED_TRACE(unclear);
    const std::string answer = *unclear ? httpAnswer(unclear) : std::string();
    for (const bool isThere : {true, false}) {
      const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
        connection.send(is(request, "MOVE")   ? answer
                        : is(request, "HEAD") ? httpAnswer(isThere ? "200 OK" : "404 Not Found")
                                              : httpAnswer("201 Created"));
      });
      EXPECT_EQ(placeAt(server).putNew("f/1", "bytes"), isThere ? Made::present : Made::unknown);
      const std::vector<std::string> sent = methods(server);
      EXPECT_EQ(std::count(sent.begin(), sent.end(), "MOVE"), 1);
    }
  }
}

TEST_F(WebDavPlaceTest, TheFoldersAreMadeWhereTheyAreMissing) {
  std::vector<std::string> made;
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    const std::string path = request.substr(0, request.find(" HTTP"));
    const bool isParentThere = path == "MKCOL /dav/f/" || !made.empty();
    if (is(request, "MKCOL") && isParentThere) made.push_back(path);
    connection.send(httpAnswer(!is(request, "MKCOL") || isParentThere ? "201 Created" : "409 Conflict"));
  });
  WebDavPlace place = placeAt(server);
  place.put({{"f/s/1", "x"}, {"f/s/2", "y"}});
  place.put({{"f/s/3", "z"}});
  EXPECT_THAT(made, ElementsAre("MKCOL /dav/f/", "MKCOL /dav/f/s/"));
}

TEST_F(WebDavPlaceTest, ThePlacesOwnFolderIsNotMade) {
  const ScriptedServer server(httpAnswer("409 Conflict"));
  EXPECT_THROW(placeAt(server).put({{"f/s/1", "x"}}), PlatformException);
  for (const std::string& request : server.requests()) EXPECT_THAT(request, StartsWith("MKCOL /dav/f"));
}

TEST_F(WebDavPlaceTest, LeftoversGoADayLaterByTheServersClock) {
  const auto entry = [](const std::string& name, const std::string& date) {
    return "<response><href>/dav/f/" + name + "/</href><propstat><prop><getlastmodified>" + date +
           "</getlastmodified></prop></propstat></response>";
  };
  const std::string old = "tmp." + std::string(32, '0'), young = "tmp." + std::string(32, '1'),
                    undated = "tmp." + std::string(32, '2');
  const std::string body = "<multistatus xmlns='DAV:'><response><href>/dav/f/</href></response>" +
                           entry(old, "Thu, 05 Nov 2026 10:00:00 GMT") +
                           entry(young, "Thu, 05 Nov 2026 12:00:00 GMT") + entry(undated, "") +
                           entry("tmp.notes", "Thu, 05 Nov 2020 12:00:00 GMT") +
                           entry("1", "Thu, 05 Nov 2020 12:00:00 GMT") + "</multistatus>";
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    connection.send(is(request, "PROPFIND")
                        ? httpAnswer("207 Multi-Status", body, "Date: Fri, 06 Nov 2026 11:00:00 GMT\r\n")
                        : httpAnswer("204 No Content"));
  });
  EXPECT_EQ(placeAt(server).list("f").size(), 1U);
  ASSERT_THAT(methods(server), ElementsAre("PROPFIND", "DELETE"));
  EXPECT_THAT(server.requests()[1], StartsWith("DELETE /dav/f/" + old + "/ "));
}

}  // namespace
}  // namespace corvane::pelto
