// An object under a passphrase opens as it was put there, and no other does. It asks for as little work here
// as is taken on.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static const FakePlatform platform;
  static const std::string passphrase = "one of our own";
  static const std::string object =
      pelto::sealUnderPassphrase({.address = {},
                                  .user = {},
                                  .secret = {},
                                  .account = "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01",
                                  .generation = 3,
                                  .key = pelto::AccountKey(std::string(pelto::AccountKey::kBytes, 'K')),
                                  .newest = {}},
                                 passphrase, {1, 8 * 1024});
  // The cost stays, as guessing at others takes long: 1 byte of form, 8 of cost.
  constexpr std::size_t kCostEnd = 9;
  std::string changed = object;
  for (std::size_t i = 0; i < std::min(size, object.size() - kCostEnd); ++i)
    changed[kCostEnd + i] = static_cast<char>(changed[kCostEnd + i] ^ data[i]);
  require(pelto::openWithPassphrase(changed, passphrase).has_value() == (changed == object),
          "what was changed does not open, and what was not does");
  if (size >= kCostEnd) {
    std::string foreign(reinterpret_cast<const char*>(data), size);
    std::copy_n(object.begin(), kCostEnd, foreign.begin());
    foreign.resize(object.size());
    require(!pelto::openWithPassphrase(foreign, passphrase), "nobody makes one up");
  }
  return 0;
}
