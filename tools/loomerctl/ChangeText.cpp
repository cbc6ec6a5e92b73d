#include "tools/loomerctl/ChangeText.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Describe.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

std::string headOf(const LoggedChange& change, const Content& content) {
  return '#' + std::to_string(change.record) + ' ' + entityText(change.entity) + ' ' + quoted(content.name);
}

// "  + added    ": of one width whatever the verb.
std::string verbText(const char* sign, const std::string& verb) {
  const std::size_t width =
      std::max({displayWidth(tr("added")), displayWidth(tr("deleted")), displayWidth(tr("changed"))});
  return std::string("  ") + sign + ' ' + verb + std::string(width + 2 - displayWidth(verb), ' ');
}

std::string whereText(RecordTable& records, const LoggedChange& change, const LoggedState& state) {
  const std::string address = change.entity == Entity::bookmark ? ' ' + quoted(state.content.url) : "";
  return address + ' ' + insideText(records, state.parent);
}

}  // namespace

void printChange(Output& out, RecordTable& records, const LoggedChange& change) {
  if (!change.before && !change.after) return;
  if (!change.before) {
    out.write(verbText("+", tr("added")), Style::added);
    out.write(headOf(change, change.after->content) + whereText(records, change, *change.after) + '\n');
    return;
  }
  if (!change.after) {
    out.write(verbText("-", tr("deleted")), Style::removed);
    out.write(headOf(change, change.before->content) + whereText(records, change, *change.before) + '\n');
    return;
  }
  out.write(verbText("*", tr("changed")) + headOf(change, change.after->content) + '\n');
  for (const AttributeChange& each : attributeChanges(records, *change.before, *change.after)) {
    out.write("      " + each.attribute + ": ");
    out.write(each.before, Style::removed);
    out.write(" → ");
    out.write(each.after, Style::added);
    out.write("\n");
  }
}

void printLoss(Output& out, const Loss& loss) {
  const std::string& winner = loss.clientWon ? loss.clientValue : loss.truthValue;
  const std::string& loser = loss.clientWon ? loss.truthValue : loss.clientValue;
  const std::string record = std::to_string(loss.record);
  const std::string attribute = attributeText(loss.attribute);
  out.write("  ! " +
            (loss.clientWon ? tr("conflict #%1 %2: %3 of the client stood against %4", record, attribute,
                                 quoted(winner), quoted(loser))
                            : tr("conflict #%1 %2: %3 agreed before stood against %4", record, attribute,
                                 quoted(winner), quoted(loser))) +
            '\n');
}

}  // namespace corvane::loomerctl
