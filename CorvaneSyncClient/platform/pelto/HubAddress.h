#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::pelto {

/// A server that an address names.
struct HubHost {
  std::string name;     ///< as the server's certificate has it; a path for a socket; empty: the usual socket
  std::string address;  ///< numeric, where the connection goes; empty: to be looked up from the name
  std::string port;     ///< empty: the usual one

  /// Whether connecting stays within this computer.
  bool isLocal() const;
  /// Whether there is a name that stands for numeric addresses yet to be found.
  bool needsLookup() const;
};

/// What a `postgresql://` URL says, with what the tool adds: for a server that is not local TLS that checks
/// who the server is. Holds secrets.
struct HubAddress {
  std::vector<HubHost> hosts;  ///< never empty; tried in this order
  /// The other connection parameters by libpq's names, "sslmode" always among them.
  std::vector<std::pair<std::string, std::string>> parameters;

  /// Empty when the parameter is not set.
  std::string parameter(std::string_view name) const;
  /// Servers, database and user for people, without secrets.
  std::string description() const;
};

/// Raises DotPeltoException, as `checkAccountUrl` says.
HubAddress parseHubAddress(std::string_view url);

}  // namespace corvane::pelto
