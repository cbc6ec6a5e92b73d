#include "tools/loomerctl/TreeWalk.h"

namespace corvane::loomerctl {

using namespace loomer;

TreeWalk::TreeWalk(RecordTable& records, RecordId folder) : _records(records), _start(folder) {
  enter(folder);
}

void TreeWalk::enter(RecordId folder) { _open.push_back({_records.children(folder), 0}); }

const TruthRecord* TreeWalk::next() {
  _closed = 0;
  if (_enterCurrent) {
    const List& list = _open.back();
    enter(list.records[list.at - 1].id);
    _enterCurrent = false;
  }
  while (!_open.empty() && _open.back().at == _open.back().records.size()) {
    _open.pop_back();
    ++_closed;
  }
  if (_open.empty()) return nullptr;
  _depth = _open.size() - 1;
  List& list = _open.back();
  const TruthRecord& record = list.records[list.at++];
  _enterCurrent = record.entity == Entity::folder && record.id != _start;
  return &record;
}

}  // namespace corvane::loomerctl
