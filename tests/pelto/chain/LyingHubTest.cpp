#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/chain/LyingHub.h"

// An account's chain at a server that lies, in the form of its answers and in what they hold: a computer
// takes the account as it is, or as it was, or says what is wrong; and once the server is honest, all is
// there.

namespace corvane {
namespace {

using namespace pelto;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using Names = std::set<std::string>;
using Lie = LyingHub::Lie;

constexpr const char* kAccountUuid = "0A000000-0000-4000-8000-000000000001";
constexpr const char* kToken = "ada.laptop.s3cret";

AccountKey keyOf(char letter) { return AccountKey(std::string(AccountKey::kBytes, letter)); }

HubRecord recordOf(int number, const std::string& name, std::size_t urlBytes) {
  HubRecord record;
  record.id = "0B000000-0000-4000-8000-00000000000" + std::to_string(number);
  record.name = name;
  record.url = "http://" + std::string(urlBytes, 'u');
  return record;
}

/// Where a lie is told: how the requests begin, and what their targets have in them.
struct Spot {
  const char* what;
  const char* beginning;
  const char* part;
};

constexpr Spot kNewCommit{"new commit", "PUT ", "/c/"};
constexpr Spot kNewSegment{"new segment", "PUT ", "/s/"};
constexpr Spot kSpots[] = {
    {"listing of commits", "GET /v1/list/", "/c"},
    {"listing of segments", "GET /v1/list/", "/s"},
    {"commits", "GET /v1/o/", "/c/"},
    {"segment", "GET /v1/o/", "/s/"},
    kNewCommit,
    kNewSegment,
};
constexpr auto kListingSpots = std::span(kSpots).first<2>();
constexpr auto kObjectSpots = std::span(kSpots).subspan<2, 2>();

class LyingHubTest : public testing::Test {
 protected:
  struct Exchanged {
    std::string failure;
    std::optional<Names> names;  // of all records; absent where it did not get so far
    std::int64_t revision = 0;
  };

  // Two commits, of which the second one names a segment.
  LyingHubTest() {
    platform.uuids.inForm = true;
    EXPECT_THAT(exchange("first", 600, recordOf(1, "one", 10)).failure, IsEmpty());
    EXPECT_THAT(exchange("first", 600, recordOf(2, "two", 300'000)).failure, IsEmpty());
    whole = hub.objects();
    EXPECT_EQ(whole.size(), 3U);
  }

  // Asks for everything, and gives a record that is not there yet.
  Exchanged exchange(const std::string& home, double seconds, std::optional<HubRecord> given = {}) {
    const auto place =
        makePlace(parsePlaceAddress(hub.address()), {"", SharedSecret(kToken)}, after(seconds));
    ChainHub chain(*place, sealer,
                   {platform.directory / (home + "/Chain.plist"), "0F000000-0000-4000-8000-000000000001"});
    Exchanged exchanged;
    try {
      const RemoteChanges remote = chain.remoteChanges({});
      exchanged.revision = remote.now.revision;
      exchanged.names.emplace();
      for (const HubRecord& each : remote.records) exchanged.names->insert(each.name.toString());
      if (!given || exchanged.names->contains(given->name.toString())) return exchanged;
      if (!chain.push({remote.now, Platform::current().uuids.newUuid(), {*given}}))
        exchanged.failure = "overtaken at 127.0.0.1:";
    } catch (const PlatformException& exception) {
      exchanged.failure = exception.reason();
    }
    return exchanged;
  }

  // A computer that has never seen the account, and the one that made it, meet with the lie; then both meet
  // with honesty.
  void meet(const Lie& lie, double seconds, std::span<const Spot> spots = kSpots) {
    for (const Spot& spot : spots) meet(spot, lie, seconds, true);
  }
  void meet(const Spot& spot, const Lie& lie, double seconds, bool isDone) {
    for (const char* home : {"late", "first"}) {
      SCOPED_TRACE(std::string(spot.what) + ", " + home);
      hub.setObjects(whole);
      keepHomes();
      hub.lie(spot.beginning, spot.part, isDone, lie);
      const HubRecord given = recordOf(3, "three", 300'000);
      const Exchanged lied = exchange(home, seconds, given);
      hub.beHonest();
      expectTrueOrNamed(lied);
      expectAllThere(home, given);
      restoreHomes();
    }
  }

  void expectTrueOrNamed(const Exchanged& lied) const {
    if (lied.names) {
      EXPECT_THAT(*lied.names, AnyOf(Names{}, Names{"one"}, Names{"one", "two"}));
    }
    if (lied.failure.empty()) {
      EXPECT_EQ(lied.names, (Names{"one", "two"})) << "what was given rests on all that there is";
    } else {
      EXPECT_THAT(lied.failure, HasSubstr("127.0.0.1:"));
      EXPECT_EQ(lied.failure.find(kToken), std::string::npos);
    }
  }

  void expectAllThere(const std::string& home, const HubRecord& given) {
    platform.clock.time.seconds += 86'401;  // whatever was noted as amiss has healed
    EXPECT_THAT(exchange(home, 600, given).failure, IsEmpty());
    const Exchanged seen = exchange("another", 600);
    EXPECT_EQ(seen.names, (Names{"one", "two", "three"}));
    EXPECT_EQ(seen.revision, 3) << "given once";
  }

  void keepHomes() {
    for (const char* home : {"late", "another"}) platform.realFiles.remove(platform.directory / home);
    platform.realFiles.read(platform.directory / "first/Chain.plist", kept);
  }
  void restoreHomes() { platform.realFiles.write(platform.directory / "first/Chain.plist", kept); }

  StrictPlatform platform;
  LyingHub hub;
  Sealer sealer{keyOf('k'), kAccountUuid, 1};
  std::map<std::string, std::string> whole;
  std::string kept;
};

// Without time for a second attempt.
constexpr double kNoRetries = 0.25;

Lie always(std::string answer) {
  return [answer = std::move(answer)](const LyingHub::Request&, const std::string&,
                                      ScriptedConnection& connection) { connection.send(answer); };
}

TEST_F(LyingHubTest, AnswersThatAreNoneOrRefuse) {
  const std::string answers[] = {
      "",
      "rubbish\r\n\r\n",
      "<html>Log in</html>",
      "HTTP/1.1 200 OK\r\nX: " + std::string(70'000, 'x') + "\r\n\r\n",
      "HTTP/1.1 200 OK\r\nContent-Length: 8589934592\r\n\r\nsome",
      "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 30\r\n\r\nabcdef",
      httpAnswer("302 Found", "", "Location: http://127.0.0.1:1/elsewhere\r\n"),
      httpAnswer("304 Not Modified"),
      httpAnswer("401 Unauthorized", kToken),
      httpAnswer("403 Forbidden", kToken),
      httpAnswer("429 Many", "", "Retry-After: 100000\r\n"),
      httpAnswer("500 Error", kToken),
      httpAnswer("503 Later", "", "Retry-After: 5\r\n"),
      httpAnswer("507 Full"),
  };
  for (const std::string& answer : answers) {
    SCOPED_TRACE(answer.substr(0, 60));
    meet(always(answer), kNoRetries);
    for (const Spot& spot : {kNewCommit, kNewSegment}) meet(spot, always(answer), kNoRetries, false);
  }
}

TEST_F(LyingHubTest, AnswersThatAreCutInEachOfTheirParts) {
  // Within the status, after it, within the header, before its end, after it, within the body, before the
  // end.
  const std::function<std::size_t(const std::string&)> cuts[] = {
      [](const std::string&) { return std::size_t{5}; },
      [](const std::string& honest) { return honest.find("\r\n") + 2; },
      [](const std::string& honest) { return honest.find("Content-Length") + 8; },
      [](const std::string& honest) { return honest.find("\r\n\r\n") + 2; },
      [](const std::string& honest) { return honest.find("\r\n\r\n") + 4; },
      [](const std::string& honest) { return (honest.find("\r\n\r\n") + 4 + honest.size()) / 2; },
      [](const std::string& honest) { return honest.size() - 1; },
  };
  for (const auto& cut : cuts) {
    SCOPED_TRACE(&cut - cuts);
    meet([&](const LyingHub::Request&, const std::string& honest,
             ScriptedConnection& connection) { connection.send(honest.substr(0, cut(honest))); },
         kNoRetries);
  }
}

std::string bodyOf(const std::string& answer) { return answer.substr(answer.find("\r\n\r\n") + 4); }

// Another body in the place of an object's that is asked for.
Lie instead(std::function<std::string(const std::string& name, const std::string& body)> change) {
  return [change = std::move(change)](const LyingHub::Request& request, const std::string& honest,
                                      ScriptedConnection& connection) {
    const bool isObject = honest.starts_with("HTTP/1.1 200");
    connection.send(
        isObject ? httpAnswer("200 OK", change(request.target.substr(6), bodyOf(honest)), "ETag: \"x\"\r\n")
                 : honest);
  };
}

TEST_F(LyingHubTest, ObjectsOfOtherNamesAccountsKeysAndGenerationsAndOfOtherLengths) {
  const Sealer others[] = {{keyOf('x'), kAccountUuid, 1},
                           {keyOf('k'), kAccountUuid, 2},
                           {keyOf('k'), "0A000000-0000-4000-8000-000000000002", 1}};
  for (const Sealer& other : others) {
    SCOPED_TRACE(&other - others);
    meet(instead([&](const std::string& name, const std::string& body) {
           return other.seal(name, sealer.open(name, body, 1 << 20).value());
         }),
         600, kObjectSpots);
  }
  for (const auto& [replayed, bytes] : whole) {
    SCOPED_TRACE(replayed);
    meet(instead([&old = bytes](const std::string&, const std::string&) { return old; }), 600, kObjectSpots);
  }
  const std::function<std::string(const std::string&)> lengths[] = {
      [](const std::string&) { return std::string(); },
      [](const std::string& body) { return body.substr(0, body.size() - 1024); },
      [](const std::string& body) { return body + std::string(1024, '\0'); },
      [](const std::string& body) { return body + body; },
      [](const std::string&) { return std::string(5 << 20, 'x'); },
  };
  for (const auto& change : lengths) {
    SCOPED_TRACE(&change - lengths);
    meet(instead([&](const std::string&, const std::string& body) { return change(body); }), 600,
         kObjectSpots);
  }
}

// A segment that is said to be kept is missed for a day, as one that was lost.
TEST_F(LyingHubTest, WhatIsThereIsDeniedAndWhatIsNotThereIsSaidToBeKept) {
  meet(always(httpAnswer("404 Not Found")), 600);
  meet(kNewCommit, always(httpAnswer("201 Created")), kNoRetries, false);
  for (const Spot& spot : {kNewCommit, kNewSegment})
    meet(spot, always(httpAnswer("412 Precondition Failed")), kNoRetries, false);
}

// What the hub held after the first commit is all that can be read, whatever is given.
TEST_F(LyingHubTest, AnswersFromAnEarlierState) {
  const Lie earlier = [](const LyingHub::Request& request, const std::string& honest,
                         ScriptedConnection& connection) {
    const auto isFirst = [](const std::string& text) { return text.find("/c/1-") != std::string::npos; };
    std::string lines;
    std::istringstream listing(bodyOf(honest));
    for (std::string line; std::getline(listing, line);) {
      if (isFirst(line) || line == "end") lines += line + '\n';
    }
    const bool isListing = request.target.starts_with("/v1/list/");
    connection.send(isListing                 ? httpAnswer("200 OK", lines)
                    : isFirst(request.target) ? honest
                                              : httpAnswer("404 Not Found"));
  };
  meet({"everything", "GET ", "/v1/"}, earlier, 600, true);
}

TEST_F(LyingHubTest, ListingsOfWhatCannotBeOrIsNotThere) {
  const std::string folder = sealer.folder() + "/c/", hash(32, 'a');
  const std::string first = whole.begin()->first;
  const std::string lines[] = {
      "",
      "1 1 ../../etc/passwd\n",
      "1 1 " + folder + "../x\n",
      "1 1 " + folder + std::string(200, 'a') + '\n',
      "1 1 " + folder + "999999-" + hash + '\n',
      "1 1 " + folder + "9223372036854775807-" + hash + '\n',
      "1 1 " + folder + "99999999999999999999-" + hash + '\n',
      "1 1 " + folder + "2-" + hash + "-99999999999\n",
      "18446744073709551615 9223372036854775807 " + first + '\n',
      "1 -9223372036854775808 " + first + "\n1 1 " + first + '\n',
      "no listing\n",
  };
  for (const std::string& line : lines) {
    for (const bool isMore : {true, false}) {
      SCOPED_TRACE(line + (isMore ? " besides" : " alone"));
      meet(
          [line, isMore](const LyingHub::Request&, const std::string& honest,
                         ScriptedConnection& connection) {
            connection.send(httpAnswer("200 OK", line + (isMore ? bodyOf(honest) : "end\n")));
          },
          600, kListingSpots);
    }
  }
}

TEST_F(LyingHubTest, ManySlotsThatAreNotThereEndTheExchangeInTime) {
  std::string lines;
  for (int i = 0; i < 20'000; ++i) {
    const std::string digits = std::to_string(100'000 + i);
    lines += "1 1 " + sealer.folder() + "/c/" + digits + '-' + std::string(26, '0') + digits + '\n';
  }
  hub.lie("GET /v1/list/", "/c", true, always(httpAnswer("200 OK", lines + "end\n")));
  EXPECT_THAT(exchange("late", 600).failure, HasSubstr("another each time"));
}

TEST_F(LyingHubTest, AnswersWithoutAnEndTakeNoMemoryThatMatters) {
  const auto peak = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;  // MiB
  };
  // Sent until its connection ends, which may be after the test.
  static const std::string block(1 << 20, '1');
  const Lie endless = [](const LyingHub::Request&, const std::string&, ScriptedConnection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    while (connection.send("100000\r\n" + block + "\r\n")) {
    }
  };
  for (const Spot& spot : kSpots) {
    SCOPED_TRACE(spot.what);
    hub.setObjects(whole);
    hub.lie(spot.beginning, spot.part, true, endless);
    const long before = peak();
    const Exchanged lied = exchange("late", 600, recordOf(3, "three", 300'000));
    EXPECT_LT(peak() - before, 600);
    expectTrueOrNamed(lied);
    platform.realFiles.remove(platform.directory / "late");
  }
}

}  // namespace
}  // namespace corvane
