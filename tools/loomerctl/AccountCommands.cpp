// `account set`, `show`, `test` and `remove`.

#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceProbe.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Input.h"
#include "tools/loomerctl/JsonWriter.h"
#include "tools/loomerctl/PlaceAccount.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"
#include "tools/loomerctl/UserUnits.h"

namespace corvane::loomerctl {

namespace {

using pelto::Account;

// Whether this computer syncs bookmarks with the service, and whether that answers.
struct Answer {
  std::optional<bool> enabled;  // nothing: it does not answer
  std::string problem;          // why it does not
};

Answer ask(const Account& account) {
  try {
    commitsOf(account, *pelto::placeOf(account, kPlaceSeconds));
    pelto::noteAccountReached(pelto::userAccountPath(), account, Platform::current().clock.now());
    return {account.membership.enabled.contains(LoomerDataClass_Bookmarks.toString()), {}};
  } catch (const PlatformException& exception) {
    return {std::nullopt, tr(exception.message())};
  }
}

std::string answerText(bool enabled) {
  return enabled ? tr("The service answers. Bookmarks are synced with it.")
                 : tr("The service answers. Bookmarks are not synced with it; `corvanetool --register` "
                      "switches them on.");
}

// The account that is to be replaced. One whose file cannot be read is no loss, but is mentioned.
std::optional<Account> accountBefore(Output& out) {
  try {
    return pelto::userAccount();
  } catch (const PlatformException& exception) {
    out.write(tr("The earlier account is replaced unread: %1", printable(tr(exception.message()))) + '\n');
    return std::nullopt;
  }
}

// A slow server takes its time for fifty races.
constexpr double kProbeSeconds = 300;

// Raises what the probe raises for a place that is not fit.
void tryPlace(Invocation& run, const Account& account) {
  const auto address = pelto::parsePlaceAddress(account.url);
  std::optional<Progress> progress(std::in_place, run.err);
  progress->say(tr("Racing eight writers for one name, again and again"));
  const auto findings = pelto::probePlace([&] {
    return pelto::makePlace(address, account.membership.credentials, after(kProbeSeconds),
                            pelto::kProbePause);
  });
  progress.reset();
  run.out.write(tr("It is fit: %1; in %2 races of eight writers, one alone won each.", findings.software,
                   std::to_string(findings.rounds)) +
                '\n');
  for (const std::string& each : findings.caveats) run.out.write(tr("But: %1", printable(each)) + '\n');
}

}  // namespace

Status setAccount(Invocation& run) {
  SecretInput input;
  const std::string text = run.options.argument == kStandardStream
                               ? input.line(tr("Address of the account (not shown as you type):"))
                               : run.options.argument;
  const pelto::PlaceAddress address = pelto::parsePlaceAddress(text);
  const auto before = accountBefore(run.out);
  const bool isSame = before && before->url == text;
  if (!isSame) refuseIfSet();
  pelto::PlaceCredentials credentials = askCredentials(address, input);
  Account account = isSame ? *before : newAccountAt(text, {});
  account.membership.credentials = std::move(credentials);
  const auto place = pelto::placeOf(account, kPlaceSeconds);
  run.out.write(tr("Trying %1.", printable(tr(place->description()))) + '\n');
  run.out.flush();
  if (!isSame) tryPlace(run, account);
  commitsOf(account, *place);
  if (isSame) {
    // The key may have changed while the user typed.
    pelto::changeMembership(pelto::userAccountPath(), account, [&](pelto::Membership& membership) {
      membership.credentials = account.membership.credentials;
    });
  } else {
    pelto::writeAccount(pelto::userAccountPath(), account);
  }
  pelto::noteAccountReached(pelto::userAccountPath(), account, Platform::current().clock.now());
  adaptUnitsToAccount();
  run.out.write(
      isSame ? tr("The account stays as it is, with what opens the place now.") + '\n'
             : tr("It keeps the account from now on, sealed with a key that only this computer has.") + '\n' +
                   tr("`corvanetool --register` switches bookmarks on; `loomerctl account invite` lets "
                      "another computer join.") +
                   '\n');
  return statusFine;
}

Status showAccount(Invocation& run) {
  const Account account = accountOrRefuse();
  const Answer answer = ask(account);
  const auto kept = pelto::userAccount();  // the service's answer is recorded there
  const std::optional<Date> reached = kept ? kept->reached : std::nullopt;
  const std::string service = tr(pelto::parsePlaceAddress(account.url).description());
  if (run.options.json) {
    JsonWriter json(run.out);
    json.beginObject();
    json.member("service", service);
    json.member("computer", account.computer);
    json.member("reached", reached);
    json.member("problem", answer.enabled ? String() : String(answer.problem));
    json.member("bookmarksEnabled", answer.enabled);
    json.endObject();
    json.finish();
    return statusFine;
  }
  writeField(run.out, tr("Account"), printable(service));
  writeField(run.out, tr("Computer"), printable(account.computer.view()));
  writeField(run.out, tr("Reached"), reached ? timeText(*reached) : tr("never"));
  writeField(run.out, tr("Now"), answer.enabled ? tr("the service answers") : printable(answer.problem));
  if (!answer.enabled) return statusFine;
  writeField(run.out, tr("Bookmarks"), *answer.enabled ? tr("switched on") : tr("switched off"));
  return statusFine;
}

Status testAccount(Invocation& run) {
  const Answer answer = ask(accountOrRefuse());
  if (!answer.enabled) throw Refused{answer.problem};
  run.out.write(answerText(*answer.enabled) + '\n');
  return statusFine;
}

namespace {

// What the engine recorded about the exchange with the service goes with the account.
bool unregisterServiceClient() {
  const auto store = openStoreIfAny();
  if (!store) return false;
  const auto client = loomer::ClientTable(*store).find(loomer::kHubClientIdentifier);
  if (client) loomer::forgetClient(*store, *client);
  return client.has_value();
}

}  // namespace

Status removeAccount(Invocation& run) {
  const bool removed = pelto::removeAccount(pelto::userAccountPath());
  const bool unregistered = unregisterServiceClient();
  adaptUnitsToAccount();
  if (!removed && !unregistered) throw Refused{tr("There is no account to remove.")};
  run.out.write(tr("The account is removed. The bookmarks stay, here and at the service.") + '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
