// `account computers` and `remove-computer`.

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/JsonWriter.h"
#include "tools/loomerctl/PlaceAccount.h"
#include "tools/loomerctl/Table.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {

using pelto::Account;
using pelto::Roster;
using pelto::RosterEntry;

void writeJson(Invocation& run, const Roster& roster, const Account& account) {
  JsonWriter json(run.out);
  json.beginArray();
  for (const RosterEntry& each : roster.entries()) {
    json.beginObject();
    json.member("name", each.name);
    json.member("computer", each.computer);
    json.member("lastSeen", std::optional<Date>(each.lastSeen));
    json.member("isThisOne", each.computer == account.computer);
    json.endObject();
  }
  json.endArray();
  json.finish();
}

// The one computer that the user means, by its name or its identifier.
RosterEntry computerNamed(const Roster& roster, const std::string& name) {
  const RosterEntry* found = nullptr;
  for (const RosterEntry& each : roster.entries()) {
    if (each.computer == name) return each;
    if (each.name != name) continue;
    if (found)
      throw Refused{"Several computers are called " + quoted(name) +
                    ". `account computers` shows their identifiers."};
    found = &each;
  }
  if (!found)
    throw Refused{"The account has no computer " + quoted(name) + ". `account computers` shows them."};
  return *found;
}

}  // namespace

Status showComputers(Invocation& run) {
  const Account account = placeAccountOrRefuse();
  const Roster roster = pelto::computersOf(account, kPlaceSeconds);
  if (run.options.json) {
    writeJson(run, roster, account);
    return statusFine;
  }
  Table table(run.out, {{"Name"}, {"Computer"}, {"Last seen"}});
  for (const RosterEntry& each : roster.entries()) {
    const bool isThisOne = each.computer == account.computer;
    table.add({printable(each.name), printable(each.computer.view()),
               isThisOne ? "this one" : timeText(each.lastSeen)});
  }
  table.finish();
  return statusFine;
}

Status removeComputer(Invocation& run) {
  const Account account = placeAccountOrRefuse();
  const RosterEntry removed = computerNamed(pelto::computersOf(account, kPlaceSeconds), run.options.argument);
  if (removed.computer == account.computer)
    throw Refused{"That is this computer. `loomerctl account remove` forgets the account here."};
  const Roster remaining = pelto::changeAccountKey(account, removed.computer, kPlaceSeconds);
  run.out.write(quoted(removed.name) +
                " is taken out of the account. What it has got it keeps; from what comes it is " +
                "locked out.\nThese get the new key when they sync next:");
  for (const RosterEntry& each : remaining.entries())
    if (!(each.computer == account.computer)) run.out.write(' ' + quoted(each.name));
  run.out.write(remaining.entries().size() > 1 ? ".\n" : " none.\n");
  run.out.write(
      "Invitations and the passphrase from before no longer hold. If the computer could fall into wrong "
      "hands, change "
      "the place's password or key, or revoke the computer's token.\n");
  return statusFine;
}

}  // namespace corvane::loomerctl
