#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvane {

/// What came over a connection, and the way back.
class ScriptedConnection {
 public:
  explicit ScriptedConnection(int descriptor) : _descriptor(descriptor) {}

  /// False once the other side is gone.
  bool send(std::string_view bytes);
  /// Waits until the other side is gone.
  void awaitEnd();

 private:
  int _descriptor;
};

/// A server for tests that sends what it is told to, byte by byte: the way to answers that no real one gives.
/// Each connection takes one request and is closed. Any number at a time.
class ScriptedServer {
 public:
  using Script = std::function<void(const std::string& request, ScriptedConnection& connection)>;

  explicit ScriptedServer(Script script);
  /// Always sends these bytes.
  explicit ScriptedServer(std::string answer);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int port() const { return _port; }
  /// "127.0.0.1:PORT"
  std::string host() const { return "127.0.0.1:" + std::to_string(_port); }
  /// The requests so far, header and body, in the order in which they came.
  std::vector<std::string> requests() const;

 private:
  void accept();
  void serve(int descriptor);

  Script _script;
  int _listener = -1;
  int _port = 0;
  mutable std::mutex _mutex;
  std::vector<std::string> _requests;
  std::vector<std::thread> _threads;
  std::thread _accepting;
};

/// An answer of HTTP/1.1 with its length: status, such as "200 OK", further headers ("Name: value\r\n"),
/// body.
std::string httpAnswer(const std::string& status, const std::string& body = {},
                       const std::string& headers = {});

}  // namespace corvane
