#include "tests/pelto/place/ServerGrounds.h"

#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Signature.h"
#include "CorvaneSyncClient/platform/system/files/Timespec.h"
#include "tests/corvane-hub/HubProcess.h"
#include "tests/fakes/FreePort.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/pelto/place/ServerProcess.h"

namespace corvane::pelto {

namespace {

constexpr int kTries = 5;

constexpr const char* kAlicesPassword = "s3cret: w\xc3\xb6rd";
const PlaceCredentials kAlice{"alice", SharedSecret(kAlicesPassword)};
constexpr const char* kAliceSha = "alice:{SHA}9m7zE8CWEi0yETRRwnND3zdHWr0=\n";
constexpr const char* kAlicePlain = "alice:s3cret: w\xc3\xb6rd\n";
constexpr const char* kAliceDigest = "alice:places:cda780cc153252861fd5c52b8457d6e2\n";

using Marks = std::vector<std::pair<std::string, std::string>>;

// A text with values in the places of its marks, "@NAME@".
std::string filledIn(std::string text, const Marks& marks) {
  for (const auto& [mark, value] : marks) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark))
      text.replace(at, mark.size(), value);
  }
  return text;
}

// What the server of that name is told wherever a test runs one.
std::string configurationOf(const std::string& server) {
  std::ifstream file(CORVANE_SERVERS "/" + server + ".conf");
  if (!file) throw std::runtime_error("there is no configuration of " + server);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class HubGround : public PlaceGround {
 public:
  std::unique_ptr<Place> place(Deadline deadline, double pauseBeforeEnd) override {
    return makePlace(parsePlaceAddress("hub://127.0.0.1:" + std::to_string(_hub.port()) + "?tls=no"),
                     {"", SharedSecret(_token)}, deadline, pauseBeforeEnd);
  }

 private:
  TemporaryDirectory _directory;
  std::string _token = accountCommand(_directory.path(), {"add", "ada", "laptop"});
  HubProcess _hub{_directory.path()};
};

class CephGround : public S3Ground {
 public:
  CephGround() {
    for (int i = 0; i < kTries; ++i) {
      const int port = freePort();
      if (!_server.start({CORVANE_CEPH_SERVER, _server.directory(), std::to_string(port),
                          std::to_string(freePort()), kKeys.user, std::string(kKeys.secret.view())},
                         port))
        continue;
      const std::string endpoint =
          "s3://bucket/some%20prefix?endpoint=http://localhost:" + std::to_string(port);
      _address = parsePlaceAddress(endpoint);
      _addressByHost = parsePlaceAddress(endpoint + "&style=host");
      makeBucket();
      return;
    }
    throw std::runtime_error("Ceph does not start: " + _server.log());
  }

  std::unique_ptr<Place> place(Deadline deadline, double pauseBeforeEnd) override {
    return makePlace(_address, kKeys, deadline, pauseBeforeEnd);
  }
  std::unique_ptr<Place> placeByHost(Deadline deadline) override {
    return makePlace(_addressByHost, kKeys, deadline);
  }

 private:
  static Date now() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return dateOf(time);
  }

  void makeBucket() const {
    HttpSettings settings;
    settings.host = _address.host;
    settings.authorize = [this](const HttpRequest& request) {
      return signedS3Headers({kKeys.user, kKeys.secret, _address.region}, request.method, _address.host,
                             "/bucket", "", "", now());
    };
    HttpRequest request;
    request.what = "make the bucket";
    request.method = "PUT";
    request.url = _address.origin + "/bucket";
    request.hasBody = true;
    HttpClient client(settings, after(60));
    const HttpAnswer answer = client.perform(request);
    if (!answer.isGood()) client.fail(request, answer);
  }

  static inline const PlaceCredentials kKeys{"AKTEST", SharedSecret("s3cret/key+1")};
  ServerProcess _server;
  PlaceAddress _address, _addressByHost;
};

constexpr const char* kApacheUsers = R"(AuthName "places"
  AuthUserFile "@DIR@/users"
  Require valid-user
  )";

ServerSetup apacheSetup(const std::string& who, const std::string& users) {
  return {filledIn(configurationOf("apache"), {{"@WHO@", who}}),
          users,
          {"/usr/sbin/apache2", "-f", "@DIR@/conf", "-DFOREGROUND"}};
}

ServerSetup nginxSetup(const std::string& listening, const std::string& lines) {
  return {filledIn(configurationOf("nginx"), {{"@LISTENING@", listening}, {"@LINES@", lines}}),
          kAliceSha,
          {"/usr/sbin/nginx", "-p", "@DIR@", "-c", "@DIR@/conf", "-e", "@DIR@/error"}};
}

}  // namespace

WebDavGround::WebDavGround(const ServerSetup& setup) {
  _server.write("users", setup.users);
  for (int i = 0; i < kTries; ++i) {
    const int port = freePort();
    const Marks marks{{"@DIR@", _server.directory()}, {"@PORT@", std::to_string(port)}};
    _server.write("conf", filledIn(setup.configuration, marks));
    std::vector<std::string> arguments;
    for (const std::string& argument : setup.arguments) arguments.push_back(filledIn(argument, marks));
    if (!_server.start(arguments, port)) continue;
    _address = parsePlaceAddress(filledIn(setup.address, marks));
    return;
  }
  throw std::runtime_error(setup.arguments.front() + " does not start: " + _server.log());
}

std::unique_ptr<Place> WebDavGround::place(Deadline deadline, double pauseBeforeEnd) {
  return makePlace(_address, kAlice, deadline, pauseBeforeEnd);
}

std::unique_ptr<PlaceGround> makeApacheGround() {
  return std::make_unique<WebDavGround>(apacheSetup(std::string(kApacheUsers) + "AuthType Basic", kAliceSha));
}

std::unique_ptr<WebDavGround> makeOpenApacheGround() {
  return std::make_unique<WebDavGround>(apacheSetup("Require all granted", ""));
}

std::unique_ptr<PlaceGround> makeApacheDigestGround() {
  return std::make_unique<WebDavGround>(
      apacheSetup(std::string(kApacheUsers) + "AuthType Digest", kAliceDigest));
}

std::unique_ptr<PlaceGround> makeHubGround() { return std::make_unique<HubGround>(); }

std::unique_ptr<S3Ground> makeCephGround() { return std::make_unique<CephGround>(); }

std::unique_ptr<PlaceGround> makeLighttpdGround() {
  return std::make_unique<WebDavGround>(ServerSetup{
      configurationOf("lighttpd"), kAlicePlain, {"/usr/sbin/lighttpd", "-D", "-f", "@DIR@/conf"}});
}

std::unique_ptr<PlaceGround> makeNginxGround() { return std::make_unique<WebDavGround>(nginxSetup("", "")); }

std::unique_ptr<WebDavGround> makeNginxTlsGround() {
  ServerSetup setup =
      nginxSetup(" ssl http2", "ssl_certificate @DIR@/certificate; ssl_certificate_key @DIR@/key;");
  setup.arguments = {
      "/bin/sh", "-c",
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=localhost "
      "-addext subjectAltName=DNS:localhost -keyout @DIR@/key -out @DIR@/certificate && "
      "exec /usr/sbin/nginx -p @DIR@ -c @DIR@/conf -e @DIR@/error"};
  setup.address = "https://localhost:@PORT@?ca=@DIR@/certificate";
  return std::make_unique<WebDavGround>(setup);
}

std::unique_ptr<PlaceGround> makeRcloneGround() {
  return std::make_unique<WebDavGround>(ServerSetup{
      "",
      "",
      {"/usr/bin/rclone", "serve", "webdav", "@DIR@/data", "--config", "@DIR@/conf", "--cache-dir",
       "@DIR@/cache", "--addr", "127.0.0.1:@PORT@", "--user", kAlice.user, "--pass", kAlicesPassword}});
}

}  // namespace corvane::pelto
