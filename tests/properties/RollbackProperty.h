#pragma once

#include "tests/loomer/engine/MemoryHub.h"

namespace corvane {

/// Several computers over one account of the online service, which is put back to states that it once had,
/// also to those that it had lost by that: random edits and undone sessions before, in the part that is lost,
/// and after. However often that happens, and though computers go for good whose edits another one has seen,
/// every edit ends on every computer that no other edit contends with, made without knowing of it; what was
/// deleted by somebody who knew all edits of it stays deleted, what an undo brought back lives, and nothing
/// else goes. Draws from RapidCheck; raises what does not hold.
void editsSurviveRollbacks(MemoryHub::Kind service);

}  // namespace corvane
