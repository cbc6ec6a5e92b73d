#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

// How a server lives with what is around it: systemd, proxies, other servers.

class HubHouse : public testing::Test {
 protected:
  TemporaryDirectory directory;
};

/// Opens a listening socket as descriptor 3, says so in the environment, and becomes the program.
constexpr const char* kActivation = R"(
import os, socket, sys
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], file=open(sys.argv[1], "w"), flush=True)
os.dup2(listener.fileno(), 3)
os.set_inheritable(3, True)
os.environ.update(LISTEN_PID=str(os.getpid()), LISTEN_FDS="1")
os.execvp(sys.argv[2], sys.argv[2:])
)";

TEST_F(HubHouse, TheSocketThatSystemdOpenedIsServed) {
  const std::string token = accountCommand(directory.path(), {"add", "ada"});
  const HubProcess hub(directory.path(), "quota = 1 MiB\n",
                       {"python3", "-c", kActivation, directory / "port"});
  int port = 0;
  std::ifstream(directory / "port") >> port;
  EXPECT_EQ(hub.port(), port);
  EXPECT_EQ(HubClient(port, token).put("/v1/o/f/1", "x").status, 201);
}

TEST_F(HubHouse, SystemdIsToldWhenTheServerIsReadyAndWhenItEnds) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = directory / "notify";
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto next = [&] {
    char text[200] = "";
    ::recv(socket.number(), text, sizeof text - 1, 0);
    return std::string(text);
  };
  HubProcess hub(directory.path(), {}, {"env", "NOTIFY_SOCKET=" + path});
  EXPECT_EQ(next(), "READY=1");
  hub.signal(SIGTERM);
  EXPECT_EQ(next(), "STOPPING=1");
  EXPECT_EQ(hub.awaitEnd(), 0);
}

TEST_F(HubHouse, AServerTakesTheSocketOfOneThatWasKilledAndOfNoOther) {
  const std::string lines = "listen = unix:" + directory / "socket" + "\n";
  { const HubProcess killed(directory.path(), lines); }
  const HubProcess hub(directory.path(), lines);
  EXPECT_THROW(HubProcess(directory.path(), lines), std::runtime_error);
  const ProgramResult result =
      runProgram({"curl", "-sS", "--unix-socket", directory / "socket", "http://x/v1/o/f/1"});
  EXPECT_EQ(result.output, "a token is missing or unknown\n");
}

/// Two hosts, each with accounts of its own, behind one name: the proxy goes by the account, with which a
/// token begins.
TEST_F(HubHouse, TwoHostsServeTheirAccountsBehindOneProxy) {
  const std::string nginx = directory / "nginx";
  const std::string first = directory / "first";
  const std::string second = directory / "second";
  for (const std::string& path : {nginx, first, second}) ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  const std::string ada = accountCommand(first, {"add", "ada"});
  const std::string zoe = accountCommand(second, {"add", "zoe"});
  const HubProcess firstHub(first);
  const HubProcess secondHub(second, "listen = unix:" + second + "/socket\n");
  std::ofstream(nginx + "/conf")
      << "daemon off; master_process off; error_log " << nginx << "/log; pid " << nginx << "/pid;\n"
      << (::geteuid() == 0 ? "user root;\n" : "") << "events {}\n"
      << "http {\n  access_log off; client_body_temp_path " << nginx << "/body;\n"
      << "  upstream first { server 127.0.0.1:" << firstHub.port() << "; keepalive 8; }\n"
      << "  upstream second { server unix:" << second << "/socket; keepalive 8; }\n"
      << "  map $http_authorization $hub { \"~^Bearer [a-m]\" first; default second; }\n"
      << "  server {\n    listen unix:" << nginx << "/socket;\n"
      << "    location /v1/ {\n      proxy_pass http://$hub; proxy_http_version 1.1;\n"
      << "      proxy_set_header Connection \"\"; proxy_set_header Host $host;\n"
      << "      proxy_request_buffering off; proxy_buffering off; client_max_body_size 64m;\n"
      << "      proxy_read_timeout 330s;\n    }\n  }\n}\n";
  const ChildProcess proxy({"nginx", "-p", nginx, "-c", nginx + "/conf"},
                           [&] { redirectErrorsOrEnd(nginx + "/errors"); });
  while (::access((nginx + "/socket").c_str(), F_OK) != 0 && !proxy.hasEnded()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const auto curl = [&](const std::string& token, const std::vector<std::string>& more) {
    std::vector<std::string> arguments{
        "curl", "-sS", "--unix-socket", nginx + "/socket", "-H", "Authorization: Bearer " + token};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runProgram(arguments).output;
  };
  std::ofstream(directory / "object") << "an object";
  for (const std::string& token : {ada, zoe}) {
    EXPECT_EQ(curl(token, {"-T", directory / "object", "-H", "If-None-Match: *", "-w", "%{http_code}",
                           "http://x/v1/o/f/1"}),
              "201");
    EXPECT_EQ(curl(token, {"http://x/v1/o/f/1"}), "an object");
    EXPECT_EQ(curl(token, {"-w", "%{http_code}", "http://x/v1/o/f/2?wait=1"}),
              "nothing of that name came\n404");
    EXPECT_TRUE(curl(token, {"http://x/v1/list/f"}).ends_with(" f/1\nend\n"));
  }
  EXPECT_TRUE(accountCommand(first, {"list"}).starts_with("ada  2 KiB"));
  EXPECT_TRUE(accountCommand(second, {"list"}).starts_with("zoe  2 KiB"));
}

}  // namespace

}  // namespace corvane
