#include "CorvaneSyncClient/platform/pelto/seal/InvitationGroups.h"

#include <sodium.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"

namespace corvane::pelto {

namespace {

constexpr std::string_view kBase32 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t kGroupDigits = kGroupBytes * 8 / 5;

// Without those that many languages speak alike, or not as others do: c and k, v and w, j and y.
constexpr std::string_view kConsonants = "bdfghklmnprstvxz";
constexpr std::string_view kVowels = "aeio";
constexpr std::size_t kWordBytes = 2;
constexpr std::size_t kWordLetters = 5;
constexpr std::size_t kGroupLetters = kGroupBytes / kWordBytes * kWordLetters;

std::optional<unsigned> base32Value(char digit) {
  if (isAsciiLetter(digit)) return asciiLowerCase(digit) - 'a';
  if (digit >= '2' && digit <= '7') return 26 + digit - '2';
  return std::nullopt;
}

// Calls `emit` with the check of each group in turn, told from what the groups carry.
template <typename Emit>
void eachCheck(std::size_t count, const unsigned char* carried, std::size_t stride, Emit emit) {
  static constexpr std::string_view kSubject = "corvane invitation";
  crypto_generichash_state running;
  crypto_generichash_init(&running, nullptr, 0, crypto_generichash_BYTES);
  crypto_generichash_update(&running, unsignedOf(kSubject.data()), kSubject.size());
  for (std::size_t i = 0; i < count; ++i) {
    crypto_generichash_update(&running, carried + i * stride, kCarriedBytes);
    crypto_generichash_state upToHere = running;
    unsigned char hash[crypto_generichash_BYTES];
    crypto_generichash_final(&upToHere, hash, sizeof hash);
    emit(i, hash[0]);
  }
  sodium_memzero(&running, sizeof running);
}

// Collects groups from text; memory is taken once, so that no copy of a secret is left behind.
class Collector {
 public:
  explicit Collector(std::size_t mostBytes) : _bytes(mostBytes) {}

  void add(unsigned bits, unsigned count) {
    _pending = _pending << count | bits;
    _pendingBits += count;
    for (; _pendingBits >= 8; _pendingBits -= 8)
      _bytes.data()[_size++] = static_cast<unsigned char>(_pending >> (_pendingBits - 8));
  }
  SecretBytes wholeGroups() const {
    return SecretBytes(_bytes.view().substr(0, _size / kGroupBytes * kGroupBytes));
  }

 private:
  SecretBytes _bytes;
  std::size_t _size = 0;
  std::uint32_t _pending = 0;
  unsigned _pendingBits = 0;
};

}  // namespace

SecretBytes groupsOf(const SecretBytes& bytes) {
  const std::size_t count = (bytes.size() + kCarriedBytes - 1) / kCarriedBytes;
  SecretBytes groups(count * kGroupBytes);
  for (std::size_t at = 0; at < bytes.size(); at += kCarriedBytes) {
    std::memcpy(groups.data() + at / kCarriedBytes * kGroupBytes, bytes.data() + at,
                std::min(kCarriedBytes, bytes.size() - at));
  }
  eachCheck(count, groups.data(), kGroupBytes, [&](std::size_t i, unsigned char check) {
    groups.data()[i * kGroupBytes + kCarriedBytes] = check;
  });
  return groups;
}

std::size_t rightGroups(const SecretBytes& groups) {
  const std::size_t count = groups.size() / kGroupBytes;
  std::size_t right = count;
  eachCheck(count, groups.data(), kGroupBytes, [&](std::size_t i, unsigned char check) {
    if (groups.data()[i * kGroupBytes + kCarriedBytes] != check) right = std::min(right, i);
  });
  return right;
}

SecretBytes carriedBy(const SecretBytes& groups) {
  const std::size_t count = groups.size() / kGroupBytes;
  SecretBytes carried(count * kCarriedBytes);
  for (std::size_t i = 0; i < count; ++i)
    std::memcpy(carried.data() + i * kCarriedBytes, groups.data() + i * kGroupBytes, kCarriedBytes);
  return carried;
}

std::string base32Groups(const SecretBytes& groups) {
  std::string text;
  text.reserve(groups.size() / kGroupBytes * (kGroupDigits + 1));
  std::uint32_t pending = 0;
  unsigned bits = 0;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (i > 0 && i % kGroupBytes == 0) text += '-';
    pending = pending << 8 | groups.data()[i];
    for (bits += 8; bits >= 5; bits -= 5) text += kBase32[pending >> (bits - 5) & 31];
  }
  return text;
}

std::string wordGroups(const SecretBytes& groups) {
  std::string text;
  text.reserve(groups.size() / kWordBytes * (kWordLetters + 1));
  for (std::size_t i = 0; i < groups.size(); i += kWordBytes) {
    if (i > 0) text += i % kGroupBytes == 0 ? '\n' : ' ';
    const unsigned word = groups.data()[i] << 8u | groups.data()[i + 1];
    for (const char letter : {kConsonants[word >> 12], kVowels[word >> 10 & 3], kConsonants[word >> 6 & 15],
                              kVowels[word >> 4 & 3], kConsonants[word & 15]}) {
      text += letter;
    }
  }
  return text;
}

ReadGroups readBase32Groups(std::string_view text) {
  Collector collector(text.size());
  std::size_t digits = 0;
  for (const char each : text) {
    if (isAsciiSpace(each) || each == '-') continue;
    const auto value = base32Value(each);
    if (!value) return {collector.wholeGroups(), 0, digits / kGroupDigits + 1};
    collector.add(*value, 5);
    ++digits;
  }
  return {collector.wholeGroups(), digits % kGroupDigits, 0};
}

ReadGroups readWordGroups(std::string_view text) {
  Collector collector(text.size());
  std::size_t letters = 0;
  for (const char each : text) {
    if (!isAsciiLetter(each)) continue;
    const bool isVowel = letters % kWordLetters % 2 == 1;
    const std::size_t value = (isVowel ? kVowels : kConsonants).find(asciiLowerCase(each));
    if (value == std::string_view::npos) return {collector.wholeGroups(), 0, letters / kGroupLetters + 1};
    collector.add(static_cast<unsigned>(value), isVowel ? 2 : 4);
    ++letters;
  }
  return {collector.wholeGroups(), letters % kGroupLetters, 0};
}

}  // namespace corvane::pelto
