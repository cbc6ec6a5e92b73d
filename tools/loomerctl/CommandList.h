#pragma once

#include "tools/loomerctl/Invocation.h"

// The commands. Each prints what it is asked for and answers the exit status. Each raises Refused,
// OutputClosed, and what the output and the store raise.

namespace corvane::loomerctl {

/// `status`
Status showStatus(Invocation& run);
/// `watch`
Status watchSyncs(Invocation& run);
/// `diff`
Status showDiff(Invocation& run);
/// `clients`
Status showClients(Invocation& run);
/// `tree`
Status showTree(Invocation& run);
/// `show`
Status showRecord(Invocation& run);
/// `sessions`
Status showSessions(Invocation& run);
/// `changes`
Status showChanges(Invocation& run);
/// `check`
Status checkStore(Invocation& run);
/// `plan`
Status showPlan(Invocation& run);
/// `approve`
Status approvePlan(Invocation& run);
/// `restore`
Status restoreClient(Invocation& run);
/// `reset`
Status resetClient(Invocation& run);
/// `account set`
Status setAccount(Invocation& run);
/// `account show`
Status showAccount(Invocation& run);
/// `account test`
Status testAccount(Invocation& run);
/// `account remove`
Status removeAccount(Invocation& run);
/// `account invite`
Status inviteComputer(Invocation& run);
/// `account join`
Status joinAccount(Invocation& run);
/// `account passphrase`, and with --remove its end
Status setPassphrase(Invocation& run);
/// `account computers`
Status showComputers(Invocation& run);
/// `account remove-computer`
Status removeComputer(Invocation& run);
/// `account new-key`
Status changeKey(Invocation& run);
/// `sync`
Status syncClients(Invocation& run);
/// `enable`
Status enableClients(Invocation& run);
/// `disable`
Status disableClients(Invocation& run);
/// `browser install`
Status installBrowser(Invocation& run);
/// `browser remove`
Status removeBrowser(Invocation& run);
/// `browser status`
Status showBrowsers(Invocation& run);
/// `undo`
Status undoSession(Invocation& run);
/// `export`
Status exportFile(Invocation& run);
/// `report`
Status writeReportFile(Invocation& run);
/// `import`
Status importFile(Invocation& run);

}  // namespace corvane::loomerctl
