#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane {

/// The server closed the connection, or answered nothing in a minute.
class ConnectionEnded : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An answer as it came.
struct HttpAnswer {
  int status = 0;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;

  std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
};

/// One plain connection to a server, for well-behaved requests and for others. Raises ConnectionEnded.
class HubClient {
 public:
  explicit HubClient(int port, std::string token = {});
  ~HubClient();
  HubClient(const HubClient&) = delete;
  HubClient& operator=(const HubClient&) = delete;

  HttpAnswer get(const std::string& target, const std::string& headers = {});
  HttpAnswer put(const std::string& target, std::string_view body, const std::string& headers = {});
  /// With "If-None-Match: *".
  HttpAnswer putNew(const std::string& target, std::string_view body);
  HttpAnswer remove(const std::string& target);

  /// A request's text. `headers`: lines that each end with "\r\n".
  std::string request(const std::string& method, const std::string& target,
                      const std::string& headers = {}) const;
  /// False when the server has closed the connection.
  bool send(std::string_view bytes);
  /// The next answer, interim ones (1xx) included.
  HttpAnswer receive();
  /// Whether the server closes the connection, whatever it sends before.
  bool isClosed();
  /// Has the server read no more from here.
  void endSending();

 private:
  bool fill();
  std::string takeLine();
  std::string take(std::size_t size);

  int _socket;
  std::string _token;
  std::string _input;
};

}  // namespace corvane
