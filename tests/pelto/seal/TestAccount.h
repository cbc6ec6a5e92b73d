#pragma once

namespace corvane::pelto {

/// The account that the tests seal for.
inline constexpr const char* kAccount = "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01";

}  // namespace corvane::pelto
