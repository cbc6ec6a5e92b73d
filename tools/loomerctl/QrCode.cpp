#include "tools/loomerctl/QrCode.h"

#include <qrencode.h>

#include <memory>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

constexpr int kMargin = 4;  // modules that the standard wants light all around

struct CodeDeleter {
  void operator()(QRcode* code) const { QRcode_free(code); }
};

bool isLight(const QRcode& code, int row, int column) {
  if (row < 0 || row >= code.width || column < 0 || column >= code.width) return true;
  return (code.data[row * code.width + column] & 1) == 0;
}

}  // namespace

std::string qrCode(std::string_view text) {
  const std::unique_ptr<QRcode, CodeDeleter> code(
      QRcode_encodeString(std::string(text).c_str(), 0, QR_ECLEVEL_L, QR_MODE_8, 1));
  if (!code) throw Refused{tr("The text is too long for a QR code.")};
  std::string lines;
  for (int row = -kMargin; row < code->width + kMargin; row += 2) {
    for (int column = -kMargin; column < code->width + kMargin; ++column) {
      const bool upper = isLight(*code, row, column);
      const bool lower = row + 1 < code->width + kMargin && isLight(*code, row + 1, column);
      lines += upper && lower ? "█" : upper ? "▀" : lower ? "▄" : " ";
    }
    lines += '\n';
  }
  return lines;
}

}  // namespace corvane::loomerctl
