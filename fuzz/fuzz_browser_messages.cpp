// Whatever bytes an extension sends, they are cut into messages and read, or refused with a reason. What they
// say of a tree makes one that the host takes in, keeps, and finds unchanged when it comes again.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "browsers/host/ExtensionMessage.h"
#include "browsers/host/Intake.h"
#include "browsers/host/MessageProblem.h"
#include "browsers/host/NativeMessages.h"
#include "browsers/host/Snapshot.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane::browsers {
namespace {

// The nodes of all answers, as one tree.
BrowserTree treeIn(std::string_view bytes) {
  MessageCutter cutter;
  cutter.add(bytes);
  BrowserTree tree;
  while (auto message = cutter.next()) {
    ExtensionMessage read = readExtensionMessage(*std::move(message));
    auto* const answer = std::get_if<Answer>(&read);
    if (!answer) continue;
    for (BrowserNode& node : answer->nodes) tree.add(std::move(node));
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

}  // namespace
}  // namespace corvane::browsers

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    browsers::takeInTwice(browsers::treeIn(bytes));
  } catch (const browsers::MessageProblem& problem) {
    require(!problem.reason().empty(), "a refusal has a reason");
  }
  return 0;
}
