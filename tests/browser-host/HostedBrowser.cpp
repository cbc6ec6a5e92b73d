#include "tests/browser-host/HostedBrowser.h"

#include <utility>

#include "browsers/host/HeldTree.h"

namespace corvane {

namespace {

using browsers::NodeKind;
using browsers::RootKind;

}  // namespace

void HostedBrowser::start() {
  browser.start();
  _host = std::make_unique<browsers::BrowserHost>(*this);
  settle();
}

void HostedBrowser::settle() {
  try {
    while (browser.isRunning() && _host) {
      const auto message = browser.next();
      if (message) {
        _host->take(browsers::readExtensionMessage(*message));
      } else if (_host->wantsSession()) {
        _host->sync();
      } else {
        return;
      }
    }
  } catch (const browsers::ExtensionGone&) {
    if (_host) _host->ended();
    _host.reset();
  } catch (const HostKilled&) {
    _host.reset();
    browser.connect();
    _host = std::make_unique<browsers::BrowserHost>(*this);
    settle();
  }
}

void HostedBrowser::sync() {
  if (!browser.isRunning()) return start();
  if (_host) _host->storeChanged();
  settle();
  if (!browser.isRunning()) start();
}

bool HostedBrowser::notice() {
  if (!_host || !_host->mayHaveNews()) return false;
  _host->storeChanged();
  const bool wanted = _host->wantsSession();
  settle();
  return wanted;
}

void HostedBrowser::quit() {
  settle();
  if (!browser.isRunning()) return;
  browser.quit();
  if (_host) _host->ended();
  _host.reset();
}

void HostedBrowser::kill() {
  ++_kills;
  browser.kill();
  if (_host) _host->ended();
  _host.reset();
}

void HostedBrowser::restartHost() {
  if (!browser.isRunning()) return;
  _host.reset();
  browser.connect();
  _host = std::make_unique<browsers::BrowserHost>(*this);
  settle();
}

void HostedBrowser::send(std::string_view message) {
  if (onMessage) onMessage(message);
  if (_hostDiesAt > 0 && --_hostDiesAt == 0) throw HostKilled{};
  if (_browserDiesAt > 0 && --_browserDiesAt == 0) {
    ++_kills;
    browser.kill();
  }
  const bool isChange =
      message.find("\"parent\"") != message.npos || message.find("\"node\"") != message.npos;
  if (isChange && beforeNextChange) std::exchange(beforeNextChange, nullptr)();
  if (!browser.isRunning()) return;
  browser.take(message);
  if (!browser.isRunning()) ++_kills;
}

std::optional<std::string> HostedBrowser::receive() {
  if (!browser.isRunning()) return std::nullopt;
  return browser.next();
}

std::string HostedBrowser::text() const {
  std::string text;
  for (const RootKind kind : browsers::kRootKinds) {
    const std::string root = browser.root(kind);
    if (root.empty() || browser.childrenOf(root).empty()) continue;
    const auto childrenOf = [this](const std::string& id) { return browser.childrenOf(id); };
    const auto nodeOf = [this](const std::string& id) -> kit::TreeNode {
      const ScriptedBrowser::Node& node = browser.nodes().at(id);
      return {.label = node.title,
              .folder = node.kind == NodeKind::folder,
              .title = String(node.title),
              .url = node.kind == NodeKind::bookmark ? String(node.url) : String()};
    };
    text += (text.empty() ? "" : " ") + std::string(browsers::nameOf(kind)) + ": " +
            kit::printTree(kit::treeBelow(root, childrenOf, nodeOf));
  }
  return text;
}

}  // namespace corvane
