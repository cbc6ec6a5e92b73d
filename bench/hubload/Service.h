#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::hubload {

/// The server's own counters, which do not depend on how busy the machine is.
struct Effort {
  std::int64_t pages = 0;  ///< looked at, in memory or not
  std::int64_t rows = 0;   ///< and index entries read
};

/// What the service's database and its shared catalogues have had to do so far, once the sessions of the
/// accounts of that prefix have ended. `administratorUrl` is a superuser's.
Effort effortSoFar(const std::string& administratorUrl, const std::string& prefix);

/// Fresh accounts at the service, removed with all their records when this object goes.
class Accounts {
 public:
  /// `via` is the HOST:PORT that the URLs are to name; empty: that of the administrator's. Raises
  /// PostgresError.
  Accounts(std::string administratorUrl, const std::string& via, int count);
  ~Accounts();
  Accounts(const Accounts&) = delete;
  Accounts& operator=(const Accounts&) = delete;

  const std::vector<std::string>& urls() const { return _urls; }
  /// What all the roles' names begin with.
  const std::string& prefix() const { return _prefix; }
  /// How many live records the service counts, by account in the order of `urls`.
  std::vector<std::int64_t> liveRecords() const;

 private:
  std::string _administratorUrl;
  std::string _prefix;
  std::vector<std::string> _urls;
};

}  // namespace corvane::hubload
