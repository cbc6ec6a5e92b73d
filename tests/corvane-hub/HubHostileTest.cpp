#include <algorithm>
#include <chrono>
#include <random>
#include <stop_token>
#include <thread>
#include <vector>

#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

struct Hostile {
  const char* phrase;
  std::string text;  ///< "TOKEN" in it becomes a good token
  int status;
};

void PrintTo(const Hostile& hostile, std::ostream* out) { *out << hostile.phrase; }

std::string withToken(std::string text, const std::string& token) {
  const std::string mark = "TOKEN";
  for (std::size_t at; (at = text.find(mark)) != std::string::npos;)
    text.replace(at, mark.size(), "Bearer " + token);
  return text;
}

class HubHostile : public HubServerTest, public testing::WithParamInterface<Hostile> {};

/// What two programs could read differently is read by none: the connection ends, and nothing behind it is
/// taken for a request.
TEST_P(HubHostile, RequestIsRefusedAndTheConnectionEnds) {
  const std::string smuggled = withToken(
      "PUT /v1/o/f/smuggled HTTP/1.1\r\nHost: x\r\nAuthorization: TOKEN\r\nContent-Length: 1\r\n\r\nx",
      token);
  HubClient hostile(hub.port());
  hostile.send(withToken(GetParam().text, token) + smuggled);
  hostile.endSending();
  EXPECT_EQ(hostile.receive().status, GetParam().status);
  EXPECT_TRUE(hostile.isClosed());
  EXPECT_EQ(client.get("/v1/list/f").body, "end\n");
}

const std::string kPut = "PUT /v1/o/f/1 HTTP/1.1\r\nHost: x\r\nAuthorization: TOKEN\r\n";
const std::string kGet = "GET /v1/o/f/1 HTTP/1.1\r\nHost: x\r\nAuthorization: TOKEN\r\n";

INSTANTIATE_TEST_SUITE_P(
    All, HubHostile,
    testing::Values(
        Hostile{"LengthAndEncoding", kPut + "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
        Hostile{"EncodingAndLength", kPut + "Transfer-Encoding: chunked\r\nContent-Length: 4\r\n\r\n", 400},
        Hostile{"Chunked", kPut + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 411},
        Hostile{"EncodingUnknown", kPut + "Transfer-Encoding: xchunked\r\n\r\n", 411},
        Hostile{"EncodingIdentityWithLength",
                kPut + "Transfer-Encoding: identity\r\nContent-Length: 1\r\n\r\n", 400},
        Hostile{"TwoLengths", kPut + "Content-Length: 4\r\nContent-Length: 5\r\n\r\n", 400},
        Hostile{"TwoLengthsAlike", kPut + "Content-Length: 4\r\nContent-Length: 4\r\n\r\n", 400},
        Hostile{"LengthsInALine", kPut + "Content-Length: 4, 4\r\n\r\n", 400},
        Hostile{"LengthNegative", kPut + "Content-Length: -1\r\n\r\n", 400},
        Hostile{"LengthWithSign", kPut + "Content-Length: +4\r\n\r\n", 400},
        Hostile{"LengthHexadecimal", kPut + "Content-Length: 0x4\r\n\r\n", 400},
        Hostile{"LengthTooLong", kPut + "Content-Length: 99999999999999999999\r\n\r\n", 400},
        Hostile{"LengthEmpty", kPut + "Content-Length:\r\n\r\n", 400},
        Hostile{"NoLength", kPut + "\r\n", 411},
        Hostile{"BodyOfAGet", kGet + "Content-Length: 4\r\n\r\n", 400},
        Hostile{"BlankBeforeTheColon", kPut + "Content-Length : 4\r\n\r\n", 400},
        Hostile{"FoldedLine", kPut + "X: a\r\n b\r\nContent-Length: 4\r\n\r\n", 400},
        Hostile{"FoldedLength", kPut + "Content-Length:\r\n 4\r\n\r\n", 400},
        Hostile{"LineFeedsAlone", "GET /v1/o/f/1 HTTP/1.1\nHost: x\n\n\r\n\r\n", 400},
        Hostile{"LineFeedInAValue", kGet + "X: a\nContent-Length: 4\r\n\r\n", 400},
        Hostile{"ReturnInAValue", kGet + "X: a\rb\r\n\r\n", 400},
        Hostile{"NulInAValue", kGet + std::string("X: a\0b\r\n\r\n", 10), 400},
        Hostile{"TwoTokens", kGet + "Authorization: TOKEN\r\n\r\n", 400},
        Hostile{"TwoHosts", kGet + "Host: y\r\n\r\n", 400},
        Hostile{"NoHost", "GET /v1/o/f/1 HTTP/1.1\r\nAuthorization: TOKEN\r\n\r\n", 400},
        Hostile{"NoVersion", "GET /v1/o/f/1\r\n\r\n", 400},
        Hostile{"VersionTwo", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 400},
        Hostile{"VersionUnknown", "GET /v1/o/f/1 HTTP/1.9\r\nHost: x\r\n\r\n", 400},
        Hostile{"TwoBlanks", "GET  /v1/o/f/1 HTTP/1.1\r\nHost: x\r\n\r\n", 400},
        Hostile{"NoName", kGet + ": x\r\n\r\n", 400},
        Hostile{"EmptyLineFirst", "\r\n\r\n" + kGet + "\r\n", 400},
        Hostile{"HeadTooLong", kGet + "X: " + std::string(9000, 'x') + "\r\n\r\n", 431},
        Hostile{"HeadWithoutEnd", kGet + std::string(100'000, 'x'), 431},
        Hostile{"ManyHeaders",
                kGet +
                    [] {
                      std::string lines;
                      for (int i = 0; i < 3000; ++i) lines += "X: y\r\n";
                      return lines;
                    }() +
                    "\r\n",
                431}),
    [](const auto& row) { return std::string(row.param.phrase); });

using HubStrangers = HubServerTest;

TEST_F(HubStrangers, ACutUploadMakesNothing) {
  for (const std::size_t sent : {std::size_t{0}, std::size_t{1}, std::size_t{4999}}) {
    HubClient cut(hub.port(), token);
    cut.send(cut.request("PUT", "/v1/o/f/1", "Content-Length: 5000\r\n") + std::string(sent, 'x'));
    cut.endSending();
    EXPECT_TRUE(cut.isClosed());
  }
  EXPECT_EQ(client.get("/v1/list/f").body, "end\n");
}

TEST_F(HubStrangers, WhatStandsBehindABodyIsTheNextRequest) {
  client.send(client.request("PUT", "/v1/o/f/1", "Content-Length: 3\r\n") + "abcdefg" + "\r\n\r\n");
  EXPECT_EQ(client.receive().status, 201);
  EXPECT_EQ(client.receive().status, 400);
  EXPECT_EQ(HubClient(hub.port(), token).get("/v1/o/f/1").body, "abc");
}

TEST_F(HubStrangers, RubbishEndsItsConnectionAlone) {
  std::mt19937 random(1);
  for (int i = 0; i < 200; ++i) {
    HubClient stranger(hub.port());
    std::string rubbish(1 + random() % 20'000, '\0');
    for (char& byte : rubbish) byte = static_cast<char>(random());
    stranger.send(rubbish);
    stranger.endSending();
    EXPECT_TRUE(stranger.isClosed());
  }
  EXPECT_EQ(client.get("/v1/o/f/1").status, 404);
}

TEST_F(HubStrangers, WhoTakesTooLongIsCutOff) {
  HubClient silent(hub.port());
  HubClient slow(hub.port(), token);
  const std::string head = slow.request("GET", "/v1/o/f/1");
  slow.send(head.substr(0, 20));
  HubClient slowBody(hub.port(), token);
  slowBody.send(slowBody.request("PUT", "/v1/o/f/1", "Content-Length: 100\r\n") + "abc");
  // Sends on and on, and would be done in a minute.
  HubClient trickling(hub.port(), token);
  const std::jthread dripping([&](const std::stop_token& ends) {
    for (const char each : trickling.request("GET", "/v1/o/f/1")) {
      if (ends.stop_requested() || !trickling.send({&each, 1})) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(400));
    }
  });
  EXPECT_EQ(client.get("/v1/o/f/1").status, 404);
  EXPECT_EQ(slow.receive().status, 408);
  EXPECT_TRUE(slow.isClosed());
  EXPECT_EQ(trickling.receive().status, 408);
  EXPECT_TRUE(silent.isClosed());
  EXPECT_EQ(slowBody.receive().status, 408);
}

}  // namespace

}  // namespace corvane
