#include <gmock/gmock.h>
#include <sodium.h>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/seal/TestAccount.h"

namespace corvane::pelto {
namespace {

using testing::MatchesRegex;

constexpr const char* kOtherAccount = "0D9E4C1A-7B5E-4C0E-8C39-5A3A0C0B7E11";
constexpr std::size_t kPlenty = 1 << 24;
constexpr const char* kName = "c/7-00112233445566778899aabbccddeeff";

class SealerTest : public testing::Test {
 protected:
  std::optional<std::string> opened(std::string_view bytes) { return sealer.open(kName, bytes, kPlenty); }

  FakePlatform platform;
  AccountKey key = AccountKey::random();
  Sealer sealer{key, kAccount, 3};
};

TEST_F(SealerTest, WhatIsSealedIsOpened) {
  for (const std::size_t size : {0u, 1u, 500u, 975u, 983u, 1024u, 300'000u}) {
    std::string contents;
    for (std::size_t i = 0; i < size; ++i) contents += static_cast<char>(i * i + i / 7);
    EXPECT_EQ(opened(sealer.seal(kName, contents)), contents) << size;
  }
}

TEST_F(SealerTest, SealedObjectsAreMultiplesOfOneKibibyte) {
  EXPECT_EQ(sealer.seal(kName, "").size(), 1024u);
  EXPECT_EQ(sealer.seal(kName, "a few words").size(), 1024u);
  // Bytes that do not compress; zstd adds up to 13 of its own.
  std::string noise;
  for (std::uint32_t i = 0, state = 1; i < 2000; ++i)
    noise += static_cast<char>((state = state * 1103515245 + 12345) >> 16);
  for (std::size_t size = 900; size < 1100; ++size) {
    EXPECT_EQ(sealer.seal(kName, noise.substr(0, size)).size() % 1024, 0u) << size;
  }
}

TEST_F(SealerTest, SealingAgainShowsNothingOfTheContents) {
  const std::string first = sealer.seal(kName, "Ant"), second = sealer.seal(kName, "Ant");
  EXPECT_NE(first, second);
  EXPECT_EQ(first.find("Ant"), std::string::npos);
}

TEST_F(SealerTest, EveryBitThatChangesIsNoticed) {
  const std::string sealed = sealer.seal(kName, "Ant http://ant.example/");
  ASSERT_TRUE(opened(sealed));
  for (std::size_t i = 0; i < sealed.size() * 8; ++i) {
    std::string changed = sealed;
    changed[i / 8] = static_cast<char>(changed[i / 8] ^ 1 << i % 8);
    EXPECT_FALSE(opened(changed)) << "bit " << i;
  }
}

TEST_F(SealerTest, EveryOtherLengthIsRefused) {
  std::string noise;
  for (std::uint32_t i = 0, state = 1; i < 3000; ++i)
    noise += static_cast<char>((state = state * 1103515245 + 12345) >> 16);
  const std::string sealed = sealer.seal(kName, noise);
  ASSERT_GT(sealed.size(), 3000u);
  for (std::size_t size = 0; size < sealed.size(); ++size)
    EXPECT_FALSE(opened(sealed.substr(0, size))) << size;
  for (const std::size_t more : {1u, 16u, 1024u, 4096u}) {
    EXPECT_FALSE(opened(sealed + std::string(more, '\0'))) << more;
    EXPECT_FALSE(opened(sealed + sealed.substr(0, more))) << more;
  }
}

TEST_F(SealerTest, AnObjectPassesForNoOther) {
  const std::string sealed = sealer.seal(kName, "Ant");
  const struct {
    const char* what;
    std::optional<std::string> opened;
  } cases[] = {
      {"another name", sealer.open("c/8-00112233445566778899aabbccddeeff", sealed, kPlenty)},
      {"no name", sealer.open("", sealed, kPlenty)},
      {"the name and more", sealer.open(std::string(kName) + "-1", sealed, kPlenty)},
      {"another generation", Sealer(key, kAccount, 4).open(kName, sealed, kPlenty)},
      {"another account", Sealer(key, kOtherAccount, 3).open(kName, sealed, kPlenty)},
      {"another key", Sealer(AccountKey::random(), kAccount, 3).open(kName, sealed, kPlenty)},
      // One text after the other reads the same; they are told apart all the same.
      {"the account's last letter as the name's first",
       Sealer(key, std::string(kAccount) + "c", 3).open(std::string(kName).substr(1), sealed, kPlenty)},
  };
  for (const auto& each : cases) EXPECT_FALSE(each.opened) << each.what;
  EXPECT_TRUE(opened(sealed));
}

// A key's owner could hide something there that nobody looks at.
TEST_F(SealerTest, PaddingIsZerosAlone) {
  SecretBytes subkey(crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
  crypto_kdf_derive_from_key(subkey.data(), subkey.size(), 1, "corvseal", unsignedOf(key.bytes().data()));
  const std::string data = lengthPrefixed(kAccount) + bigEndian(3) + lengthPrefixed(kName);
  const std::string nothing("\x28\xb5\x2f\xfd\x20\x00\x01\x00\x00", 9);  // in a frame of zstd (RFC 8878)
  constexpr std::size_t kNonce = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
  for (const char last : {'\0', '\1'}) {
    std::string plain = nothing;
    plain.resize(1024 - 1 - kNonce - crypto_aead_xchacha20poly1305_ietf_ABYTES, '\0');
    plain.back() = last;
    std::string sealed(1024, '\1');
    unsigned char* const nonce = unsignedOf(sealed.data()) + 1;
    crypto_aead_xchacha20poly1305_ietf_encrypt(nonce + kNonce, nullptr, unsignedOf(plain.data()),
                                               plain.size(), unsignedOf(data.data()), data.size(), nullptr,
                                               nonce, subkey.data());
    EXPECT_EQ(opened(sealed).has_value(), last == '\0');
  }
}

TEST_F(SealerTest, ContentsBeyondTheLimitAreRefusedBeforeMemoryIsTaken) {
  const std::string bomb = sealer.seal(kName, std::string(10'000'000, 'a'));
  EXPECT_LT(bomb.size(), 20'000u);
  EXPECT_FALSE(sealer.open(kName, bomb, 9'999'999));
  EXPECT_FALSE(sealer.open(kName, bomb, 0));
  EXPECT_TRUE(sealer.open(kName, sealer.seal(kName, "Ant"), 3));
  EXPECT_FALSE(sealer.open(kName, sealer.seal(kName, "Ant"), 2));
}

TEST_F(SealerTest, HashesAndFoldersAreKeyedAndDiffer) {
  const Sealer otherKey(AccountKey::random(), kAccount, 3), otherAccount(key, kOtherAccount, 3),
      otherGeneration(key, kAccount, 4);
  EXPECT_EQ(sealer.hash("a").size(), 32u);
  EXPECT_EQ(sealer.hash("a"), Sealer(key, kAccount, 3).hash("a"));
  EXPECT_NE(sealer.hash("a"), sealer.hash("b"));
  EXPECT_NE(sealer.hash("a"), otherKey.hash("a"));
  EXPECT_THAT(sealer.folder(), MatchesRegex("[0-9a-f]{32}"));
  EXPECT_EQ(sealer.folder(), Sealer(key, kAccount, 3).folder());
  for (const Sealer* each : {&otherKey, &otherAccount, &otherGeneration})
    EXPECT_NE(sealer.folder(), each->folder());
}

TEST(AccountKey, HasThirtyTwoBytes) {
  const FakePlatform platform;
  const std::string bytes(32, '\7');
  EXPECT_EQ(AccountKey(bytes).bytes(), bytes);
  EXPECT_TRUE(AccountKey(bytes) == AccountKey(bytes));
  EXPECT_FALSE(AccountKey::random() == AccountKey::random());
  for (const std::size_t size : {0u, 31u, 33u})
    EXPECT_THROW(AccountKey(std::string(size, '\7')), PlatformException);
}

}  // namespace
}  // namespace corvane::pelto
