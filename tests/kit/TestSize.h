#pragma once

namespace corvane {

#ifdef CORVANE_SANITIZED
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

/// The size of a test that is one for its size alone, or for the number of its cases. Under the sanitizers,
/// which take many times longer and find in the millionth round what they find in the thousandth, it has the
/// second one. CMakeLists.txt names such a test behind PLAIN, so that every whole run also takes it in its
/// full size.
template <typename Number>
constexpr Number sized(Number full, Number sanitized) {
  return kIsSanitized ? sanitized : full;
}

}  // namespace corvane
