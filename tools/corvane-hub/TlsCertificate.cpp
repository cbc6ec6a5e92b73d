#include "tools/corvane-hub/TlsCertificate.h"

#include <openssl/err.h>
#include <sys/stat.h>

#include <string_view>

#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

namespace {

[[noreturn]] void failTls(const std::string& what) {
  char reason[256] = "no reason given";
  if (const unsigned long code = ERR_get_error()) ERR_error_string_n(code, reason, sizeof reason);
  ERR_clear_error();
  throw HubFailure(what + ": " + reason);
}

/// Of what a client offers (RFC 7301), HTTP/1.1 is taken; one that offers others alone is told so by the
/// handshake's end.
int chooseProtocol(SSL*, const unsigned char** chosen, unsigned char* length, const unsigned char* offered,
                   unsigned int size, void*) {
  static constexpr std::string_view kOurs = "\x08http/1.1";
  const auto* ours = reinterpret_cast<const unsigned char*>(kOurs.data());
  unsigned char* found = nullptr;
  if (SSL_select_next_proto(&found, length, ours, kOurs.size(), offered, size) != OPENSSL_NPN_NEGOTIATED) {
    return SSL_TLSEXT_ERR_ALERT_FATAL;
  }
  *chosen = found;
  return SSL_TLSEXT_ERR_OK;
}

}  // namespace

TlsCertificate::TlsCertificate(std::string certificate, std::string key)
    : _certificate(std::move(certificate)), _key(std::move(key)), _context(nullptr, &SSL_CTX_free) {
  reload();
}

TlsSession TlsCertificate::session(int socket) const {
  TlsSession session(SSL_new(_context.get()), &SSL_free);
  if (!session || SSL_set_fd(session.get(), socket) != 1) failTls("no TLS session");
  SSL_set_accept_state(session.get());
  return session;
}

void TlsCertificate::reload() {
  _stamp = stamp();
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) failTls("no TLS");
  // A quiet connection gives its buffers back; a write that is tried again may come from elsewhere.
  SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                      SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_options(context.get(),
                      SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_IGNORE_UNEXPECTED_EOF);
  SSL_CTX_set_session_cache_mode(context.get(),
                                 SSL_SESS_CACHE_OFF);  // sessions go on by tickets, which cost no memory
  SSL_CTX_set_alpn_select_cb(context.get(), chooseProtocol, nullptr);
  if (SSL_CTX_use_certificate_chain_file(context.get(), _certificate.c_str()) != 1) {
    failTls("the certificate " + _certificate + " cannot be used");
  }
  if (SSL_CTX_use_PrivateKey_file(context.get(), _key.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(context.get()) != 1) {
    failTls("the key " + _key + " cannot be used with the certificate " + _certificate);
  }
  _context = std::move(context);
}

bool TlsCertificate::hasChanged() const { return stamp() != _stamp; }

/// What shows that a file is another one, also behind a link.
std::string TlsCertificate::stamp() const {
  std::string text;
  for (const std::string& file : {_certificate, _key}) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) status = {};
    text += std::to_string(status.st_ino) + '/' + std::to_string(status.st_size) + '/' +
            std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec) + ' ';
  }
  return text;
}

}  // namespace corvane::hubserver
