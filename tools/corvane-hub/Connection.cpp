#include "tools/corvane-hub/Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/post.hpp>
#include <cstdio>
#include <ctime>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::hubserver {

namespace {

// After so many steps others have their turn.
constexpr int kStepsAtOnce = 32;
constexpr std::uint64_t kSlowestPerSecond = 1024;

TimePoint now() { return std::chrono::steady_clock::now(); }

const char* reasonOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 204:
      return "No Content";
    case 304:
      return "Not Modified";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 409:
      return "Conflict";
    case 411:
      return "Length Required";
    case 412:
      return "Precondition Failed";
    case 413:
      return "Content Too Large";
    case 429:
      return "Too Many Requests";
    case 431:
      return "Request Header Fields Too Large";
    case 503:
      return "Service Unavailable";
    case 507:
      return "Insufficient Storage";
    default:
      return "Internal Server Error";
  }
}

/// The time in the form of RFC 9110, 5.6.7, in no locale's words.
std::string httpDate() {
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t time = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday], parts.tm_mday,
                kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text;
}

std::string chunkOf(const std::string& text) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx\r\n", text.size());
  return size + text + "\r\n";
}

}  // namespace

Connection::Connection(HubService& service, Transport transport)
    : _service(service), _transport(std::move(transport)), _deadline(now() + kHeadTime) {}

Connection::~Connection() = default;

void Connection::start() { advance(); }

void Connection::tick(TimePoint time) {
  if (time < _deadline) return;
  switch (_state) {
    case State::head:
      if (_input.empty()) return close();
      [[fallthrough]];
    case State::body:
      refuse(408, "the request did not come in time");
      return advance();
    case State::waiting:
      answer({404, "nothing of that name came", {}, {}, {}});
      return advance();
    case State::disk:
      return;  // what is on its way to the disk cannot be called back
    default:
      close();
  }
}

void Connection::checkToken() {
  const bool runs = _state == State::waiting || _state == State::body || _state == State::sending;
  if (!runs || !_token || standing() == Standing::good) return;
  if (_state == State::sending) return close();
  _service.watch.remove(*this);
  refuse(403, "the token has been revoked");
  advance();
}

void Connection::stop() {
  if (_state == State::handshake || (_state == State::head && _input.empty())) return close();
  if (_state != State::waiting) return;
  refuse(503, "the server ends", "Retry-After: 5\r\n");
  advance();
}

void Connection::advance() {
  const auto self = shared_from_this();
  for (int steps = 0; step(); ++steps) {
    if (steps == kStepsAtOnce) return resume();
  }
}

bool Connection::step() {
  switch (_state) {
    case State::handshake:
      return shakeHands();
    case State::head:
      return readHead();
    case State::body:
      return readBody();
    case State::sending:
      return sendMore();
    case State::lingering:
      return discard();
    default:
      return false;
  }
}

void Connection::await(Progress::State wanted) {
  const bool reads = wanted == Progress::State::wantsRead;
  bool& awaits = reads ? _awaitsRead : _awaitsWrite;
  if (awaits) return;
  awaits = true;
  _transport.socket().async_wait(reads ? Socket::wait_read : Socket::wait_write,
                                 [self = shared_from_this(), wanted](boost::system::error_code error) {
                                   if (!error) self->arrive(wanted);  // else it was closed
                                 });
}

void Connection::arrive(Progress::State direction) {
  (direction == Progress::State::wantsRead ? _awaitsRead : _awaitsWrite) = false;
  if (_state == State::waiting) {
    noticePeer();
  } else {
    advance();
  }
}

void Connection::resume() {
  boost::asio::post(_service.context, [self = shared_from_this()] { self->advance(); });
}

void Connection::close() {
  if (_state == State::closed) return;
  _state = State::closed;
  _service.watch.remove(*this);
  leaveAccount();
  _upload.reset();
  _object.reset();
  _listing.reset();
  boost::system::error_code ignored;  // a socket that cannot be closed is closed
  _transport.socket().close(ignored);
  _service.connections.erase(shared_from_this());
}

void Connection::allow(std::chrono::seconds time) { _deadline = now() + time; }

bool Connection::pass(const Progress& progress) {
  switch (progress.state) {
    case Progress::State::done:
      return true;
    case Progress::State::wantsRead:
    case Progress::State::wantsWrite:
      await(progress.state);
      return false;
    default:
      close();
      return false;
  }
}

bool Connection::shakeHands() {
  if (!pass(_transport.handshake())) return false;
  _state = State::head;
  return true;
}

bool Connection::readHead() {
  const std::size_t end = _input.find("\r\n\r\n");
  if (end != std::string::npos && end + 4 <= kLongestHead) {
    const std::string head = _input.substr(0, end + 4);
    _input.erase(0, head.size());
    begin(head);
    return true;
  }
  if (_input.size() >= kLongestHead) {
    refuse(431, "a request's head has 8 KiB at most");
    return true;
  }
  const bool begins = _input.empty();
  const Progress progress = _transport.receive(_service.buffer.data(), _service.buffer.size());
  if (!pass(progress)) return false;
  if (begins) allow(kHeadTime);
  _input.append(_service.buffer.data(), progress.bytes);
  return true;
}

bool Connection::readBody() {
  const std::uint64_t missing = *_head.length - _upload->bytes();
  if (missing == 0) {
    storeUpload();
    return true;
  }
  std::string_view bytes = std::string_view(_input).substr(0, static_cast<std::size_t>(missing));
  if (bytes.empty()) {
    const std::size_t most =
        static_cast<std::size_t>(std::min<std::uint64_t>(missing, _service.buffer.size()));
    const Progress progress = _transport.receive(_service.buffer.data(), most);
    if (!pass(progress)) return false;
    bytes = std::string_view(_service.buffer.data(), progress.bytes);
  }
  try {
    _upload->write(bytes);
  } catch (const HubFailure& failure) {
    fail(failure);
    return true;
  }
  if (bytes.data() == _input.data()) _input.erase(0, bytes.size());
  return true;
}

bool Connection::discard() {
  return pass(_transport.receive(_service.buffer.data(), _service.buffer.size()));
}

void Connection::noticePeer() {
  // Somebody who waits may send the next request, and may go.
  const Progress progress = _transport.receive(_service.buffer.data(), kLongestHead);
  if (progress.state == Progress::State::done) {
    _input.append(_service.buffer.data(), progress.bytes);
    if (_input.size() < kLongestHead) await(Progress::State::wantsRead);
  } else {
    pass(progress);
  }
}

void Connection::answer(Answer answer) {
  _service.watch.remove(*this);
  _upload.reset();
  _closes = _closes || !_head.keepsAlive || _service.isStopping || (answer.listing && _head.isOldVersion);
  _output = headOf(answer);
  if (!answer.text.empty()) _output += answer.text + '\n';
  const std::uint64_t size = answer.object ? answer.object->bytes : 0;
  _object = std::move(answer.object);
  _sent = 0;
  _listing = std::move(answer.listing);
  _state = State::sending;
  allow(kMoveTime + std::chrono::seconds(size / kSlowestPerSecond));
}

void Connection::refuse(int status, std::string text, std::string headers) {
  _closes = true;
  answer({status, std::move(text), std::move(headers), {}, {}});
}

std::string Connection::headOf(const Answer& answer) const {
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + ' ' + reasonOf(answer.status) + "\r\n";
  head += "Date: " + httpDate() + "\r\nCache-Control: no-store\r\n" + answer.headers;
  if (answer.listing) {
    head += "Content-Type: text/plain\r\n";
    if (!_head.isOldVersion) head += "Transfer-Encoding: chunked\r\n";
  } else if (answer.object) {
    head +=
        "Content-Type: application/octet-stream\r\nContent-Length: " + std::to_string(answer.object->bytes) +
        "\r\n";
  } else if (!answer.text.empty()) {
    head += "Content-Type: text/plain\r\nContent-Length: " + std::to_string(answer.text.size() + 1) + "\r\n";
  } else if (answer.status != 204 && answer.status != 304) {
    head += "Content-Length: 0\r\n";
  }
  if (_closes) {
    head += "Connection: close\r\n";
  } else if (_head.isOldVersion) {
    head += "Connection: keep-alive\r\n";
  }
  return head + "\r\n";
}

bool Connection::sendMore() {
  if (!_output.empty()) {
    const Progress progress = _transport.send(_output);
    if (!pass(progress)) return false;
    _output.erase(0, progress.bytes);
    return true;
  }
  if (_object && _sent < _object->bytes) {
    std::array<char, 64 * 1024>& buffer = _service.buffer;
    const ssize_t count = retryingInterrupted([&] {
      return ::pread(_object->file.number(), buffer.data(), buffer.size(), static_cast<off_t>(_sent));
    });
    if (count <= 0) {
      close();  // the promised length can only be broken by breaking off
      return false;
    }
    const Progress progress =
        _transport.send(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
    if (!pass(progress)) return false;
    _sent += progress.bytes;
    return true;
  }
  if (!refill()) finish();
  return true;
}

/// Takes the next lines of a listing; false when nothing is left to send.
bool Connection::refill() {
  if (!_listing) return false;
  try {
    std::string lines = _listing->next();
    const bool ends = lines.empty();
    if (ends) {
      lines = "end\n";
      _listing.reset();
    }
    _output = _head.isOldVersion ? lines : chunkOf(lines) + (ends ? "0\r\n\r\n" : "");
    allow(kMoveTime);
    return true;
  } catch (const HubFailure&) {
    close();  // without its last line the listing counts for nothing
    return true;
  }
}

void Connection::finish() {
  _object.reset();
  _token.reset();
  _target.reset();
  _output.shrink_to_fit();
  if (_closes) {
    _transport.endSending();
    _state = State::lingering;
    allow(kLingerTime);
  } else {
    _state = State::head;
    allow(_input.empty() ? kIdleTime : kHeadTime);
    if (_input.empty()) _input.shrink_to_fit();
  }
}

}  // namespace corvane::hubserver
