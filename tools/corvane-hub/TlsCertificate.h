#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "tools/corvane-hub/Transport.h"

namespace corvane::hubserver {

/// The server's certificate and key, taken anew when their files change. TLS 1.2 and later.
class TlsCertificate {
 public:
  /// PEM files; the first with the chain. Raises HubFailure when they do not fit.
  TlsCertificate(std::string certificate, std::string key);

  /// The server's end of a connection. Raises HubFailure when there is no memory.
  TlsSession session(int socket) const;
  /// Reads the files again. Raises HubFailure and keeps what it has when they do not fit.
  void reload();
  /// Whether the files are others than those that were last read, successfully or not.
  bool hasChanged() const;

 private:
  std::string stamp() const;

  std::string _certificate;
  std::string _key;
  std::string _stamp;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> _context;
};

}  // namespace corvane::hubserver
