#pragma once

#include <openssl/ssl.h>

#include <boost/asio/generic/stream_protocol.hpp>
#include <cstddef>
#include <memory>
#include <string_view>

namespace corvane::hubserver {

using Socket = boost::asio::generic::stream_protocol::socket;
using TlsSession = std::unique_ptr<SSL, decltype(&SSL_free)>;

/// How far an attempt to read or write came.
struct Progress {
  enum class State {
    done,        ///< `bytes` were moved
    wantsRead,   ///< nothing was moved: again when the socket is readable
    wantsWrite,  ///< … writable
    ended,       ///< the peer sends no more
    failed,
  };
  State state;
  std::size_t bytes = 0;
};

/// One connection to a client: a socket, with TLS or without. Nothing waits, and nothing is kept between two
/// calls but what TLS itself keeps, so that ten thousand of them are cheap while they are quiet.
class Transport {
 public:
  /// `session` is empty for a connection without TLS.
  Transport(Socket socket, TlsSession session);

  Socket& socket() { return _socket; }
  bool hasTls() const { return static_cast<bool>(_session); }

  /// To be called until it is `done`, before anything else.
  Progress handshake();
  Progress receive(char* buffer, std::size_t size);
  /// Where it was not `done`, the next call begins with the same bytes.
  Progress send(std::string_view bytes);
  /// Tells the peer that nothing follows.
  void endSending();

 private:
  Progress tlsProgress(int result);

  Socket _socket;
  TlsSession _session;
};

}  // namespace corvane::hubserver
