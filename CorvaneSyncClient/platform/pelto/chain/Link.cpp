#include "CorvaneSyncClient/platform/pelto/chain/Link.h"

#include <algorithm>
#include <charconv>

namespace corvane::pelto::chain {

namespace {

constexpr std::size_t kBytesInName = 16;

// A decimal number without sign and leading zeros; absent for other text.
template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isPlain = !text.empty() && text[0] >= '1' && text[0] <= '9';
  if (!isPlain || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

bool isHexadecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char each) { return (each >= '0' && each <= '9') || (each >= 'a' && each <= 'f'); });
}

}  // namespace

std::string beginning() { return std::string(kHashBytes, '\0'); }

Slot slotAfter(std::int64_t number, std::string_view hash, int attempt) {
  Slot slot{number + 1, {}, attempt};
  for (const char each : hash.substr(0, kBytesInName)) {
    constexpr const char* kDigits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(each);
    slot.after += kDigits[byte >> 4];
    slot.after += kDigits[byte & 15];
  }
  return slot;
}

std::string nameOf(const Slot& slot) {
  const std::string name = std::to_string(slot.number) + "-" + slot.after;
  return slot.attempt == 0 ? name : name + "-" + std::to_string(slot.attempt);
}

std::optional<Slot> slotNamed(std::string_view name) {
  const std::size_t dash = name.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view after = name.substr(dash + 1, 2 * kBytesInName);
  const auto number = numberIn<std::int64_t>(name.substr(0, dash));
  if (!number || after.size() != 2 * kBytesInName || !isHexadecimal(after)) return std::nullopt;
  Slot slot{*number, std::string(after)};
  const std::string_view rest = name.substr(dash + 1 + after.size());
  if (rest.empty()) return slot;
  const auto attempt = rest[0] == '-' ? numberIn<int>(rest.substr(1)) : std::nullopt;
  if (!attempt || *attempt > kMostAttempts) return std::nullopt;
  slot.attempt = *attempt;
  return slot;
}

std::string nameOf(const Link& link) {
  return nameOf(slotAfter(link.number - 1, link.previous, link.attempt));
}

}  // namespace corvane::pelto::chain
