#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "tests/pelto/place/ScriptedServer.h"

namespace corvane {

/// A corvane-hub in memory that keeps its protocol but where it is told to lie.
class LyingHub {
 public:
  struct Request {
    std::string method;
    std::string target;  ///< "/v1/o/NAME"
    std::string body;
  };
  /// Answers the request, or nothing, instead of with `honest`.
  using Lie =
      std::function<void(const Request& request, const std::string& honest, ScriptedConnection& connection)>;

  LyingHub();

  /// The address of the place.
  std::string address() const { return "hub://" + _server.host() + "?tls=no"; }
  /// From now on answers requests so that begin with one of "GET /v1/o/", "PUT " and the like, and have
  /// `part` in their target. What they ask for is done, if `isDone`.
  void lie(const std::string& beginning, const std::string& part, bool isDone, Lie lie);
  /// Answers honestly from now on.
  void beHonest();

  std::map<std::string, std::string> objects() const;
  void setObjects(std::map<std::string, std::string> objects);

 private:
  std::string honestAnswer(const Request& request, const std::string& text, bool isDone);
  void serve(const std::string& text, ScriptedConnection& connection);

  mutable std::mutex _mutex;
  std::map<std::string, std::string> _objects;
  std::string _beginning, _part;
  bool _isDone = true;
  Lie _lie;
  ScriptedServer _server;  // last, since it calls at once
};

}  // namespace corvane
