#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "browsers/host/MessageChannel.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/NativeMessages.h"
#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

class ExtensionMessageTest : public HostTest {};

TEST_F(ExtensionMessageTest, MessageThatCannotComeEndsTheConnection) {
  const auto takes = [&](const std::string& message) {
    browsers::BrowserHost host(firefox);
    host.take(browsers::readExtensionMessage(message));
  };
  for (const char* const message :
       {"", "[]", "{", "{\"type\":1}", "{\"type\":\"changed\"}", "{\"type\":\"answer\",\"id\":1}",
        "{\"type\":\"hello\",\"protocol\":1,\"token\":\"../../etc\"}",
        "{\"type\":\"answer\",\"nodes\":[{\"id\":\"1\",\"kind\":\"planet\"}]}"}) {
    EXPECT_THROW(takes(message), browsers::MessageProblem) << message;
  }
  EXPECT_NO_THROW(takes("{\"type\":\"unheard of\"}"));
}

TEST_F(ExtensionMessageTest, MessageOfAnyDepthIsReadOrRefused) {
  const std::string deep(120'000, '[');
  EXPECT_THROW(browsers::readExtensionMessage(deep), browsers::MessageProblem);
  const std::string closed = "{\"type\":\"changed\",\"x\":" + deep + std::string(deep.size(), ']') + "}";
  EXPECT_NO_THROW(browsers::readExtensionMessage(closed));
}

TEST_F(ExtensionMessageTest, TextsOfAMessageAreUtf8WithoutZeros) {
  const auto tokenIn = [](const std::string& token) {
    const auto message = browsers::readExtensionMessage("{\"type\":\"hello\",\"token\":\"" + token + "\"}");
    return std::get<browsers::Hello>(message).token;
  };
  EXPECT_EQ(tokenIn("a\\ud800b"),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(tokenIn("\\ud83d\\ude00"), "\xf0\x9f\x98\x80");
  EXPECT_THROW(tokenIn(std::string("a\0b", 3)), browsers::MessageProblem);
  EXPECT_THROW(tokenIn("\xff"), browsers::MessageProblem);
  EXPECT_THROW(browsers::readExtensionMessage(
                   R"({"type":"answer","node":{"id":"1","parent":"2","kind":"folder","index":-1}})"),
               browsers::MessageProblem);
}

TEST_F(ExtensionMessageTest, ReadThatGoesOnWithNothingIsRefused) {
  ToldExtension extension({R"({"type":"answer","id":1,"nodes":[],"more":true})"});
  browsers::ExtensionRequests requests(extension, [](const browsers::ExtensionMessage&) {});
  EXPECT_THROW(requests.read(), browsers::MessageProblem);
}

TEST_F(ExtensionMessageTest, BytesAreCutIntoMessagesHoweverTheyCome) {
  const std::string bytes = browsers::framed("{}") + browsers::framed("{\"a\":1}");
  browsers::MessageCutter cutter;
  std::vector<std::string> messages;
  for (const char byte : bytes) {
    cutter.add({&byte, 1});
    while (auto message = cutter.next()) messages.push_back(*std::move(message));
  }
  EXPECT_EQ(messages, (std::vector<std::string>{"{}", "{\"a\":1}"}));
  cutter.add(browsers::framed(std::string(browsers::kLargestMessage + 1, ' ')).substr(0, 4));
  EXPECT_THROW(cutter.next(), browsers::MessageProblem);
}

}  // namespace
}  // namespace corvane
