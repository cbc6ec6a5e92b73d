#pragma once

#include "tools/loomerctl/CommandLine.h"

// The commands. Each prints what it is asked for and answers the exit status; it raises Refused,
// OutputClosed, and what the output and the store raise.

namespace corvane::loomerctl {

// Overview.cpp
Status showStatus(Invocation& run);
Status showClients(Invocation& run);
// Tree.cpp
Status showTree(Invocation& run);
// Record.cpp
Status showRecord(Invocation& run);
// Log.cpp
Status showSessions(Invocation& run);
Status showChanges(Invocation& run);
// Check.cpp
Status checkStore(Invocation& run);
// ClientCommands.cpp
Status showPlan(Invocation& run);
Status approvePlan(Invocation& run);
Status restoreClient(Invocation& run);
Status resetClient(Invocation& run);
// AccountCommands.cpp
Status setAccount(Invocation& run);
Status showAccount(Invocation& run);
Status testAccount(Invocation& run);
Status removeAccount(Invocation& run);
// UndoCommand.cpp
Status undoSession(Invocation& run);
// Transfer.cpp
Status exportFile(Invocation& run);
Status importFile(Invocation& run);

}  // namespace corvane::loomerctl
