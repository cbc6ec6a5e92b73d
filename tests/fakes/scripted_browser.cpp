// usage: corvane-scripted-browser chromium|firefox
// A browser with the extension, speaking native messaging to a host over standard output and input: says
// hello, and answers requests until its input ends.

#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "browsers/host/NativeMessages.h"
#include "tests/fakes/ScriptedBrowser.h"

int main(int argc, char** argv) {
  const std::string_view kind = argc == 2 ? argv[1] : "";
  if (kind != "chromium" && kind != "firefox") {
    std::fputs("usage: corvane-scripted-browser chromium|firefox\n", stderr);
    return 2;
  }
  using corvane::ScriptedBrowser;
  ScriptedBrowser browser(kind == "chromium" ? ScriptedBrowser::Kind::chromium
                                             : ScriptedBrowser::Kind::firefox);
  corvane::browsers::NativeMessages host(STDIN_FILENO, STDOUT_FILENO);
  browser.start();
  do {
    while (const auto message = browser.next()) host.send(*message);
    const auto request = host.receive();
    if (!request) return 0;
    browser.take(*request);
  } while (true);
}
