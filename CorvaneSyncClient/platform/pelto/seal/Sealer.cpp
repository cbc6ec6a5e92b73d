#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"

#include <sodium.h>
#include <zstd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/ServiceLibrary.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kSubkeys = 3;
constexpr std::size_t kSubkeyBytes = crypto_kdf_BYTES_MAX / 2;
static_assert(kSubkeyBytes == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(kSubkeyBytes == kHashKeyBytes);
static_assert(AccountKey::kBytes == crypto_kdf_KEYBYTES);
constexpr char kSealContext[crypto_kdf_CONTEXTBYTES + 1] = "corvseal";

constexpr char kSealedForm = 1;
constexpr std::size_t kSealNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kAround = 1 + kSealNonceBytes + kTagBytes;
constexpr std::size_t kPadding = 1024;
constexpr int kCompressionLevel = 3;

struct Zstd {
  static LoadedFunction named(const char* name) { return serviceFunction({"libzstd.so.1"}, name); }

  decltype(&ZSTD_compressBound) compressBound = named("ZSTD_compressBound");
  decltype(&ZSTD_compress) compress = named("ZSTD_compress");
  decltype(&ZSTD_isError) isError = named("ZSTD_isError");
  decltype(&ZSTD_findFrameCompressedSize) frameSize = named("ZSTD_findFrameCompressedSize");
  decltype(&ZSTD_getFrameContentSize) contentSize = named("ZSTD_getFrameContentSize");
  decltype(&ZSTD_decompress) decompress = named("ZSTD_decompress");
};

const Zstd& zstd() {
  static const Zstd loaded;
  return loaded;
}

// A zstd frame and as many zeros as make the sealed object a multiple of `kPadding`.
std::string compressedAndPadded(std::string_view contents) {
  std::string plain(zstd().compressBound(contents.size()), '\0');
  const std::size_t size =
      zstd().compress(plain.data(), plain.size(), contents.data(), contents.size(), kCompressionLevel);
  if (zstd().isError(size)) throw std::bad_alloc();  // the room suffices, so that nothing else is left
  const std::size_t whole = (size + kAround + kPadding - 1) / kPadding * kPadding;
  plain.resize(size);
  plain.resize(whole - kAround, '\0');
  return plain;
}

std::optional<std::string> decompressed(std::string_view plain, std::size_t mostBytes) {
  const std::size_t frame = zstd().frameSize(plain.data(), plain.size());
  if (zstd().isError(frame)) return std::nullopt;
  const std::string_view padding = plain.substr(frame);
  if (padding.find_first_not_of('\0') != std::string_view::npos) return std::nullopt;
  const unsigned long long size = zstd().contentSize(plain.data(), frame);
  // Also larger than any limit: a size that is unknown, or no frame.
  if (size > mostBytes) return std::nullopt;
  std::string contents(size, '\0');
  if (zstd().decompress(contents.data(), contents.size(), plain.data(), frame) != size) return std::nullopt;
  return contents;
}

}  // namespace

Sealer::Sealer(const AccountKey& key, std::string account, std::int64_t generation)
    : _account(std::move(account)), _generation(generation), _subkeys(kSubkeys * kSubkeyBytes) {
  for (std::size_t i = 0; i < kSubkeys; ++i) {
    crypto_kdf_derive_from_key(_subkeys.data() + i * kSubkeyBytes, kSubkeyBytes, i + 1, kSealContext,
                               unsignedOf(key.bytes().data()));
  }
}

const unsigned char* Sealer::subkey(Subkey which) const {
  return _subkeys.data() + static_cast<std::size_t>(which) * kSubkeyBytes;
}

std::string Sealer::associatedData(std::string_view name) const {
  return lengthPrefixed(_account) + bigEndian(_generation) + lengthPrefixed(name);
}

std::string Sealer::seal(std::string_view name, std::string_view contents) const {
  const std::string plain = compressedAndPadded(contents);
  const std::string data = associatedData(name);
  std::string sealed(plain.size() + kAround, '\0');
  sealed[0] = kSealedForm;
  unsigned char* const nonce = unsignedOf(sealed.data()) + 1;
  randombytes_buf(nonce, kSealNonceBytes);
  crypto_aead_xchacha20poly1305_ietf_encrypt(nonce + kSealNonceBytes, nullptr, unsignedOf(plain.data()),
                                             plain.size(), unsignedOf(data.data()), data.size(), nullptr,
                                             nonce, subkey(Subkey::contents));
  return sealed;
}

std::optional<std::string> Sealer::open(std::string_view name, std::string_view sealed,
                                        std::size_t mostBytes) const {
  if (sealed.size() <= kAround || sealed.size() % kPadding != 0 || sealed[0] != kSealedForm)
    return std::nullopt;
  const std::string data = associatedData(name);
  const unsigned char* const nonce = unsignedOf(sealed.data()) + 1;
  std::string plain(sealed.size() - kAround, '\0');
  const int refused = crypto_aead_xchacha20poly1305_ietf_decrypt(
      unsignedOf(plain.data()), nullptr, nullptr, nonce + kSealNonceBytes, plain.size() + kTagBytes,
      unsignedOf(data.data()), data.size(), nonce, subkey(Subkey::contents));
  if (refused) return std::nullopt;
  return decompressed(plain, mostBytes);
}

std::string Sealer::hash(std::string_view bytes) const {
  return keyedHash(crypto_generichash_BYTES, subkey(Subkey::hashes), bytes);
}

std::string Sealer::folder() const {
  return hexadecimal(keyedHash(crypto_generichash_BYTES_MIN, subkey(Subkey::folders),
                               lengthPrefixed(_account) + bigEndian(_generation)));
}

}  // namespace corvane::pelto
