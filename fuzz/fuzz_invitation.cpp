// Whatever is typed, it is an invitation or refused, and an invitation is printed as it was read.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

void checkPrintsAgain(const pelto::Invitation& invitation) {
  const pelto::Invitation line = pelto::invitationFrom(pelto::lineOf(invitation));
  const pelto::Invitation words = pelto::invitationFrom(pelto::wordsOf(invitation));
  require(pelto::bytesOf(line).view() == pelto::bytesOf(invitation).view(), "a line reads back equal");
  require(pelto::bytesOf(words).view() == pelto::bytesOf(invitation).view(), "words read back equal");
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static const FakePlatform platform;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    checkPrintsAgain(pelto::invitationFrom(text));
  } catch (const pelto::InvitationException&) {
  }
  if (const auto invitation = pelto::invitationIn(text)) checkPrintsAgain(*invitation);
  return 0;
}
