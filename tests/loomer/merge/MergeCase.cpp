#include "tests/loomer/merge/MergeCase.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>

#include "tests/kit/TreeText.h"
#include "tests/loomer/merge/History.h"
#include "tests/loomer/merge/RecordTrees.h"

namespace corvane::loomer::test {
namespace {

// A node of a tree, and where it is.
struct Placed {
  const kit::TreeNode* node;
  std::string parent;  // label; empty for the root
  std::int32_t position;
  Entity entity() const { return node->folder ? Entity::folder : Entity::bookmark; }
  Content content() const { return {node->title, node->url, node->tabGroup, node->special}; }
};

// Parents first. The nodes belong to `siblings`.
void place(const std::vector<kit::TreeNode>& siblings, const std::string& parent,
           std::vector<Placed>& placed) {
  std::int32_t position = 0;
  for (const kit::TreeNode& node : siblings) {
    placed.push_back({&node, parent, node.special ? LoomerPositionSpecial : position});
    ++position;
    place(node.children, node.label, placed);
  }
}

// A tree as text, and its nodes in one list.
struct PlacedTree {
  explicit PlacedTree(const std::string& text) : tree(kit::parseTree(text)) { place(tree, "", nodes); }
  std::vector<kit::TreeNode> tree;
  std::vector<Placed> nodes;
};

}  // namespace

MergeCase::MergeCase(const ThreeTrees& trees) {
  const PlacedTree base(trees.base);
  const PlacedTree truth(trees.truth);
  const PlacedTree client(trees.client);
  for (const PlacedTree* side : {&base, &truth}) {
    for (const Placed& each : side->nodes) {
      _records.emplace(each.node->label, static_cast<RecordId>(_records.size() + 1));
    }
  }
  const auto recordOf = [this](const std::string& label) { return label.empty() ? kRoot : record(label); };
  std::set<std::string> live;
  for (const Placed& each : truth.nodes) {
    const auto place = static_cast<std::int64_t>(live.size() + 1) << 20;
    _input.truth.push_back({.id = record(each.node->label),
                            .entity = each.entity(),
                            .parent = recordOf(each.parent),
                            .place = place,
                            .content = each.content(),
                            .revision = 1});
    live.insert(each.node->label);
  }
  for (const Placed& each : base.nodes) {
    const std::string& label = each.node->label;
    if (!live.contains(label)) {
      _input.truth.push_back({.id = record(label),
                              .entity = each.entity(),
                              .deleted = true,
                              .parent = recordOf(each.parent),
                              .content = each.content(),
                              .revision = 2});
    }
    _input.base.push_back({.localId = localId(label),
                           .record = record(label),
                           .parent = recordOf(each.parent),
                           .entity = each.entity(),
                           .position = each.position,
                           .content = each.content()});
  }
  _input.client.emplace();
  for (const Placed& each : client.nodes) {
    const String parent = each.parent.empty() ? String() : localId(each.parent);
    _input.client->push_back(
        {localId(each.node->label), parent, each.entity(), each.position, each.content()});
  }
  _input.refresh = trees.refresh;
  _input.nextRecord = static_cast<RecordId>(_records.size() + 1);
  _input.revision = 10;
}

void MergeCase::run() { _result = merge(_input); }

std::string MergeCase::labelOf(RecordId record) const {
  for (const auto& [label, id] : _records) {
    if (id == record) return label;
  }
  for (const BaseRecord& base : _result.base) {
    if (base.record == record && base.localId) return base.localId.toString().substr(2);
  }
  return "?";
}

std::string MergeCase::truth() const { return truth(changedTruth(_input.truth, _result.truthChanges)); }

std::string MergeCase::truth(const std::vector<TruthRecord>& records) const {
  return printTruth(records, [this](const TruthRecord& record) { return labelOf(record.id); });
}

std::string MergeCase::held(const std::vector<BaseRecord>& base) const {
  std::vector<const BaseRecord*> held;
  for (const BaseRecord& record : base) {
    if (!record.notHeld) held.push_back(&record);
  }
  std::stable_sort(held.begin(), held.end(), [](const BaseRecord* a, const BaseRecord* b) {
    if (a->position != b->position) return a->position < b->position;
    return a->content.name.view() < b->content.name.view();
  });
  const auto childrenOf = [&held](const BaseRecord* folder) {
    std::vector<const BaseRecord*> children;
    std::copy_if(held.begin(), held.end(), std::back_inserter(children), [&](const BaseRecord* record) {
      return record->parent == (folder ? folder->record : kRoot);
    });
    return children;
  };
  const auto node = [this](const BaseRecord* record) {
    return nodeOf(labelOf(record->record), record->entity, record->content);
  };
  const BaseRecord* const root = nullptr;
  return kit::printTree(kit::treeBelow(root, childrenOf, node));
}

std::string MergeCase::changes() const {
  std::string text = _result.deleteAllFirst ? "all" : "";
  for (const ClientChange& change : _result.clientChanges) {
    if (!text.empty()) text += " ";
    text += change.type == LoomerChangeTypeAdd ? "+" : change.type == LoomerChangeTypeModify ? "~" : "-";
    text += labelOf(change.record);
  }
  return text;
}

std::string MergeCase::losses() const {
  std::string text;
  for (const Loss& loss : _result.losses) {
    if (!text.empty()) text += "; ";
    text += loss.attribute + " of " + labelOf(loss.record) + ": client " + loss.clientValue + ", truth " +
            loss.truthValue + ", " + (loss.clientWon ? "client" : "truth") + " wins";
  }
  return text;
}

}  // namespace corvane::loomer::test
