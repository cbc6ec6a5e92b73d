#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "browsers/host/BrowserHost.h"
#include "tests/fakes/ScriptedBrowser.h"
#include "tests/kit/TreeText.h"
#include "tests/loomer/engine/EngineHome.h"

namespace corvane {

/// A scripted browser and its host, which speak with one another as long as there is something to say.
class HostedBrowser : public browsers::MessageChannel {
 public:
  /// Raised where the host is to die.
  struct HostKilled {};

  explicit HostedBrowser(ScriptedBrowser::Kind kind) : browser(kind) {}

  /// Starts the browser, which is not running, and syncs.
  void start();
  /// Has what either side wants done: the browser's messages taken, and sessions run.
  void settle();
  /// Has the host look, as when another client has synced.
  void sync();
  /// Has the host hear that the store was written, by whomever. Answers whether it runs a session for that.
  bool notice();
  /// The browser ends by itself, and with it the host.
  void quit();
  /// The browser is killed; the host notices that its input ends.
  void kill();
  /// The host dies as it stands; the browser starts another one.
  void restartHost();
  /// The host dies, or the browser is killed, in place of the n-th message from here on that the host sends.
  void killHostAt(int message) { _hostDiesAt = message; }
  void killBrowserAt(int message) { _browserDiesAt = message; }

  /// How often the browser was killed.
  std::size_t kills() const { return _kills; }

  /// What the truth would look like from here: the roots by what they stand for.
  std::string text() const;

  // As the host's channel.
  void send(std::string_view message) override;
  std::optional<std::string> receive() override;

  ScriptedBrowser browser;
  /// What happens once, before the next request for a change arrives.
  std::function<void()> beforeNextChange;
  /// Called with each message of the host.
  std::function<void(std::string_view)> onMessage;

 private:
  std::unique_ptr<browsers::BrowserHost> _host;
  std::size_t _kills = 0;
  int _hostDiesAt = 0;
  int _browserDiesAt = 0;
};

}  // namespace corvane
