#include "tools/corvane-hub/Transport.h"

#include <openssl/err.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::hubserver {

namespace {

// What SSL_read and SSL_write count with.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

Progress socketProgress(ssize_t result, Progress::State wanted) {
  if (result > 0) return {Progress::State::done, static_cast<std::size_t>(result)};
  if (result == 0) return {Progress::State::ended};
  if (errno == EAGAIN || errno == EWOULDBLOCK) return {wanted};
  return {Progress::State::failed};
}

}  // namespace

Transport::Transport(Socket socket, TlsSession session)
    : _socket(std::move(socket)), _session(std::move(session)) {}

Progress Transport::handshake() {
  if (!_session) return {Progress::State::done};
  ERR_clear_error();
  return tlsProgress(SSL_do_handshake(_session.get()));
}

Progress Transport::receive(char* buffer, std::size_t size) {
  if (_session) {
    ERR_clear_error();
    return tlsProgress(SSL_read(_session.get(), buffer, static_cast<int>(std::min(size, kMostAtOnce))));
  }
  const int descriptor = _socket.native_handle();
  return socketProgress(retryingInterrupted([&] { return ::recv(descriptor, buffer, size, 0); }),
                        Progress::State::wantsRead);
}

Progress Transport::send(std::string_view bytes) {
  if (_session) {
    ERR_clear_error();
    return tlsProgress(
        SSL_write(_session.get(), bytes.data(), static_cast<int>(std::min(bytes.size(), kMostAtOnce))));
  }
  const int descriptor = _socket.native_handle();
  return socketProgress(
      retryingInterrupted([&] { return ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL); }),
      Progress::State::wantsWrite);
}

void Transport::endSending() {
  // Neither can be helped where it fails: the connection is closed in a moment.
  if (_session) {
    ERR_clear_error();
    SSL_shutdown(_session.get());
  }
  ::shutdown(_socket.native_handle(), SHUT_WR);
}

Progress Transport::tlsProgress(int result) {
  if (result > 0) return {Progress::State::done, static_cast<std::size_t>(result)};
  switch (SSL_get_error(_session.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return {Progress::State::wantsRead};
    case SSL_ERROR_WANT_WRITE:
      return {Progress::State::wantsWrite};
    case SSL_ERROR_ZERO_RETURN:
      return {Progress::State::ended};
    default:
      return {Progress::State::failed};
  }
}

}  // namespace corvane::hubserver
