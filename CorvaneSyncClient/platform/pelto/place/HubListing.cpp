#include "CorvaneSyncClient/platform/pelto/place/HubListing.h"

#include <charconv>
#include <cstdint>
#include <string>

namespace corvane::pelto {

namespace {

constexpr std::string_view kEnd = "end\n";

template <typename Number>
std::optional<Number> takeNumber(std::string_view& line) {
  Number number{};
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  const auto length = static_cast<std::size_t>(end - line.data());
  if (error != std::errc() || length == line.size() || *end != ' ') return std::nullopt;
  line.remove_prefix(length + 1);
  return number;
}

/// Reads "BYTES SECONDS-SINCE-1970 NAME".
std::optional<PlaceObject> objectIn(std::string_view line) {
  const auto bytes = takeNumber<std::uint64_t>(line);
  const auto seconds = bytes ? takeNumber<std::int64_t>(line) : std::nullopt;
  if (!seconds || line.empty()) return std::nullopt;
  return PlaceObject{std::string(line), *bytes, Date{static_cast<double>(*seconds) - kSecondsFrom1970To2001}};
}

}  // namespace

std::optional<std::vector<PlaceObject>> readHubListing(std::string_view bytes) {
  std::vector<PlaceObject> objects;
  while (bytes != kEnd) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    auto object = objectIn(bytes.substr(0, end));
    if (!object) return std::nullopt;
    objects.push_back(*std::move(object));
    bytes.remove_prefix(end + 1);
  }
  return objects;
}

}  // namespace corvane::pelto
