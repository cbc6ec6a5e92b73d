#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "browsers/host/BrowserNode.h"
#include "browsers/host/Json.h"
#include "browsers/host/SiblingList.h"

namespace corvane {

/// A browser with the extension in it, as the host meets them: with what real browsers do to titles and
/// addresses, with the edits that Chromium loses when it is killed, and the ids that it gives away again.
/// tests/extension asks the same of this one and of the real ones.
class ScriptedBrowser {
 public:
  enum class Kind : std::uint8_t { chromium, firefox };

  struct Node {
    std::string parent;  ///< empty for roots
    browsers::NodeKind kind = browsers::NodeKind::folder;
    std::optional<browsers::RootKind> root;
    std::string title;
    std::string url;
    std::int64_t added = 0;
  };

  static constexpr std::size_t kEnd = std::numeric_limits<std::size_t>::max();

  explicit ScriptedBrowser(Kind kind);

  // What a person does. Indexes are places among all siblings, and cut to their number.

  /// Answers the new node's id; empty where the browser refuses the address.
  std::string add(const std::string& parent, browsers::NodeKind kind, const std::string& title,
                  const std::string& url = {}, std::size_t index = kEnd);
  void rename(const std::string& id, const std::string& title);
  /// Nothing happens where the browser refuses the address.
  void readdress(const std::string& id, const std::string& url);
  /// Moving a folder into itself does nothing.
  void move(const std::string& id, const std::string& parent, std::size_t index = kEnd);
  /// With everything in it.
  void remove(const std::string& id);
  /// Removes and adds everything again, so that each node has another id: what bringing a backup of bookmarks
  /// back does.
  void renewIds();

  // What happens to the browser.

  /// Time goes on; what is older than three seconds is durable.
  void pass(std::int64_t milliseconds);
  /// Chromium's folder of what comes from a phone appears, and all that is not durable yet is so at once.
  /// Answers its id. It vanishes when nothing is in it any more.
  std::string makeMobileRoot();
  /// The browser's account goes, and takes that folder along with all that is in it.
  void signOut();
  /// It comes back with the folder as it was.
  void signIn();
  /// Starts, and connects with a host: `hello` is the first message.
  void start();
  /// Another host connects, as after it was ended or the extension reloaded.
  void connect();
  /// Ends, and keeps all.
  void quit();
  /// Ends as by a loss of power. Chromium has lost what was not durable, and gives ids away again.
  void kill();
  bool isRunning() const { return _running; }

  // The messages.

  /// Takes a message of the host.
  void take(std::string_view message);
  /// The browser is killed in place of making the n-th node from here on for the host.
  void killAtNode(std::size_t node) { _killedAtNode = node; }
  /// The next message for the host; nothing where there is none.
  std::optional<std::string> next();
  /// What the extension says unasked, such as "syncNow".
  void say(const std::string& type);
  /// The user pauses syncing, or resumes it, which the extension keeps.
  void pause(bool paused);
  /// Whether the user's edits have been announced by `changed`, or are to be.
  bool hasNews() const { return _hasNews; }
  /// The last message of that type that the host sent; empty where there was none.
  std::string last(const std::string& type) const;
  /// Requests that were carried out.
  std::size_t requests() const { return _requests; }

  // What there is.

  Kind kind() const { return _kind; }
  /// The id of that root; empty where the browser has none.
  std::string root(browsers::RootKind kind) const;
  const std::map<std::string, Node>& nodes() const { return _state.nodes; }
  const std::vector<std::string>& childrenOf(const std::string& id) const;
  /// A node and everything below it, parents first.
  std::vector<std::string> subtree(const std::string& id) const;
  /// All folders, roots included, and all that is no root; by ids.
  std::vector<std::string> folders() const;
  std::vector<std::string> entries() const;
  std::int64_t now() const { return _now; }

  std::string token = "11111111-1111-4111-8111-111111111111";
  std::int64_t generation = 0;     ///< as the host gave it
  bool isSyncedByAccount = false;  ///< Chromium's own keeps the roots in step
  /// Puts the profile, which is not running, back to an earlier state of all its files.
  void restore(const ScriptedBrowser& backup);

 private:
  struct State {
    std::map<std::string, Node> nodes;
    std::map<std::string, browsers::SiblingList> children;
    std::uint64_t lastId = 0;
  };
  using Undo = std::function<void(State&)>;
  struct Unwritten {
    std::int64_t time = 0;
    Undo undo;
  };

  std::string newId();
  void makeRoot(browsers::RootKind root, const std::string& id, const std::string& title);
  void hideMobileRoot();
  std::string insert(Node node, std::size_t index);
  void list(const std::string& id, const std::string& parent, std::size_t index);
  void unlist(const std::string& id);
  Node& changeable(const std::string& id);
  void erase(const std::string& id);
  void note(Undo undo);
  void edited();
  std::string titleAsKept(const std::string& title) const;
  std::optional<std::string> addressAsKept(const std::string& address) const;

  void answerRead(std::int64_t id);
  void answerCreate(const browsers::JsonValue& request);
  /// Answers whether it was made.
  bool createOne(std::int64_t id, const std::string& parent, const browsers::JsonValue& wanted,
                 std::size_t index, bool more);
  void answerChange(const browsers::JsonValue& request);
  std::string problemOf(const browsers::JsonValue& request) const;
  bool fits(const browsers::JsonValue& request) const;
  void fail(std::int64_t id, std::string_view error, bool missing, bool more = false);
  void answerNode(std::int64_t id, const std::string& node, bool more = false);
  void writeNode(browsers::JsonMessage& message, const std::string& id) const;

  Kind _kind;
  State _state;
  std::string _mobileRoot;           ///< Chromium's, once it has appeared
  State _ofAccount;                  ///< what the account has taken along
  std::deque<Unwritten> _unwritten;  ///< how what is not durable is taken back, in the order of the changes
  std::int64_t _now = 1'700'000'000'000;
  std::int64_t _runs = 0;
  bool _running = false;
  bool _paused = false;
  bool _hasNews = false;
  bool _announced = false;
  std::size_t _requests = 0;
  std::size_t _killedAtNode = 0;
  std::deque<std::string> _messages;
  std::map<std::string, std::string> _taken;
};

}  // namespace corvane
