#include <gmock/gmock.h>
#include <sodium.h>

#include <cstring>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/seal/TestAccount.h"

namespace corvane::pelto {
namespace {

constexpr const char* kPassphrase = "Käse im Bahnhof, vier Uhr";
// As little as an object may ask for, but where the usual is what is tested.
constexpr PassphraseCost kCheap{1, 8 * 1024};

class PassphraseTest : public testing::Test {
 protected:
  void expectOpens(const std::string& object, const char* passphrase = kPassphrase) {
    const auto opened = openWithPassphrase(object, passphrase);
    ASSERT_TRUE(opened);
    EXPECT_TRUE(opened->key == invitation.key);
    EXPECT_EQ(opened->account, kAccount);
    EXPECT_EQ(opened->generation, 3);
    EXPECT_EQ(opened->newest, invitation.newest);
  }

  FakePlatform platform;
  const Invitation invitation{
      {}, {}, {}, kAccount, 3, AccountKey(std::string(32, 'K')), {12, std::string(16, 'h')}};
};

TEST_F(PassphraseTest, OpensWhatItSealedAndNoOtherDoes) {
  const std::string object = sealUnderPassphrase(invitation, kPassphrase);
  EXPECT_EQ(object.size(), 1024u);
  EXPECT_EQ(object.substr(0, 9), std::string("\1\0\0\0\3\0\4\0\0", 9)) << "3 passes over 256 MiB";
  expectOpens(object);
  EXPECT_FALSE(openWithPassphrase(object, "Käse im Bahnhof, fünf Uhr"));
}

TEST_F(PassphraseTest, HowLettersAreComposedDoesNotCount) {
  const std::string object = sealUnderPassphrase(invitation, kPassphrase, kCheap);
  expectOpens(object, "Ka\u0308se im Bahnhof, vier Uhr");
  EXPECT_FALSE(openWithPassphrase(object, "Kase im Bahnhof, vier Uhr"));
  EXPECT_FALSE(openWithPassphrase(object, "käse im bahnhof, vier uhr"));
}

TEST_F(PassphraseTest, EveryByteOfTheObjectCounts) {
  const std::string object = sealUnderPassphrase(invitation, kPassphrase, kCheap);
  for (std::size_t i = 0; i < object.size(); i += i < 120 ? 1 : 37) {
    std::string changed = object;
    // In the numbers, only to something as cheap.
    changed[i] = static_cast<char>(object[i] ^ (i >= 1 && i < 9 ? 2 : 1));
    EXPECT_FALSE(openWithPassphrase(changed, kPassphrase)) << i;
  }
  for (const std::size_t size : {0u, 1u, 80u, 1023u})
    EXPECT_FALSE(openWithPassphrase(object.substr(0, size), kPassphrase));
  EXPECT_FALSE(openWithPassphrase(object + '\0', kPassphrase));
}

// Whoever has the key could make an object that two passphrases open, and learn which of them is tried.
TEST_F(PassphraseTest, AnObjectThatDoesNotCommitToThePassphraseIsRefused) {
  const std::string object = sealUnderPassphrase(invitation, kPassphrase, kCheap);
  constexpr std::size_t kSalt = 9, kCommitment = 25, kNonce = 57, kCipher = 81;
  unsigned char keys[64];
  ASSERT_EQ(crypto_pwhash(keys, sizeof keys, kPassphrase, std::strlen(kPassphrase),
                          unsignedOf(object.data()) + kSalt, kCheap.passes,
                          kCheap.kibibytes * std::size_t{1024}, crypto_pwhash_ALG_ARGON2ID13),
            0);
  std::string plain(object.size() - kCipher - crypto_aead_xchacha20poly1305_ietf_ABYTES, '\0');
  ASSERT_EQ(crypto_aead_xchacha20poly1305_ietf_decrypt(unsignedOf(plain.data()), nullptr, nullptr,
                                                       unsignedOf(object.data()) + kCipher,
                                                       object.size() - kCipher, unsignedOf(object.data()),
                                                       kNonce, unsignedOf(object.data()) + kNonce, keys),
            0);
  for (const char change : {'\0', '\1'}) {
    std::string resealed = object;
    resealed[kCommitment] = static_cast<char>(resealed[kCommitment] ^ change);
    unsigned char* const start = unsignedOf(resealed.data());
    crypto_aead_xchacha20poly1305_ietf_encrypt(start + kCipher, nullptr, unsignedOf(plain.data()),
                                               plain.size(), start, kNonce, nullptr, start + kNonce, keys);
    EXPECT_EQ(openWithPassphrase(resealed, kPassphrase).has_value(), change == '\0');
  }
}

TEST_F(PassphraseTest, ObjectsThatAskForTooMuchAreRefused) {
  const std::string object = sealUnderPassphrase(invitation, kPassphrase, kCheap);
  const struct {
    const char* what;
    const char* numbers;
  } cases[] = {
      {"no passes", "\0\0\0\0\0\0\x20\0"},
      {"11 passes", "\0\0\0\x0B\0\0\x20\0"},
      {"endless passes", "\xFF\xFF\xFF\xFF\0\0\x20\0"},
      {"1 GiB and 1 KiB", "\0\0\0\1\0\x10\0\1"},
      {"4 TiB", "\0\0\0\1\xFF\xFF\xFF\xFF"},
      {"hardly any memory", "\0\0\0\1\0\0\x1F\xFF"},
  };
  for (const auto& each : cases) {
    std::string changed = object;
    changed.replace(1, 8, each.numbers, 8);
    EXPECT_FALSE(openWithPassphrase(changed, kPassphrase)) << each.what;
  }
}

TEST_F(PassphraseTest, ShortOnesAndOtherBytesAreRefused) {
  EXPECT_THROW(sealUnderPassphrase(invitation, "elf Zeichen", kCheap), PlatformException);
  EXPECT_THROW(sealUnderPassphrase(invitation, "\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4", kCheap),
               PlatformException)
      << "six";
  EXPECT_THROW(sealUnderPassphrase(invitation, "long enough, but \xFF", kCheap), PlatformException);
  sealUnderPassphrase(invitation, "zwoelf Zeich", kCheap);
}

TEST_F(PassphraseTest, SealingAgainGivesOtherBytes) {
  EXPECT_NE(sealUnderPassphrase(invitation, kPassphrase, kCheap).substr(9),
            sealUnderPassphrase(invitation, kPassphrase, kCheap).substr(9));
}

}  // namespace
}  // namespace corvane::pelto
