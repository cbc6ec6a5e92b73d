#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
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

TEST_F(WebDavPlaceTest, APlaceWhoseFolderDoesNotExistIsNotMade) {
  const ScriptedServer server(httpAnswer("409 Conflict"));
  try {
    placeAt(server).putNew("f/1", "bytes");
    FAIL() << "made";
  } catch (const PlaceException& exception) {
    EXPECT_EQ(exception.reason(), "Can't make f/1 at " + server.host() + ": the folder /dav at " +
                                      server.host() + " does not exist. Make it, or give another address.");
  }
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

// Raising would say that it was not made.
TEST_F(WebDavPlaceTest, AMoveOfWhichNothingIsHeardAnyMoreIsUnknown) {
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    if (is(request, "MKCOL") || is(request, "PUT")) connection.send(httpAnswer("201 Created"));
  });
  EXPECT_EQ(placeAt(server).putNew("f/1", "bytes"), Made::unknown);
}

TEST_F(WebDavPlaceTest, AnObjectThatIsThereIsSoThoughTheRestCannotBeDiscarded) {
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    if (is(request, "MOVE")) connection.send(httpAnswer("500 Error"));
    if (!is(request, "MOVE") && !is(request, "DELETE")) connection.send(httpAnswer("201 Created"));
  });
  EXPECT_EQ(placeAt(server).putNew("f/1", "bytes"), Made::present);
}

TEST_F(WebDavPlaceTest, WhatIsRefusedLeavesNothingBehind) {
  for (const char* refused : {"PUT", "MOVE"}) {
    SCOPED_TRACE(refused);
    const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
      connection.send(is(request, "HEAD")
                          ? httpAnswer("404 Not Found")
                          : httpAnswer(is(request, refused) ? "507 Insufficient Storage" : "201 Created"));
    });
    EXPECT_THROW(placeAt(server).putNew("f/1", "bytes"), PlaceFullException);
    const std::string made = server.requests().front(), discarded = server.requests().back();
    EXPECT_EQ(discarded.substr(0, discarded.find(" HTTP")),
              "DELETE" + made.substr(5, made.find(" HTTP") - 5));
  }
}

TEST_F(WebDavPlaceTest, WhatIsLockedIsLeftToTheNextSync) {
  const ScriptedServer server(httpAnswer("423 Locked"));
  const auto failureOf = [&](const std::function<void(WebDavPlace&)>& call) {
    WebDavPlace place = placeAt(server);
    try {
      call(place);
    } catch (const PlaceException& exception) {
      return exception.reason();
    }
    return std::string("(none)");
  };
  const std::function<void(WebDavPlace&)> calls[] = {
      [](WebDavPlace& place) {
        place.put({{"f/1", "x"}});
      },
      [](WebDavPlace& place) { place.putNew("f/1", "x"); },
      [](WebDavPlace& place) { place.remove({"f/1"}); },
      [](WebDavPlace& place) {
        place.get({{"f/1", Writing::alone, {}, 10}});
      },
      [](WebDavPlace& place) { place.list("f"); },
  };
  for (const auto& call : calls)
    EXPECT_THAT(failureOf(call), AllOf(HasSubstr("answers 423"), HasSubstr("again at the next sync")));
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
