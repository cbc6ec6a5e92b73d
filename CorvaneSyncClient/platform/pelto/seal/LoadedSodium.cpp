#include <sodium.h>

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/pelto/seal/ServiceLibrary.h"

// The functions of libsodium, which is loaded when the first of them is called: who has no account calls
// none. Nothing is linked with libsodium itself; a function that is not defined here is missing at the link.
// Where libsodium cannot be loaded, every function raises PlatformException.

// A function of libsodium, found at its first call.
#define CORVANE_SODIUM(function)                                       \
  static decltype(&(function)) const found =                           \
      corvane::pelto::serviceFunction({"libsodium.so.23"}, #function); \
  return found

extern "C" {

int crypto_aead_xchacha20poly1305_ietf_decrypt(unsigned char* message, unsigned long long* length,
                                               unsigned char* unused, const unsigned char* sealed,
                                               unsigned long long sealedLength, const unsigned char* data,
                                               unsigned long long dataLength, const unsigned char* nonce,
                                               const unsigned char* key) {
  CORVANE_SODIUM(crypto_aead_xchacha20poly1305_ietf_decrypt)
  (message, length, unused, sealed, sealedLength, data, dataLength, nonce, key);
}
int crypto_aead_xchacha20poly1305_ietf_encrypt(unsigned char* sealed, unsigned long long* sealedLength,
                                               const unsigned char* message, unsigned long long length,
                                               const unsigned char* data, unsigned long long dataLength,
                                               const unsigned char* unused, const unsigned char* nonce,
                                               const unsigned char* key) {
  CORVANE_SODIUM(crypto_aead_xchacha20poly1305_ietf_encrypt)
  (sealed, sealedLength, message, length, data, dataLength, unused, nonce, key);
}
int crypto_auth_hmacsha256_init(crypto_auth_hmacsha256_state* state, const unsigned char* key,
                                size_t length) {
  CORVANE_SODIUM(crypto_auth_hmacsha256_init)(state, key, length);
}
int crypto_auth_hmacsha256_update(crypto_auth_hmacsha256_state* state, const unsigned char* bytes,
                                  unsigned long long length) {
  CORVANE_SODIUM(crypto_auth_hmacsha256_update)(state, bytes, length);
}
int crypto_auth_hmacsha256_final(crypto_auth_hmacsha256_state* state, unsigned char* hash) {
  CORVANE_SODIUM(crypto_auth_hmacsha256_final)(state, hash);
}
int crypto_box_seal(unsigned char* sealed, const unsigned char* message, unsigned long long length,
                    const unsigned char* publicKey) {
  CORVANE_SODIUM(crypto_box_seal)(sealed, message, length, publicKey);
}
int crypto_box_seal_open(unsigned char* message, const unsigned char* sealed, unsigned long long length,
                         const unsigned char* publicKey, const unsigned char* secretKey) {
  CORVANE_SODIUM(crypto_box_seal_open)(message, sealed, length, publicKey, secretKey);
}
int crypto_generichash(unsigned char* hash, size_t hashLength, const unsigned char* bytes,
                       unsigned long long length, const unsigned char* key, size_t keyLength) {
  CORVANE_SODIUM(crypto_generichash)(hash, hashLength, bytes, length, key, keyLength);
}
int crypto_generichash_init(crypto_generichash_state* state, const unsigned char* key, size_t keyLength,
                            size_t hashLength) {
  CORVANE_SODIUM(crypto_generichash_init)(state, key, keyLength, hashLength);
}
int crypto_generichash_update(crypto_generichash_state* state, const unsigned char* bytes,
                              unsigned long long length) {
  CORVANE_SODIUM(crypto_generichash_update)(state, bytes, length);
}
int crypto_generichash_final(crypto_generichash_state* state, unsigned char* hash, size_t hashLength) {
  CORVANE_SODIUM(crypto_generichash_final)(state, hash, hashLength);
}
int crypto_hash_sha256(unsigned char* hash, const unsigned char* bytes, unsigned long long length) {
  CORVANE_SODIUM(crypto_hash_sha256)(hash, bytes, length);
}
int crypto_kdf_derive_from_key(unsigned char* subkey, size_t length, uint64_t number,
                               const char context[crypto_kdf_CONTEXTBYTES],
                               const unsigned char key[crypto_kdf_KEYBYTES]) {
  CORVANE_SODIUM(crypto_kdf_derive_from_key)(subkey, length, number, context, key);
}
int crypto_pwhash(unsigned char* hash, unsigned long long hashLength, const char* passphrase,
                  unsigned long long length, const unsigned char* salt, unsigned long long operations,
                  size_t memory, int algorithm) {
  CORVANE_SODIUM(crypto_pwhash)(hash, hashLength, passphrase, length, salt, operations, memory, algorithm);
}
int crypto_scalarmult_base(unsigned char* publicKey, const unsigned char* secretKey) {
  CORVANE_SODIUM(crypto_scalarmult_base)(publicKey, secretKey);
}
void randombytes_buf(void* bytes, size_t length) { CORVANE_SODIUM(randombytes_buf)(bytes, length); }
uint32_t randombytes_uniform(uint32_t bound) { CORVANE_SODIUM(randombytes_uniform)(bound); }
char* sodium_bin2base64(char* text, size_t most, const unsigned char* bytes, size_t length, int variant) {
  CORVANE_SODIUM(sodium_bin2base64)(text, most, bytes, length, variant);
}
char* sodium_bin2hex(char* text, size_t most, const unsigned char* bytes, size_t length) {
  CORVANE_SODIUM(sodium_bin2hex)(text, most, bytes, length);
}
void sodium_free(void* memory) { CORVANE_SODIUM(sodium_free)(memory); }
int sodium_init() { CORVANE_SODIUM(sodium_init)(); }
void* sodium_malloc(size_t length) { CORVANE_SODIUM(sodium_malloc)(length); }
int sodium_memcmp(const void* one, const void* other, size_t length) {
  CORVANE_SODIUM(sodium_memcmp)(one, other, length);
}
void sodium_memzero(void* memory, size_t length) { CORVANE_SODIUM(sodium_memzero)(memory, length); }
int sodium_mlock(void* memory, size_t length) { CORVANE_SODIUM(sodium_mlock)(memory, length); }

}  // extern "C"
