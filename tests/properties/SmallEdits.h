#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/loomer/merge/ClientSimulation.h"

namespace corvane::loomer::test {

/// The title and address of the one bookmark that both sides may come to add.
inline constexpr const char* kCommonTitle = "common";

/// What a side's edits came to.
struct Outcome {
  ClientSimulation simulation;
  std::string edits;  ///< one sequence that led there, for people
};

/// Every tree that a person makes of `start` with at most `edits` edits, `start` itself first, each once.
///
/// An edit adds a bookmark or a folder at the front or the end of a folder, adds the common bookmark to the
/// root, renames, gives a bookmark another address, moves an entry to any place of any folder (its own
/// included), deletes an entry with all in it, or puts a new folder around an entry. `side` marks new titles
/// and addresses, so that both sides' differ. Trees that differ only in what their new entries are called are
/// one.
std::vector<Outcome> outcomesOf(const ClientSimulation& start, std::size_t edits, const std::string& side);

}  // namespace corvane::loomer::test
