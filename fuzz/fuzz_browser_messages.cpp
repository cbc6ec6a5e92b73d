// Whatever bytes an extension sends, they are cut into messages and read, or refused with a reason. What they
// say of a tree makes one that the host takes in, keeps, and finds unchanged when it comes again. Whatever is
// answered to its requests then, it comes to an end with them, and what it holds is a tree.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "browsers/host/ExtensionMessage.h"
#include "browsers/host/Intake.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/NativeMessages.h"
#include "browsers/host/Presenting.h"
#include "browsers/host/Snapshot.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane::browsers {
namespace {

// Gives out what stands in the bytes.
class FuzzedExtension : public MessageChannel {
 public:
  explicit FuzzedExtension(std::string_view bytes) { _cutter.add(bytes); }
  void send(std::string_view) override {}
  std::optional<std::string> receive() override { return _cutter.next(); }

 private:
  MessageCutter _cutter;
};

// The nodes of all answers up to the last part of a read, as one tree.
BrowserTree treeFrom(FuzzedExtension& extension) {
  BrowserTree tree;
  while (auto message = extension.receive()) {
    ExtensionMessage read = readExtensionMessage(*std::move(message));
    auto* const answer = std::get_if<Answer>(&read);
    if (!answer) continue;
    for (BrowserNode& node : answer->nodes) tree.add(std::move(node));
    if (!answer->more) break;
  }
  return tree;
}

void takeInTwice(const BrowserTree& tree) {
  Snapshot snapshot;
  takeIn(snapshot.tree, tree, {}, {1, 0.0});
  Snapshot kept = snapshotOf(snapshotBytes(snapshot));
  require(kept.tree.nodes().size() == snapshot.tree.nodes().size(), "a snapshot keeps all nodes");
  const Intake again = takeIn(kept.tree, tree, {}, {2, 0.0});
  require(again.edits == 0 && !again.lost, "what is the same has not been edited");
  require(kept.tree.nodes().size() == snapshot.tree.nodes().size(), "what is the same is not there twice");
}

// Has all that is in the browser change: every second node goes to the front of its folder, others get
// another title, are removed, or made anew.
void changeAll(HeldTree& held) {
  std::size_t count = 0;
  std::vector<HeldNode> nodes;
  for (const HeldNode* const each : held.topDown()) nodes.push_back(*each);
  for (const HeldNode& each : nodes) {
    if (each.root) continue;
    switch (count++ % 4) {
      case 0:
        held.find(each.localId)->title.set("another");
        break;
      case 1: {
        std::vector<std::string> children = held.childrenOf(each.parent);
        std::erase(children, each.localId);
        children.insert(children.begin(), each.localId);
        held.setChildren(each.parent, std::move(children));
        break;
      }
      case 2: {
        HeldNode made = each;
        made.localId += " again";
        made.showing = Showing::waiting;
        made.title.isPending = made.url.isPending = true;
        held.add(std::move(made));
        break;
      }
      default:
        if (each.kind == NodeKind::folder) break;
        held.removed.push_back({.kind = each.kind,
                                .browserId = each.browserId,
                                .title = each.title.shown,
                                .url = each.url.shown,
                                .added = each.added,
                                .changed = {1, 0.0},
                                .isWaiting = true});
        held.drop(each.localId);
    }
  }
}

// The rest of what the extension says are its answers.
void presentOver(BrowserTree& tree, FuzzedExtension& extension) {
  Snapshot snapshot;
  takeIn(snapshot.tree, tree, {}, {1, 0.0});
  changeAll(snapshot.tree);
  ExtensionRequests requests(extension, [](const ExtensionMessage&) {});
  try {
    present(snapshot.tree, tree, requests, {2, 0.0}, [](std::size_t, std::size_t) { return true; });
  } catch (const ExtensionGone&) {
    // It has said all.
  } catch (const MessageProblem& problem) {
    require(!problem.reason().empty(), "a refusal has a reason");
  }
  const std::size_t held = snapshot.tree.topDown().size();
  require(held == snapshot.tree.nodes().size(), "whatever is answered, what is held is a tree");
  require(snapshotOf(snapshotBytes(snapshot)).tree.nodes().size() == held, "which a snapshot keeps");
}

}  // namespace
}  // namespace corvane::browsers

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    browsers::FuzzedExtension extension(bytes);
    browsers::BrowserTree tree = browsers::treeFrom(extension);
    browsers::takeInTwice(tree);
    browsers::presentOver(tree, extension);
  } catch (const browsers::MessageProblem& problem) {
    require(!problem.reason().empty(), "a refusal has a reason");
  }
  return 0;
}
