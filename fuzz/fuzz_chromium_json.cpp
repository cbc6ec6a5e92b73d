// JSON texts are refused, or read as what Chromium writes.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/RequireTree.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/ChromiumBookmarks.h"
#include "tools/loomerctl/browsers/JsonText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;  // refusals are said in its language
  try {
    const auto document =
        loomerctl::parseJson(std::string(reinterpret_cast<const char*>(data), size), "file");
    if (loomerctl::isChromiumBookmarks(document))
      requireTree(loomerctl::readChromiumBookmarks(document, "file"));
  } catch (const loomerctl::Refused& refused) {
    require(refused.reason().starts_with("file is "), "a refusal names the file");
  }
  return 0;
}
