// `enable` and `disable`.

#include <algorithm>
#include <filesystem>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Programs.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserClients.h"
#include "tools/loomerctl/UserUnits.h"

namespace corvane::loomerctl {

namespace {

// Where the guide was installed with this program, as it stands in a source tree otherwise.
std::string guide() {
  const std::filesystem::path prefix = std::filesystem::path(ownDirectory()).parent_path();
  const std::string installed = (prefix / "share/doc/corvane-sync/guide.md").string();
  return Platform::current().files.attributesIfKnown(installed) ? installed : "docs/guide.md";
}

// What does the same without systemd.
Status sayWhatToDoInstead(Output& err, const std::string& problem) {
  err.write(
      "loomerctl: " +
      tr("No systemd manager runs for you, so that no unit can be switched on: %1", printable(problem)) +
      "\n\n" + tr("With cron, add this line by `crontab -e`:") + "\n\n    */15 * * * * " +
      printable(ownDirectory()) + "/loomerctl sync --unattended\n\n" +
      tr("How to sync at each change as well, without systemd, tells %1 in \"Running by itself\".",
         printable(guide())) +
      '\n');
  return statusRefused;
}

}  // namespace

Status enableClients(Invocation& run) {
  const std::vector<String> clients =
      run.options.clients.empty() ? registeredClients() : namedClients(run.options.clients);
  if (const std::string problem = problemWithUserManager(); !problem.empty())
    return sayWhatToDoInstead(run.err, problem);
  enableUnits(clients);
  for (const String& each : enabledUnits().clients) {
    run.out.write(
        tr("%1 is synced when its bookmarks change, and every 15 minutes.", printable(each.view())) + '\n');
  }
  return statusFine;
}

Status disableClients(Invocation& run) {
  const EnabledUnits units = enabledUnits();
  const std::vector<String> clients = namedClients(run.options.clients);
  for (const String& each : clients) {
    if (std::find(units.clients.begin(), units.clients.end(), each) == units.clients.end())
      throw Refused{tr("\"%1\" is not switched on.", each.toString())};
  }
  if (!units.timer && units.clients.empty()) throw Refused{tr("Nothing is switched on.")};
  disableUnits(clients);
  const std::vector<String> remaining = enabledUnits().clients;
  if (remaining.empty()) run.out.write(tr("No bookmarks are synced by themselves any more.") + '\n');
  for (const String& each : remaining) {
    run.out.write(tr("%1 is still synced by itself.", printable(each.view())) + '\n');
  }
  return statusFine;
}

}  // namespace corvane::loomerctl
