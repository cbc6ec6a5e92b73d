// `account invite`, `join` and `passphrase`.

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Passphrases.h"
#include "tools/loomerctl/PlaceAccount.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/QrCode.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserUnits.h"

namespace corvane::loomerctl {

namespace {

using pelto::Account;
using pelto::Invitation;
using pelto::PlaceAddress;

Invitation invitationTo(const Account& account) {
  const pelto::Membership& membership = account.membership;
  Invitation invitation{account.url,
                        {},
                        {},
                        membership.account,
                        membership.generation,
                        pelto::AccountKey(membership.key->bytes()),
                        pelto::newestKnown(account)};
  // Each computer has a token of its own at a hub, so that it can be revoked alone.
  if (pelto::parsePlaceAddress(account.url).kind != PlaceAddress::Kind::hub) {
    invitation.user = membership.credentials.user;
    invitation.secret = membership.credentials.secret;
  }
  return invitation;
}

// Whether nothing that could follow makes more of it.
bool isWholeInvitation(const std::string& text) {
  try {
    pelto::invitationFrom(text);
    return true;
  } catch (const pelto::InvitationException& exception) {
    return !exception.isIncomplete();
  }
}

Invitation readInvitation(SecretInput& input) {
  std::string text = input.lines(tr("Paste or type the invitation, in as many lines as you like; an empty "
                                    "line ends it (not shown as you type):"),
                                 isWholeInvitation);
  const pelto::WipeAtEnd wiping(text);
  return pelto::invitationFrom(text);
}

Status keepJoined(Invocation& run, const Account& account) {
  {
    Progress progress(run.err);
    progress.say(tr("Reading what the place holds"));
    pelto::checkJoinable(account, kPlaceSeconds);
  }
  pelto::writeAccount(pelto::userAccountPath(), account);
  pelto::noteAccountReached(pelto::userAccountPath(), account, Platform::current().clock.now());
  adaptUnitsToAccount();
  run.out.write(tr("This computer has joined the account at %1.",
                   printable(tr(pelto::parsePlaceAddress(account.url).description()))) +
                '\n' + tr("`corvanetool --register` switches bookmarks on.") + '\n');
  return statusFine;
}

Status joinByPassphrase(Invocation& run, SecretInput& input) {
  const std::string& text = run.options.argument;
  const PlaceAddress address = pelto::parsePlaceAddress(text);
  pelto::PlaceCredentials credentials = askCredentials(address, input);
  std::string passphrase = input.line(tr("Passphrase (not shown as you type):"));
  const pelto::WipeAtEnd wiping(passphrase);
  const auto place = pelto::makePlace(address, credentials, after(kPlaceSeconds));
  const auto invitation = invitationUnder(*place, passphrase);
  if (!invitation) throw Refused{tr("The passphrase opens no account at %1.", place->description())};
  return keepJoined(run, invitedAccount(*invitation, text, std::move(credentials)));
}

std::string newPassphrase(SecretInput& input) {
  std::string passphrase = input.line(tr("New passphrase (not shown as you type):"));
  std::string again = input.line(tr("The same again:"));
  const pelto::WipeAtEnd wiping(again);
  if (passphrase == again) return passphrase;
  pelto::wipe(passphrase);
  throw Refused{tr("The two are not the same; nothing was changed.")};
}

}  // namespace

Status inviteComputer(Invocation& run) {
  const Account account = accountOrRefuse();
  const Invitation invitation = invitationTo(account);
  std::string text = run.options.words ? pelto::wordsOf(invitation) : pelto::lineOf(invitation);
  const pelto::WipeAtEnd wiping(text);
  writeMessage(run.err, tr("Whoever sees this can read and change the bookmarks. Type it into `loomerctl "
                           "account join` on the other computer."));
  run.err.flush();
  run.out.write(run.options.qr ? qrCode(text) : text + '\n');
  return statusFine;
}

Status joinAccount(Invocation& run) {
  refuseIfSet();
  SecretInput input;
  if (!run.options.argument.empty()) return joinByPassphrase(run, input);
  const Invitation invitation = readInvitation(input);
  const PlaceAddress address = pelto::parsePlaceAddress(invitation.address);
  pelto::PlaceCredentials credentials{invitation.user, invitation.secret};
  if (address.kind == PlaceAddress::Kind::hub) credentials = askCredentials(address, input);
  return keepJoined(run, invitedAccount(invitation, invitation.address, std::move(credentials)));
}

Status setPassphrase(Invocation& run) {
  const Account account = accountOrRefuse();
  const auto place = pelto::placeOf(account, kPlaceSeconds);
  if (run.options.remove) {
    if (!removePassphrase(*place, account)) throw Refused{tr("The account has no passphrase.")};
    run.out.write(tr("The passphrase is removed. Whoever knows it and has copied the place before has the "
                     "account's key all the same; `loomerctl account new-key` changes that.") +
                  '\n');
    return statusFine;
  }
  SecretInput input;
  std::string passphrase = newPassphrase(input);
  const pelto::WipeAtEnd wiping(passphrase);
  Invitation invitation = invitationTo(account);
  // Whoever joins by passphrase has named the place, and been let in.
  invitation.address = invitation.user = std::string();
  invitation.secret = {};
  putUnderPassphrase(*place, account, invitation, passphrase);
  run.out.write(tr("`loomerctl account join PLACE` asks for the passphrase on another computer.") + '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
