#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"

#include <algorithm>
#include <cmath>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"
#include "CorvaneSyncClient/platform/pelto/seal/SealedForm.h"

namespace corvane::pelto {

namespace {

constexpr const char* kName = "Name";
constexpr const char* kPublicKey = "PublicKey";
constexpr const char* kLastSeen = "LastSeen";

bool isBefore(const RosterEntry& entry, const String& computer) {
  return entry.computer.view() < computer.view();
}

bool isUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Step step = decodeUtf8(text, at);
    if (!step || isSurrogate(step.codePoint)) return false;
    at += step.length;
  }
  return true;
}

// Also of entries that a caller made.
void check(const RosterEntry& entry, const std::string& where) {
  uuidFrom(entry.computer ? Value(entry.computer) : Value(), where);
  if (entry.name.empty() || entry.name.size() > kLongestComputerName || !isUtf8(entry.name))
    failForm(where, "no name of 1 to 255 bytes of UTF-8");
  if (entry.publicKey.size() != ComputerKeys::kKeyBytes) failForm(where, "no public key of 32 bytes");
  if (!std::isfinite(entry.lastSeen.seconds)) failForm(where, "no date");
}

RosterEntry entryFrom(const Value& value, const std::string& where) {
  const Dictionary& fields = dictionaryOf(value, {kComputer, kName, kPublicKey, kLastSeen}, where);
  const auto lastSeen = fields.date(kLastSeen);
  if (!lastSeen) failForm(where, "no date");
  return {uuidIn(fields, kComputer, where), fields.string(kName).toString(),
          bytesIn(fields, kPublicKey, ComputerKeys::kKeyBytes, where), *lastSeen};
}

}  // namespace

const RosterEntry* Roster::find(const String& computer) const {
  const auto at = std::lower_bound(_entries.begin(), _entries.end(), computer, isBefore);
  return at != _entries.end() && at->computer == computer ? &*at : nullptr;
}

void Roster::set(RosterEntry entry) {
  check(entry, "computer " + entry.computer.toString());
  const auto at = std::lower_bound(_entries.begin(), _entries.end(), entry.computer, isBefore);
  if (at != _entries.end() && at->computer == entry.computer) {
    *at = std::move(entry);
    return;
  }
  if (_entries.size() == kMostComputers) failForm("computers", "more than " + std::to_string(kMostComputers));
  _entries.insert(at, std::move(entry));
}

bool Roster::remove(const String& computer) {
  return std::erase_if(_entries, [&](const RosterEntry& each) { return each.computer == computer; }) > 0;
}

Value valueOf(const Roster& roster) {
  Array computers;
  for (const RosterEntry& each : roster.entries()) {
    computers.append(Dictionary{{kComputer, each.computer},
                                {kName, each.name},
                                {kPublicKey, Data(each.publicKey)},
                                {kLastSeen, each.lastSeen}});
  }
  return computers;
}

Roster rosterFrom(const Value& value) {
  Roster roster;
  std::size_t number = 0;
  for (const Value& each : arrayOf(value, kMostComputers, "computers")) {
    const std::string where = "computer " + std::to_string(++number);
    RosterEntry entry = entryFrom(each, where);
    check(entry, where);
    if (!roster.entries().empty() && !isBefore(roster.entries().back(), entry.computer))
      failForm(where, kOutOfPlace);
    roster.set(std::move(entry));
  }
  return roster;
}

}  // namespace corvane::pelto
