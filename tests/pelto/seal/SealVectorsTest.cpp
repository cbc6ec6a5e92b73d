// The bytes that other versions and other programs have to agree with, each told by a small implementation in
// Python, seal_oracle.py, as well.

#include <gtest/gtest.h>
#include <sodium.h>

#include <cstdio>
#include <numeric>

#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/seal/TestAccount.h"

namespace corvane::pelto {
namespace {

constexpr const char* kObject = "f/c/7-abc";

std::string counting(std::size_t size, char first) {
  std::string bytes(size, '\0');
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

std::string bytesOf(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

// What seal_oracle.py prints.
std::string oracle(const std::string& arguments) {
  FILE* const program = popen(("python3 " CORVANE_SEAL_ORACLE " " + arguments).c_str(), "r");
  if (!program) return "cannot be run";
  std::string printed;
  char chunk[4096];
  while (const std::size_t count = fread(chunk, 1, sizeof chunk, program)) printed.append(chunk, count);
  const int status = pclose(program);
  if (status != 0) return "failed";
  if (!printed.empty()) printed.pop_back();  // the line's end
  return printed;
}

// As long as it lives, the bytes that libsodium calls random count from 100.
class FixedNonce {
 public:
  FixedNonce() { randombytes_set_implementation(&_counting); }
  ~FixedNonce() { randombytes_set_implementation(&randombytes_sysrandom_implementation); }

 private:
  randombytes_implementation _counting{[] { return "counting"; },
                                       [] { return std::uint32_t{4}; },
                                       [] {},
                                       [](std::uint32_t) { return std::uint32_t{4}; },
                                       [](void* bytes, std::size_t size) {
                                         std::iota(static_cast<char*>(bytes),
                                                   static_cast<char*>(bytes) + size, 100);
                                       },
                                       [] { return 0; }};
};

class SealVectorsTest : public testing::Test {
 protected:
  const std::string keyBytes = counting(32, 0);
  const std::string where = hexadecimal(keyBytes) + ' ' + kAccount + " 3 ";

  FakePlatform platform;
  Sealer sealer{AccountKey(keyBytes), kAccount, 3};
};

TEST_F(SealVectorsTest, OracleAgreesWithThePublishedVectors) { EXPECT_EQ(oracle("check"), ""); }

TEST_F(SealVectorsTest, FoldersAndHashesAreTheseForEver) {
  EXPECT_EQ(sealer.folder(), "909bf9da19ef1d6872168122a298be2d");
  EXPECT_EQ(oracle("folder " + where), sealer.folder());
  EXPECT_EQ(hexadecimal(sealer.hash("ant")),
            "360bda6889b3f6c732961227809371ee7d1ac9ab1865d3cc87e72cfd8f5c84fd");
  EXPECT_EQ(oracle("hash " + hexadecimal(keyBytes) + ' ' + hexadecimal("ant")),
            hexadecimal(sealer.hash("ant")));
}

TEST_F(SealVectorsTest, SealedBytesAreTheseForEver) {
  std::string sealed;
  {
    const FixedNonce nonce;
    sealed = sealer.seal(kObject, "Ant");
  }
  EXPECT_EQ(hexadecimal(sealed), oracle("seal " + where + kObject + ' ' + hexadecimal(counting(24, 100)) +
                                        ' ' + hexadecimal("Ant")));
  EXPECT_EQ(hexadecimal(sealer.hash(sealed)),
            "86244b332d7b2d4618ac47e93fdf12197c2e1738b3014cd46e6b4258ca95b76f");
}

TEST_F(SealVectorsTest, EachOpensWhatTheOtherSealed) {
  for (const std::string& contents : {std::string(), std::string("Ant"), counting(100, 1)}) {
    const std::string hex = contents.empty() ? "''" : hexadecimal(contents);
    EXPECT_EQ(oracle("open " + where + kObject + ' ' + hexadecimal(sealer.seal(kObject, contents))),
              hexadecimal(contents));
    const std::string sealed =
        bytesOf(oracle("seal " + where + kObject + ' ' + hexadecimal(counting(24, 7)) + ' ' + hex));
    EXPECT_EQ(sealer.open(kObject, sealed, 1000), contents);
  }
}

TEST_F(SealVectorsTest, PublicKeysAreTheseForEver) {
  const std::string publicKey = hexadecimal(ComputerKeys(keyBytes).publicKey());
  EXPECT_EQ(publicKey, "8f40c5adb68f25624ae5b214ea767a6ec94d829d3d7b5e1ad1ba6f3e2138285f");
  EXPECT_EQ(oracle("public " + hexadecimal(keyBytes)), publicKey);
}

}  // namespace
}  // namespace corvane::pelto
