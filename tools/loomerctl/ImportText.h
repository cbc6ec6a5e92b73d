#pragma once

#include "CorvaneSyncClient/platform/loomer/edit/ImportPlan.h"
#include "tools/loomerctl/Output.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane::loomerctl {

/// One line for each folder and bookmark that an import adds, and one for each thing that it leaves out;
/// icons and dates are not listed.
void printImport(Output& out, const BrowserBookmarks& file, const loomer::ImportPlan& plan);

/// How much of each kind is left out, and how many entries lay in no folder; nothing where there is neither.
void printLeftOut(Output& out, const BrowserBookmarks& file);

}  // namespace corvane::loomerctl
