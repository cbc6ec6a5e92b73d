#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// The text as a QR code (ISO/IEC 18004) for a terminal, two rows of modules in a line of half blocks, light
/// ones drawn, so that it can be read where letters are light on dark. Raises Refused for text that is too
/// long for one.
std::string qrCode(std::string_view text);

}  // namespace corvane::loomerctl
