#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "tests/browser-host/HostedBrowser.h"

namespace corvane {

/// Two scripted browsers with their hosts, and an engine that any other client may use.
class HostTest : public testing::Test {
 protected:
  HostTest() { firefox.browser.token = "22222222-2222-4222-8222-222222222222"; }

  ~HostTest() override { EXPECT_TRUE(platform.log.messages.empty()) << platform.log.messages.front(); }

  static std::string addBookmark(HostedBrowser& hosted, browsers::RootKind root, const std::string& title,
                                 const std::string& url, std::size_t index = ScriptedBrowser::kEnd) {
    return hosted.browser.add(hosted.browser.root(root), browsers::NodeKind::bookmark, title, url, index);
  }
  static std::string addFolder(HostedBrowser& hosted, browsers::RootKind root, const std::string& title) {
    return hosted.browser.add(hosted.browser.root(root), browsers::NodeKind::folder, title);
  }
  /// The id of the only node of that title.
  static std::string find(const HostedBrowser& hosted, const std::string& title) {
    for (const auto& [id, node] : hosted.browser.nodes()) {
      if (node.title == title && !node.root) return id;
    }
    ADD_FAILURE() << "there is no " << title << " in " << hosted.text();
    return {};
  }
  static const ScriptedBrowser::Node& node(const HostedBrowser& hosted, const std::string& title) {
    return hosted.browser.nodes().at(find(hosted, title));
  }

  void round() {
    for (int i = 0; i < 2; ++i) {
      chromium.sync();
      firefox.sync();
    }
  }

  /// All of the truth in one scripted client's words.
  std::string truth() {
    const auto client = home.makeClient("reader");
    EXPECT_EQ(client->sync(), "");
    return client->text();
  }

  loomer::ClientState clientOf(const HostedBrowser& hosted) {
    const auto client = loomer::ClientTable(home.store()).find("com.keldra.browser." + hosted.browser.token);
    EXPECT_TRUE(client);
    return client.value_or(loomer::ClientState());
  }

  /// From the next request of that type on, nothing can be written: a host that ends then leaves what it
  /// leaves when it is killed before the answer comes.
  void failOnceTheBrowserIsAsked(const std::string& type) {
    for (HostedBrowser* const each : {&chromium, &firefox}) {
      each->onMessage = [this, type](std::string_view message) {
        if (message.find("\"type\":\"" + type + "\"") == message.npos) return;
        platform.files.intercept = [](const ForwardingFileSystem::Call& call) {
          return call.operation == FileOperation::writeAtomically
                     ? std::make_error_code(std::errc::no_space_on_device)
                     : std::error_code();
        };
      };
    }
  }

  /// Another computer of the user's, at which everything happens as long as this object is there.
  class OtherComputer {
   public:
    explicit OtherComputer(HostTest& test, const std::string& name = "other")
        : _test(test), _home(test.platform.process.home) {
      _test.home.close();
      _test.platform.process.home = _test.platform.directory / name;
      _test.platform.makeDirectories(_test.platform.process.home);
      engine.emplace(_test.platform);
    }
    OtherComputer(const OtherComputer&) = delete;
    OtherComputer& operator=(const OtherComputer&) = delete;
    ~OtherComputer() {
      engine.reset();
      _test.platform.process.home = _home;
      _test.home.open();
    }

    std::optional<EngineHome> engine;

   private:
    HostTest& _test;
    std::string _home;
  };

  FakePlatform platform;
  EngineHome home{platform};
  HostedBrowser chromium{ScriptedBrowser::Kind::chromium};
  HostedBrowser firefox{ScriptedBrowser::Kind::firefox};
};

/// An extension that answers as it is told here.
class ToldExtension : public browsers::MessageChannel {
 public:
  explicit ToldExtension(std::deque<std::string> told) : answers(std::move(told)) {}
  void send(std::string_view) override {}
  std::optional<std::string> receive() override {
    if (answers.empty()) return std::nullopt;
    std::string answer = std::move(answers.front());
    answers.pop_front();
    return answer;
  }

  std::deque<std::string> answers;
};

}  // namespace corvane
