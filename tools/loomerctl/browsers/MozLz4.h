#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// What Firefox has compressed: behind 8 bytes that say so and the size of the contents (32 bits, the lowest
/// byte first) stands one LZ4 block. Raises Refused, with `name`, the offset and the cause, for bytes that no
/// such file holds.
std::string mozLz4Contents(std::string_view bytes, const std::string& name);

}  // namespace corvane::loomerctl
