#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::hubload {

/// A command line that cannot be followed.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string url;  ///< of the server's superuser, naming the service's database; empty: a private server
  std::string via;  ///< HOST:PORT that the computers connect to; empty: where the URL says
  std::vector<int> accounts{10};
  std::vector<int> records{100};  ///< of each account
  int computers = 2;              ///< of each account
  int processes = 2;
  double editsPerSecond = 10;  ///< of all computers together
  double seconds = 10;         ///< of each timed phase
  std::uint64_t seed = 1;
};

/// What the command line must look like.
extern const char* const kUsage;

/// Raises UsageError.
Options parseOptions(int count, char** arguments);

}  // namespace corvane::hubload
