// corvane-hub-service: a private PostgreSQL server with the online service, and a relay to it, for test
// programs in other languages. Each line of standard input is a command, its words apart by tabs; each is
// answered by one line, "ok" and the answer or "failed" and the reason. The server ends with the input.

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tests/pelto/CuttingProxy.h"
#include "tests/pelto/PostgresServer.h"

namespace {

using corvane::CuttingProxy;
using Words = std::vector<std::string>;

class Service {
 public:
  std::string answer(const Words& words) {
    const auto command = _commands.find(words.at(0));
    if (command == _commands.end()) throw std::runtime_error("there is no such command");
    return command->second(words);
  }

 private:
  using Command = std::function<std::string(const Words&)>;

  template <typename Work>
  static Command doing(Work work) {
    return [work](const Words& words) {
      work(words);
      return std::string();
    };
  }

  static CuttingProxy::Moment momentOf(const std::string& word) {
    return word == "before" ? CuttingProxy::Moment::before : CuttingProxy::Moment::after;
  }

  corvane::PostgresServer _server;
  CuttingProxy _relay{_server.port()};
  const std::map<std::string, Command> _commands = {
      {"account", [this](const Words& w) { return _server.addAccount(w.at(1), w.at(2)); }},
      {"password", [this](const Words& w) { return _server.hubAccount("password", w.at(1), w.at(2)); }},
      {"database", doing([this](const Words& w) { _server.makeDatabase(w.at(1)); })},
      {"set up", doing([this](const Words& w) { _server.setUpHub(w.at(1)); })},
      {"sql", [this](const Words& w) { return _server.administer(w.at(2), w.at(1)); }},
      {"url", [this](const Words& w) { return _server.administratorUrl(w.at(1)); }},
      {"programs", [this](const Words&) { return _server.programs(); }},
      {"kill", doing([this](const Words&) { _server.kill(); })},
      {"start", doing([this](const Words&) { _server.start(); })},
      {"relay", [this](const Words& w) { return _relay.through(w.at(1)); }},
      {"cut", doing([this](const Words& w) { _relay.cutAt(std::stoi(w.at(1)), momentOf(w.at(2))); })},
      {"fall silent", doing([this](const Words& w) { _relay.fallSilentAt(std::stoi(w.at(1))); })},
      {"messages", [this](const Words&) { return std::to_string(_relay.messages()); }},
  };
};

Words wordsOf(const std::string& line) {
  Words words;
  std::istringstream stream(line);
  for (std::string word; std::getline(stream, word, '\t');) words.push_back(word);
  return words;
}

void tell(const std::string& outcome, std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::cout << outcome << '\t' << text << std::endl;
}

}  // namespace

int main() {
  try {
    Service service;
    tell("ok", "");
    for (std::string line; std::getline(std::cin, line);) {
      try {
        tell("ok", service.answer(wordsOf(line)));
      } catch (const std::exception& exception) {
        tell("failed", exception.what());
      }
    }
    return 0;
  } catch (const std::exception& exception) {
    tell("failed", exception.what());
    return 1;
  }
}
