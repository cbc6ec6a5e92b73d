#pragma once

#include <cstdint>

namespace corvane::hubload {

/// What an exchange with the service brought about.
enum class Kind : std::int32_t {
  load,   ///< gave an account's first records
  pull,   ///< took them on a computer without any
  quiet,  ///< nothing was new on either side
  take,   ///< took other computers' edits
  edit,   ///< gave an edit of this computer, after taking those of others
};
inline constexpr int kKinds = 5;

/// One session, as it went. Trivially copyable: it passes between processes.
struct Sample {
  Kind kind = Kind::quiet;
  bool failed = false;        ///< this computer was left alone
  std::int32_t retries = 0;   ///< pushes for which another computer was faster
  double seconds = 0;         ///< from opening the store to closing it, less the time of the edit itself
  double serviceSeconds = 0;  ///< of these, waiting for the service: connecting and all statements
  std::int64_t sent = 0;      ///< bytes to the service
  std::int64_t received = 0;  ///< bytes from it
};

/// A computer's tree in the end.
struct Digest {
  std::int32_t account = 0;
  std::int32_t computer = 0;
  std::int64_t records = 0;  ///< live ones
  std::uint64_t hash = 0;    ///< of everything in them, in order
};

}  // namespace corvane::hubload
