#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "browsers/host/BrowserTree.h"
#include "browsers/host/ExtensionMessage.h"
#include "browsers/host/Json.h"
#include "browsers/host/MessageChannel.h"

namespace corvane::browsers {

/// The connection ended while an answer was waited for: the browser is gone, or the extension was reloaded.
class ExtensionGone : public PlatformException {
 public:
  ExtensionGone()
      : PlatformException("CorvaneBrowserGoneException", "The browser has ended the connection.") {}
};

/// What came of a request for a change.
struct ChangeAnswer {
  enum class Outcome : std::uint8_t {
    done,
    refused,   ///< the browser does not take it
    different  ///< what was to be changed is not there, or not any more what it was taken for
  };
  Outcome outcome = Outcome::refused;
  std::optional<PlacedNode> node;  ///< as it is now; of all but removals that were done
};

/// What is to be made.
struct NewNode {
  std::string title;
  std::optional<std::string> url;  ///< absent for a folder
};

/// Asks the extension, one request at a time. What it says unasked meanwhile goes to `other`. All raise
/// ExtensionGone, and MessageProblem for an answer that is none.
class ExtensionRequests {
 public:
  /// Called with each message that is no answer.
  using Other = std::function<void(const ExtensionMessage&)>;

  /// `channel` must outlive this object.
  ExtensionRequests(MessageChannel& channel, Other other) : _channel(channel), _other(std::move(other)) {}

  BrowserTree read();
  /// Makes nodes, of which there is one at least, one behind the other from `index` on; the next one takes
  /// the place of one that is refused. Each answer goes to `taker` when it comes, in their order.
  void create(const std::string& parent, std::size_t index, std::span<const NewNode> nodes,
              const std::function<void(const ChangeAnswer&)>& taker);
  /// Gives `node`, which is as the browser shows it, another title and address, where there are such.
  ChangeAnswer update(const BrowserNode& node, const std::optional<std::string>& title,
                      const std::optional<std::string>& url);
  ChangeAnswer move(const BrowserNode& node, const std::string& parent, std::size_t index);
  ChangeAnswer remove(const BrowserNode& node);

 private:
  Answer answer();
  /// Sends the request; false for one that no message can hold.
  bool send(JsonMessage& request);
  /// Sends the request and waits for what comes of it. A request that no message can hold is refused.
  ChangeAnswer ask(JsonMessage& request, bool removes);

  MessageChannel& _channel;
  Other _other;
  std::int64_t _lastId = 0;
};

}  // namespace corvane::browsers
