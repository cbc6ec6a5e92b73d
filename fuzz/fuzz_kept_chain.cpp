// Whatever stands in the files that a computer keeps of its account, they are read or refused, and what was
// read is written and read as the same.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/account/MembershipFile.h"
#include "CorvaneSyncClient/platform/pelto/chain/KeptFile.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

class KeptChain {
 public:
  KeptChain() { _file.write({}); }  // with the mode without which it is not read

  void readAndWrite(std::string_view bytes) {
    require(!_platform.realFiles.write(_path, bytes), "the file is laid out");
    const std::string once = written(), twice = written();
    require(once == twice, "what is kept is read as it was written");
    _platform.log.messages.clear();
  }

 private:
  // What the file holds once what it held is written.
  std::string written() {
    _file.write(_file.read());
    std::string bytes;
    require(!_platform.realFiles.read(_path, bytes), "the file is there");
    return bytes;
  }

  FakePlatform _platform;
  const std::string _path = _platform.directory / "Chain.plist";
  const pelto::chain::KeptFile _file{_path, "chain"};
};

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static KeptChain kept;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  kept.readAndWrite(bytes);
  if (const auto account = pelto::accountInMembershipFile(bytes)) {
    const pelto::SecretBytes written = pelto::membershipFileOf(*account);
    const auto again = pelto::accountInMembershipFile(written.view());
    require(again && pelto::membershipFileOf(*again).view() == written.view(),
            "an account is read as it was written");
  }
  return 0;
}
