#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/seal/GenerationChange.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/seal/TestAccount.h"

namespace corvane::pelto {
namespace {

constexpr const char* kDesk = "0D9E4C1A-7B5E-4C0E-8C39-5A3A0C0B7E11";
constexpr const char* kLaptop = "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01";
constexpr const char* kLost = "3B1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01";

class GenerationChangeTest : public testing::Test {
 protected:
  GenerationChangeTest() {
    for (const auto& [computer, keys] : {std::pair{kDesk, &desk}, {kLaptop, &laptop}, {kLost, &lost}})
      roster.set({computer, "a computer", keys->publicKey(), Date{1}});
  }

  GenerationChange change(std::vector<String> removed) {
    return changeGeneration(present, next, kAccount, 2, roster, std::move(removed));
  }
  bool opens(const GenerationChange& handed, const char* computer, const ComputerKeys& keys) {
    const auto key = keyFrom(handed, present, kAccount, computer, keys);
    return key && *key == next;
  }

  FakePlatform platform;
  AccountKey present = AccountKey::random(), next = AccountKey::random();
  ComputerKeys desk = ComputerKeys::random(), laptop = ComputerKeys::random(), lost = ComputerKeys::random();
  Roster roster;
};

TEST_F(GenerationChangeTest, EveryRemainingComputerGetsTheKeyAndTheOneTakenOutDoesNot) {
  const GenerationChange handed = change({kLost});
  EXPECT_EQ(handed.boxes.size(), 2u);
  EXPECT_TRUE(opens(handed, kDesk, desk));
  EXPECT_TRUE(opens(handed, kLaptop, laptop));
  for (const char* computer : {kDesk, kLaptop, kLost})
    EXPECT_FALSE(opens(handed, computer, lost)) << computer;
  EXPECT_FALSE(opens(handed, kDesk, laptop));
}

TEST_F(GenerationChangeTest, KeyAloneCanChange) {
  const GenerationChange handed = change({});
  EXPECT_TRUE(opens(handed, kDesk, desk));
  EXPECT_TRUE(opens(handed, kLost, lost));
}

TEST_F(GenerationChangeTest, BoxCountsForItsOccasionOnly) {
  const GenerationChange handed = change({kLost});
  EXPECT_FALSE(keyFrom(handed, next, kAccount, kDesk, desk)) << "made with another key";
  EXPECT_FALSE(keyFrom(handed, present, "A2C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01", kDesk, desk))
      << "another account";
  GenerationChange later = handed;
  later.generation = 3;
  EXPECT_FALSE(keyFrom(later, present, kAccount, kDesk, desk)) << "another generation";
  GenerationChange renamed = handed;
  std::swap(renamed.boxes[0].computer, renamed.boxes[1].computer);
  EXPECT_FALSE(keyFrom(renamed, present, kAccount, kLaptop, desk)) << "another computer";
}

TEST_F(GenerationChangeTest, EveryByteOfABoxCounts) {
  const GenerationChange handed = change({});
  const std::string& box = handed.boxes[0].bytes;
  for (std::size_t i = 0; i < box.size(); ++i) {
    GenerationChange changed = handed;
    changed.boxes[0].bytes[i] = static_cast<char>(box[i] ^ 1);
    EXPECT_FALSE(keyFrom(changed, present, kAccount, kDesk, desk)) << i;
    changed.boxes[0].bytes = box.substr(0, i);
    EXPECT_FALSE(keyFrom(changed, present, kAccount, kDesk, desk)) << i;
  }
}

TEST_F(GenerationChangeTest, PublicKeyThatNobodyCanHaveIsRefused) {
  roster.set({kDesk, "a computer", std::string(32, '\0'), Date{1}});
  EXPECT_THROW(change({}), SealedFormException);
}

TEST_F(GenerationChangeTest, ReadsBackAsItWasWritten) {
  for (const GenerationChange& each : {change({kLost}), change({}), change({kLost, kDesk})}) {
    const std::string written = writeBinaryPropertyList(valueOf(each));
    EXPECT_EQ(generationChangeFrom(readPropertyList(written)), each);
  }
}

TEST_F(GenerationChangeTest, OtherValuesAreRefused) {
  const Value good = valueOf(change({kLost}));
  const Value box = (*good.as<Dictionary>()->array("Boxes"))[0],
              second = (*good.as<Dictionary>()->array("Boxes"))[1];
  const struct {
    const char* what;
    const char* key;
    Value value;
  } cases[] = {
      {"text for the number", "Generation", "2"},
      {"generation 0", "Generation", 0},
      {"text for the removed ones", "Removed", kLost},
      {"a removed one that is no UUID", "Removed", Array{"x"}},
      {"one removed twice", "Removed", Array{kLost, kLost}},
      {"a box for a removed one", "Removed", Array{kDesk}},
      {"no boxes", "Boxes", 1},
      {"a box of another form", "Boxes", Array{Dictionary{{"Computer", kDesk}}}},
      {"a short box", "Boxes", Array{Dictionary{{"Computer", kDesk}, {"Box", Data("x")}}}},
      {"two boxes for one", "Boxes", Array{box, box}},
      {"wrong order", "Boxes", Array{second, box}},
      {"an unknown key", "Other", 1},
  };
  for (const auto& each : cases) {
    Dictionary changed = *good.as<Dictionary>();
    changed.set(each.key, each.value);
    EXPECT_THROW(generationChangeFrom(changed), SealedFormException) << each.what;
  }
  EXPECT_THROW(generationChangeFrom(Array{}), SealedFormException);
}

TEST(ComputerKeys, ComeAgainFromTheSecretKey) {
  const FakePlatform platform;
  const ComputerKeys keys = ComputerKeys::random();
  EXPECT_EQ(ComputerKeys(keys.secretKey()).publicKey(), keys.publicKey());
  EXPECT_THROW(ComputerKeys("short"), PlatformException);
}

}  // namespace
}  // namespace corvane::pelto
