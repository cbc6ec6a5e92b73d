#include "tools/loomerctl/ChangeText.h"

#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

std::string headOf(const LoggedChange& change, const Content& content) {
  return '#' + std::to_string(change.record) + ' ' + entityName(change.entity) + ' ' + quoted(content.name);
}

std::string whereText(RecordTable& records, const LoggedChange& change, const LoggedState& state) {
  std::string text;
  if (change.entity == Entity::bookmark) text = ' ' + quoted(state.content.url);
  return text + " in " + folderText(records, state.parent);
}

}  // namespace

void printChange(Output& out, RecordTable& records, const LoggedChange& change) {
  if (!change.before && !change.after) return;
  if (!change.before) {
    out.write("  + added    ", Style::added);
    out.write(headOf(change, change.after->content) + whereText(records, change, *change.after) + '\n');
    return;
  }
  if (!change.after) {
    out.write("  - deleted  ", Style::removed);
    out.write(headOf(change, change.before->content) + whereText(records, change, *change.before) + '\n');
    return;
  }
  out.write("  * changed  " + headOf(change, change.after->content) + '\n');
  for (const AttributeChange& each : attributeChanges(records, *change.before, *change.after)) {
    out.write(std::string("      ") + each.attribute + ": ");
    out.write(each.before, Style::removed);
    out.write(" → ");
    out.write(each.after, Style::added);
    out.write("\n");
  }
}

void printLoss(Output& out, const Loss& loss) {
  const std::string& winner = loss.clientWon ? loss.clientValue : loss.truthValue;
  const std::string& loser = loss.clientWon ? loss.truthValue : loss.clientValue;
  out.write("  ! conflict #" + std::to_string(loss.record) + ' ' + printable(loss.attribute) + ": " +
            quoted(winner) + (loss.clientWon ? " of the client" : " agreed before") + " stood against " +
            quoted(loser) + '\n');
}

}  // namespace corvane::loomerctl
