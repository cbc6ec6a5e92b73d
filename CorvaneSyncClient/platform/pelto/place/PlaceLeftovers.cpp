#include "CorvaneSyncClient/platform/pelto/place/PlaceLeftovers.h"

#include <sodium.h>

#include <algorithm>
#include <array>

namespace corvane::pelto {

namespace {

constexpr std::string_view kPrefix = "tmp.";
constexpr std::size_t kRandomBytes = 16;

bool isHexadecimal(char character) {
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f');
}

}  // namespace

std::string newTemporaryName() {
  std::array<unsigned char, kRandomBytes> random{};
  randombytes_buf(random.data(), random.size());
  std::array<char, 2 * kRandomBytes + 1> digits{};
  sodium_bin2hex(digits.data(), digits.size(), random.data(), random.size());
  return std::string(kPrefix) + digits.data();
}

bool isTemporaryName(std::string_view name) {
  return name.starts_with(kPrefix) && name.size() == kPrefix.size() + 2 * kRandomBytes &&
         std::all_of(name.begin() + kPrefix.size(), name.end(), &isHexadecimal);
}

}  // namespace corvane::pelto
