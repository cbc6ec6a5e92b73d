#include <algorithm>

#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

using HubProtocol = HubServerTest;

TEST_F(HubProtocol, AnObjectIsReadAsItWasWritten) {
  std::string bytes(300'000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 >> 3);
  for (const std::string& body : {bytes, std::string("a"), std::string()}) {
    const std::string name = "/v1/o/f/c/" + std::to_string(body.size());
    EXPECT_EQ(client.put(name, body).status, 201);
    const HttpAnswer answer = client.get(name);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, body);
  }
}

TEST_F(HubProtocol, AnObjectIsNeverReplaced) {
  ASSERT_EQ(client.putNew("/v1/o/f/c/1", "first").status, 201);
  EXPECT_EQ(client.putNew("/v1/o/f/c/1", "other").status, 412);
  EXPECT_EQ(client.putNew("/v1/o/f/c/1", "first").status, 412);
  EXPECT_EQ(client.put("/v1/o/f/c/1", "first").status, 204);
  EXPECT_EQ(client.put("/v1/o/f/c/1", "other").status, 409);
  EXPECT_EQ(client.put("/v1/o/f/c/1", "longer than the first").status, 409);
  EXPECT_EQ(client.get("/v1/o/f/c/1").body, "first");
}

TEST_F(HubProtocol, AnUnchangedObjectIsNotSentAgain) {
  ASSERT_EQ(client.put("/v1/o/f/c/1", "first").status, 201);
  const std::string tag = client.get("/v1/o/f/c/1").header("etag");
  const HttpAnswer unchanged = client.get("/v1/o/f/c/1", "If-None-Match: " + tag + "\r\n");
  EXPECT_EQ(unchanged.status, 304);
  EXPECT_EQ(unchanged.body, "");
  EXPECT_EQ(client.get("/v1/o/f/c/1", "If-None-Match: \"another\"\r\n").status, 200);
  EXPECT_EQ(client.get("/v1/o/f/c/1", "If-None-Match: \"another\", W/" + tag + "\r\n").status, 304);
}

TEST_F(HubProtocol, AnObjectMadeAnewHasAnotherTag) {
  // Inode, size and even the second are those of the first one.
  std::string last;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(client.put("/v1/o/f/c/1", std::to_string(10 + i)).status, 201);
    const std::string tag = client.get("/v1/o/f/c/1").header("etag");
    EXPECT_NE(tag, last);
    last = tag;
    ASSERT_EQ(client.remove("/v1/o/f/c/1").status, 204);
  }
}

TEST_F(HubProtocol, ARemovedObjectIsGoneAndRemovingNothingIsNoError) {
  ASSERT_EQ(client.put("/v1/o/f/c/1", "first").status, 201);
  EXPECT_EQ(client.remove("/v1/o/f/c/1").status, 204);
  EXPECT_EQ(client.get("/v1/o/f/c/1").status, 404);
  EXPECT_EQ(client.remove("/v1/o/f/c/1").status, 204);
  EXPECT_EQ(client.remove("/v1/o/no/such").status, 204);
}

TEST_F(HubProtocol, AListingHasTheFolderAlone) {
  for (const char* name : {"f/a", "f/c/1", "f/c/2-ab", "f/c/d/3", "f/cc/4"}) {
    ASSERT_EQ(client.put(std::string("/v1/o/") + name, name).status, 201);
  }
  const std::string listing = client.get("/v1/list/f/c").body;
  EXPECT_NE(listing.find(" f/c/1\n"), std::string::npos);
  EXPECT_NE(listing.find(" f/c/2-ab\n"), std::string::npos);
  EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 3);
  EXPECT_TRUE(listing.ends_with("end\n"));
  EXPECT_TRUE(listing.starts_with("5 ") || listing.starts_with("8 ")) << listing;
  EXPECT_EQ(client.get("/v1/list/none").body, "end\n");
}

TEST_F(HubProtocol, AnOldClientsListingEndsWithItsLastLine) {
  ASSERT_EQ(client.put("/v1/o/f/1", "1").status, 201);
  client.send("GET /v1/list/f HTTP/1.0\r\nAuthorization: Bearer " + token + "\r\n\r\n");
  const HttpAnswer answer = client.receive();
  EXPECT_EQ(answer.header("transfer-encoding"), "");
  EXPECT_EQ(answer.header("connection"), "close");
}

TEST_F(HubProtocol, NamesOutsideTheAlphabetAreNotFound) {
  for (const char* name : {"f",           "",
                           "f/",          "/f",
                           "f//g",        "f/..",
                           "../f",        "f/../../usage",
                           "f/.",         "f/A",
                           "f/a.b",       "f/%2e%2e",
                           "f/a%2fb",     "f/a b",
                           "f/\xc3\xa4",  "f/a?x=1",
                           "f/a?wait=",   "f/a?wait=-1",
                           "f/a?wait=1x", "f/a?wait=99999999999"}) {
    HubClient fresh(hub.port(), token);
    const int status = fresh.get(std::string("/v1/o/") + name).status;
    EXPECT_TRUE(status == 404 || status == 400) << name << " " << status;
    HubClient writer(hub.port(), token);
    const int made = writer.put(std::string("/v1/o/") + name, "x").status;
    EXPECT_TRUE(made == 404 || made == 400) << name << " " << made;
  }
  EXPECT_EQ(client.get("/").status, 404);
  EXPECT_EQ(client.get("/v1/list/").status, 404);
  EXPECT_EQ(client.get("/v1/list/..").status, 404);
}

TEST_F(HubProtocol, ANameHasSegmentsOfAHundredAndTwoHundredAndFiftyInAll) {
  const std::string longest(100, 'a');
  EXPECT_EQ(client.put("/v1/o/" + longest + "/" + longest, "x").status, 201);
  EXPECT_EQ(client.put("/v1/o/" + longest + "/" + std::string(48, 'b') + "/" + longest, "x").status, 201);
  EXPECT_EQ(HubClient(hub.port(), token).put("/v1/o/" + longest + "/" + longest + "a", "x").status, 404);
  EXPECT_EQ(HubClient(hub.port(), token)
                .put("/v1/o/" + longest + "/" + std::string(49, 'b') + "/" + longest, "x")
                .status,
            404);
}

TEST_F(HubProtocol, OtherMethodsAreNotAllowed) {
  client.send(client.request("POST", "/v1/o/f/1"));
  const HttpAnswer answer = client.receive();
  EXPECT_EQ(answer.status, 405);
  EXPECT_EQ(answer.header("allow"), "GET, PUT, DELETE");
  EXPECT_EQ(client.remove("/v1/list/f").status, 405);
}

TEST_F(HubProtocol, AccountsSeeNothingOfOneAnother) {
  ASSERT_EQ(client.put("/v1/o/f/1", "ada's").status, 201);
  HubClient bob(hub.port(), accountCommand(directory.path(), {"add", "bob"}));
  EXPECT_EQ(bob.get("/v1/o/f/1").status, 404);
  EXPECT_EQ(bob.get("/v1/list/f").body, "end\n");
  EXPECT_EQ(bob.putNew("/v1/o/f/1", "bob's").status, 201);
  EXPECT_EQ(client.get("/v1/o/f/1").body, "ada's");
}

TEST_F(HubProtocol, AWaitingClientHearsOfTheObjectAsItComes) {
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  HubClient waiting(hub.port(), token);
  HubClient inNoFolder(hub.port(), token);
  waiting.send(waiting.request("GET", "/v1/o/f/2?wait=60"));
  inNoFolder.send(inNoFolder.request("GET", "/v1/o/g/h/2?wait=60"));
  ASSERT_EQ(client.put("/v1/o/f/3", "other").status, 201);
  ASSERT_EQ(client.put("/v1/o/f/2", "second").status, 201);
  EXPECT_EQ(waiting.receive().body, "second");
  ASSERT_EQ(client.put("/v1/o/g/h/1", "first").status, 201);  // makes the folder
  ASSERT_EQ(client.put("/v1/o/g/h/2", "fourth").status, 201);
  EXPECT_EQ(inNoFolder.receive().body, "fourth");
}

TEST_F(HubProtocol, AnObjectThatIsThereIsNotWaitedFor) {
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  EXPECT_EQ(client.get("/v1/o/f/1?wait=300").body, "first");
}

TEST_F(HubProtocol, AWaitEndsWithNotFound) {
  EXPECT_EQ(client.get("/v1/o/f/1?wait=1").status, 404);
  EXPECT_EQ(client.get("/v1/o/f/1?wait=0").status, 404);
  EXPECT_EQ(client.put("/v1/o/f/1", "and the connection goes on").status, 201);
}

TEST_F(HubProtocol, WhoeverExpectsToContinueIsToldTo) {
  client.send(client.request("PUT", "/v1/o/f/1", "Expect: 100-continue\r\nContent-Length: 5\r\n"));
  EXPECT_EQ(client.receive().status, 100);
  client.send("12345");
  EXPECT_EQ(client.receive().status, 201);
  client.send(client.request("PUT", "/v1/o/F/1", "Expect: 100-continue\r\nContent-Length: 5\r\n"));
  EXPECT_EQ(client.receive().status, 404);
}

TEST_F(HubProtocol, RequestsOneAfterAnotherAreAnsweredInTheirOrder) {
  std::string requests;
  for (int i = 0; i < 200; ++i) {
    requests += client.request("PUT", "/v1/o/f/" + std::to_string(i), "Content-Length: 3\r\n") +
                std::to_string(100 + i);
    requests += client.request("GET", "/v1/o/f/" + std::to_string(i));
  }
  client.send(requests);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(client.receive().status, 201);
    ASSERT_EQ(client.receive().body, std::to_string(100 + i));
  }
}

}  // namespace

}  // namespace corvane
