#include "tools/loomerctl/PlaceAccount.h"

#include <utility>

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

using pelto::Account;
using pelto::PlaceAddress;

std::string nameOfComputer() {
  const std::string name = Platform::current().process.hostName();
  return name.empty() ? "a computer" : name;
}

// The secret that the user types next.
pelto::SharedSecret askSecret(SecretInput& input, const std::string& prompt) {
  std::string typed = input.line(prompt);
  const pelto::WipeAtEnd wiping(typed);
  return pelto::SharedSecret(typed);
}

}  // namespace

pelto::PlaceCredentials askCredentials(const PlaceAddress& address, SecretInput& input) {
  switch (address.kind) {
    case PlaceAddress::Kind::directory:
      return {};
    case PlaceAddress::Kind::webDav: {
      std::string user =
          address.user.empty() ? input.line(tr("User (not shown as you type):")) : address.user;
      return {std::move(user), askSecret(input, tr("Password (not shown as you type):"))};
    }
    case PlaceAddress::Kind::s3: {
      std::string user = input.line(tr("Identifier of the access key (not shown as you type):"));
      return {std::move(user), askSecret(input, tr("Secret of the access key (not shown as you type):"))};
    }
    case PlaceAddress::Kind::hub:
      break;
  }
  return {{}, askSecret(input, tr("This computer's token (not shown as you type):"))};
}

Account accountOrRefuse() {
  if (auto account = pelto::userAccount()) return *std::move(account);
  throw Refused{tr("No account is set. `loomerctl account set` sets one.")};
}

void refuseIfSet() {
  try {
    if (!pelto::userAccount()) return;
  } catch (const PlatformException&) {
    return;  // one that cannot be read is none that could be lost
  }
  throw Refused{
      tr("This computer has an account already, whose key would be lost. `loomerctl account remove` forgets "
         "it.")};
}

Account newAccountAt(const std::string& address, pelto::PlaceCredentials credentials) {
  pelto::Membership membership{std::move(credentials),
                               Platform::current().uuids.newUuid().toString(),
                               1,
                               std::make_shared<pelto::AccountKey>(pelto::AccountKey::random()),
                               std::make_shared<pelto::ComputerKeys>(pelto::ComputerKeys::random()),
                               nameOfComputer(),
                               {},
                               {}};
  return {address, Platform::current().uuids.newUuid(), {}, std::move(membership)};
}

Account invitedAccount(const pelto::Invitation& invitation, const std::string& address,
                       pelto::PlaceCredentials credentials) {
  pelto::Membership membership{std::move(credentials),
                               invitation.account,
                               invitation.generation,
                               std::make_shared<pelto::AccountKey>(invitation.key.bytes()),
                               std::make_shared<pelto::ComputerKeys>(pelto::ComputerKeys::random()),
                               nameOfComputer(),
                               {},
                               invitation.newest};
  return {address, Platform::current().uuids.newUuid(), {}, std::move(membership)};
}

std::vector<pelto::PlaceObject> commitsOf(const Account& account, pelto::Place& place) {
  const pelto::Membership& membership = account.membership;
  const pelto::Sealer sealer(*membership.key, membership.account, membership.generation);
  return place.list(sealer.folder() + "/c");
}

}  // namespace corvane::loomerctl
