// `account computers`, `remove-computer` and `new-key`.

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/JsonWriter.h"
#include "tools/loomerctl/Passphrases.h"
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
      throw Refused{
          tr("Several computers are called %1. `account computers` shows their identifiers.", quoted(name))};
    found = &each;
  }
  if (!found)
    throw Refused{tr("The account has no computer %1. `account computers` shows them.", quoted(name))};
  return *found;
}

// The key has changed since `account` was read.
void tellOfNewKey(Invocation& run, const Account& account, const Roster& roster) {
  std::string others;
  for (const RosterEntry& each : roster.entries()) {
    if (!(each.computer == account.computer)) others += (others.empty() ? "" : " ") + quoted(each.name);
  }
  run.out.write(tr("These get the new key when they sync next: %1.", others.empty() ? tr("none") : others) +
                '\n' + tr("Invitations and the passphrase from before no longer let anybody in.") + '\n');
  try {
    removePassphrase(*pelto::placeOf(account, kPlaceSeconds), account);
  } catch (const PlatformException& exception) {
    // It leads to the earlier key, which lets nobody in.
    writeMessage(run.err,
                 tr("The passphrase from before can't be removed from the place: %1", exception.message()));
  }
}

}  // namespace

Status showComputers(Invocation& run) {
  const Account account = accountOrRefuse();
  const Roster roster = pelto::computersOf(account, kPlaceSeconds);
  if (run.options.json) {
    writeJson(run, roster, account);
    return statusFine;
  }
  Table table(run.out, {{tr("Name")}, {tr("Computer")}, {tr("Last seen")}});
  for (const RosterEntry& each : roster.entries()) {
    const bool isThisOne = each.computer == account.computer;
    table.add({printable(each.name), printable(each.computer.view()),
               isThisOne ? tr("this one") : timeText(each.lastSeen)});
  }
  table.finish();
  return statusFine;
}

Status removeComputer(Invocation& run) {
  const Account account = accountOrRefuse();
  const RosterEntry removed = computerNamed(pelto::computersOf(account, kPlaceSeconds), run.options.argument);
  if (removed.computer == account.computer)
    throw Refused{tr("That is this computer. `loomerctl account remove` forgets the account here.")};
  const Roster remaining = pelto::changeAccountKey(account, removed.computer, kPlaceSeconds);
  run.out.write(
      tr("%1 is taken out of the account. What it has got it keeps; from what comes it is locked out.",
         quoted(removed.name)) +
      '\n');
  tellOfNewKey(run, account, remaining);
  run.out.write(tr("If the computer could fall into wrong hands, change the place's password or key, or "
                   "revoke the computer's token.") +
                '\n');
  return statusFine;
}

Status changeKey(Invocation& run) {
  const Account account = accountOrRefuse();
  const Roster roster = pelto::changeAccountKey(account, {}, kPlaceSeconds);
  run.out.write(tr("The account has a new key. Whoever has the earlier one can still read what was there.") +
                '\n');
  tellOfNewKey(run, account, roster);
  return statusFine;
}

}  // namespace corvane::loomerctl
