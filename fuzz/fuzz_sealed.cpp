// Bytes that lie at a place open only when the account sealed them, and whatever was sealed opens as it was.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static const FakePlatform platform;
  static const pelto::Sealer sealer(pelto::AccountKey(std::string(32, 'K')),
                                    "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01", 3);
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  require(!sealer.open("f/c/1", bytes, 1 << 20), "nobody makes an object up");
  std::string sealed = sealer.seal("f/c/1", bytes);
  require(sealed.size() % 1024 == 0, "sealed objects are padded");
  require(sealer.open("f/c/1", sealed, size) == bytes, "what is sealed opens as it was");
  if (size > 0) {
    require(!sealer.open("f/c/1", sealed, size - 1), "the limit holds");
    // The input says which byte changes, and how.
    const std::size_t at = (data[0] * 256 + data[size - 1]) % sealed.size();
    sealed[at] = static_cast<char>(sealed[at] ^ std::max<int>(data[size / 2], 1));
    require(!sealer.open("f/c/1", sealed, size), "a changed byte is noticed");
  }
  return 0;
}
