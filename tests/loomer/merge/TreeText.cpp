#include "tests/loomer/merge/TreeText.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace corvane::loomer::test {
namespace {

class Parser {
 public:
  explicit Parser(const std::string& text) : _text(text) {}

  std::vector<LabelledNode> run() {
    children(0);
    if (_at != _text.size()) throw std::invalid_argument("tree text: " + _text);
    return std::move(_nodes);
  }

 private:
  bool takes(char wanted) {
    if (_at == _text.size() || _text[_at] != wanted) return false;
    ++_at;
    return true;
  }

  std::string word() {
    const std::size_t end = std::min(_text.find_first_of(" ()=@*!", _at), _text.size());
    std::string result = _text.substr(_at, end - _at);
    _at = end;
    return result;
  }

  void children(std::size_t parent) {
    std::int32_t position = 0;
    while (_at < _text.size() && _text[_at] != ')') {
      if (takes(' ')) continue;
      node(parent, position++);
    }
  }

  void node(std::size_t parent, std::int32_t position) {
    LabelledNode node;
    node.label = word();
    node.parent = parent;
    node.position = position;
    node.content.name = String(node.label);
    node.content.url = String("http://" + node.label);
    if (takes('=')) node.content.name = optional(word());
    if (takes('@')) node.content.url = optional(word());
    node.content.tabGroup = takes('*');
    node.content.special = takes('!');
    if (node.content.special) node.position = -2;
    const bool folder = takes('(');
    if (folder) {
      node.entity = Entity::folder;
      node.content.url = String();
    }
    _nodes.push_back(std::move(node));
    if (!folder) return;
    children(_nodes.size());
    if (!takes(')')) throw std::invalid_argument("tree text: " + _text);
  }

  static String optional(const std::string& text) { return text.empty() ? String() : String(text); }

  const std::string& _text;
  std::size_t _at = 0;
  std::vector<LabelledNode> _nodes;
};

std::string printNode(const std::string& label, Entity entity, const Content& content) {
  std::string text = label;
  if (!(content.name == std::string_view(label))) text += "=" + content.name.toString();
  if (entity == Entity::bookmark && !(content.url == std::string_view("http://" + label))) {
    text += "@" + content.url.toString();
  }
  return text + (content.tabGroup ? "*" : "") + (content.special ? "!" : "");
}

struct Printed {
  RecordId record;
  RecordId parent;
  Entity entity;
  std::string text;
};

/// `nodes` with siblings in their order.
std::string printTree(const std::vector<Printed>& nodes) {
  const std::function<std::string(RecordId)> print = [&](RecordId parent) {
    std::string text;
    for (const Printed& node : nodes) {
      if (node.parent != parent) continue;
      if (!text.empty()) text += " ";
      text += node.text;
      if (node.entity == Entity::folder) text += "(" + print(node.record) + ")";
    }
    return text;
  };
  return print(kRoot);
}

}  // namespace

std::vector<LabelledNode> parseTree(const std::string& text) { return Parser(text).run(); }

MergeCase::MergeCase(const ThreeTrees& trees) {
  const std::vector<LabelledNode> base = parseTree(trees.base);
  const std::vector<LabelledNode> truth = parseTree(trees.truth);
  const std::vector<LabelledNode> client = parseTree(trees.client);
  for (const std::vector<LabelledNode>* side : {&base, &truth}) {
    for (const LabelledNode& node : *side) {
      _records.emplace(node.label, static_cast<RecordId>(_records.size() + 1));
    }
  }
  const auto recordAt = [this](const std::vector<LabelledNode>& side, std::size_t at) {
    return at == 0 ? kRoot : _records.at(side[at - 1].label);
  };
  std::map<std::string, bool> live;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    const LabelledNode& node = truth[i];
    live[node.label] = true;
    _input.truth.push_back({record(node.label), node.entity, recordAt(truth, node.parent),
                            static_cast<std::int64_t>(i + 1) << 20, node.content, 1, false});
  }
  for (const LabelledNode& node : base) {
    if (!live[node.label]) {
      _input.truth.push_back(
          {record(node.label), node.entity, recordAt(base, node.parent), 0, node.content, 2, true});
    }
    BaseRecord record;
    record.localId = localId(node.label);
    record.record = _records.at(node.label);
    record.entity = node.entity;
    record.parent = recordAt(base, node.parent);
    record.position = node.position;
    record.content = node.content;
    _input.base.push_back(record);
  }
  _input.client.emplace();
  for (const LabelledNode& node : client) {
    const String parent = node.parent == 0 ? String() : localId(client[node.parent - 1].label);
    _input.client->push_back({localId(node.label), parent, node.entity, node.position, node.content});
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

std::string MergeCase::truth() const {
  std::map<RecordId, TruthRecord> records;
  for (const TruthRecord& record : _input.truth) records[record.id] = record;
  for (const TruthChange& change : _result.truthChanges) records[change.after.id] = change.after;
  std::vector<TruthRecord> live;
  for (const auto& [id, record] : records) {
    if (!record.deleted) live.push_back(record);
  }
  std::sort(live.begin(), live.end(), [](const auto& a, const auto& b) { return a.place < b.place; });
  std::vector<Printed> printed;
  for (const TruthRecord& record : live) {
    printed.push_back({record.id, record.parent, record.entity,
                       printNode(labelOf(record.id), record.entity, record.content)});
  }
  return printTree(printed);
}

std::string MergeCase::heldByClient() const {
  std::vector<BaseRecord> held;
  for (const BaseRecord& record : _result.base) {
    if (!record.notHeld) held.push_back(record);
  }
  std::stable_sort(held.begin(), held.end(), [](const BaseRecord& a, const BaseRecord& b) {
    if (a.position != b.position) return a.position < b.position;
    return a.content.name.view() < b.content.name.view();
  });
  std::vector<Printed> printed;
  for (const BaseRecord& record : held) {
    printed.push_back({record.record, record.parent, record.entity,
                       printNode(labelOf(record.record), record.entity, record.content)});
  }
  return printTree(printed);
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
