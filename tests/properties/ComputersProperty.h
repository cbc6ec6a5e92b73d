#pragma once

#include "tests/loomer/engine/MemoryHub.h"

namespace corvane {

/// Several computers with an engine and one or two clients each, over one account of the online service:
/// random edits, sessions, failures, kills and crossings at every call of the service, tombstones dropped,
/// the service emptied and put back to earlier states, switched off, and full. When edits stop, two rounds of
/// sessions in a random order make one tree everywhere, in which nothing is missing that nobody deleted and
/// nothing is there twice; further sessions change nothing, and a new computer is given the very same. Draws
/// from RapidCheck; raises what does not hold.
void computersConverge(MemoryHub::Kind service);

}  // namespace corvane
