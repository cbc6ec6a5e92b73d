#include "tests/pelto/place/ServerGrounds.h"

#include <ctime>
#include <functional>
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

const PlaceCredentials kAlice{"alice", "s3cret: w\xc3\xb6rd"};
constexpr const char* kAliceSha = "alice:{SHA}9m7zE8CWEi0yETRRwnND3zdHWr0=\n";
constexpr const char* kAlicePlain = "alice:s3cret: w\xc3\xb6rd\n";
constexpr const char* kAliceDigest = "alice:places:cda780cc153252861fd5c52b8457d6e2\n";

// A text with "@DIR@" and "@PORT@" in the places of these.
std::string filledIn(std::string text, const std::string& directory, int port) {
  for (const auto& [mark, value] : {std::pair<std::string, std::string>("@DIR@", directory),
                                    std::pair<std::string, std::string>("@PORT@", std::to_string(port))}) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark))
      text.replace(at, mark.size(), value);
  }
  return text;
}

class HubGround : public PlaceGround {
 public:
  std::unique_ptr<Place> place(Deadline deadline, double pauseBeforeEnd) override {
    return makePlace(parsePlaceAddress("hub://127.0.0.1:" + std::to_string(_hub.port()) + "?tls=no"),
                     {"", _token}, deadline, pauseBeforeEnd);
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
                          std::to_string(freePort()), kKeys.user, kKeys.secret},
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

  static inline const PlaceCredentials kKeys{"AKTEST", "s3cret/key+1"};
  ServerProcess _server;
  PlaceAddress _address, _addressByHost;
};

constexpr const char* kApache = R"(
ServerRoot "@DIR@"
ServerName localhost
Listen 127.0.0.1:@PORT@
PidFile "@DIR@/pid"
ErrorLog "@DIR@/error"
DefaultRuntimeDir "@DIR@"
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule authn_core_module /usr/lib/apache2/modules/mod_authn_core.so
LoadModule authn_file_module /usr/lib/apache2/modules/mod_authn_file.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
LoadModule authz_user_module /usr/lib/apache2/modules/mod_authz_user.so
LoadModule auth_basic_module /usr/lib/apache2/modules/mod_auth_basic.so
LoadModule auth_digest_module /usr/lib/apache2/modules/mod_auth_digest.so
LoadModule dav_module /usr/lib/apache2/modules/mod_dav.so
LoadModule dav_fs_module /usr/lib/apache2/modules/mod_dav_fs.so
StartServers 2
DavLockDB "@DIR@/locks"
DocumentRoot "@DIR@/data"
<Directory "@DIR@/data">
  Dav On
)";

constexpr const char* kApacheUsers = R"(
  AuthName "places"
  AuthUserFile "@DIR@/users"
  Require valid-user
)";

ServerSetup apacheSetup(const std::string& authentication, const std::string& users) {
  return {kApache + authentication + "</Directory>\n",
          users,
          {"/usr/sbin/apache2", "-f", "@DIR@/conf", "-DFOREGROUND"}};
}

// With what `listen` says after the port, and further lines for the server.
ServerSetup nginxSetup(const std::string& listening, const std::string& lines) {
  std::string configuration = R"(
load_module /usr/lib/nginx/modules/ngx_http_dav_ext_module.so;
daemon off;
worker_processes 4;
pid @DIR@/pid;
error_log @DIR@/error;
events { worker_connections 256; }
http {
  access_log off;
  client_body_temp_path @DIR@/body;
  proxy_temp_path @DIR@/proxy;
  fastcgi_temp_path @DIR@/fastcgi;
  uwsgi_temp_path @DIR@/uwsgi;
  scgi_temp_path @DIR@/scgi;
  client_max_body_size 0;
  server {
    listen 127.0.0.1:@PORT@ reuseport)" +
                              listening + ";\n" + lines + R"(
    root @DIR@/data;
    location / {
      auth_basic "places";
      auth_basic_user_file @DIR@/users;
      dav_methods PUT DELETE MKCOL COPY MOVE;
      dav_ext_methods PROPFIND OPTIONS;
    }
  }
}
)";
  return {std::move(configuration),
          kAliceSha,
          {"/usr/sbin/nginx", "-p", "@DIR@", "-c", "@DIR@/conf", "-e", "@DIR@/error"}};
}
constexpr const char* kLighttpd = R"(
server.modules = ("mod_auth", "mod_authn_file", "mod_webdav")
server.bind = "127.0.0.1"
server.port = @PORT@
server.document-root = "@DIR@/data"
server.errorlog = "@DIR@/error"
server.upload-dirs = ("@DIR@")
webdav.activate = "enable"
mimetype.assign = ("" => "application/octet-stream")
auth.backend = "plain"
auth.backend.plain.userfile = "@DIR@/users"
auth.require = ("" => ("method" => "basic", "realm" => "places", "require" => "valid-user"))
)";

}  // namespace

WebDavGround::WebDavGround(const ServerSetup& setup) {
  _server.write("users", setup.users);
  for (int i = 0; i < kTries; ++i) {
    const int port = freePort();
    _server.write("conf", filledIn(setup.configuration, _server.directory(), port));
    std::vector<std::string> arguments;
    for (const std::string& argument : setup.arguments)
      arguments.push_back(filledIn(argument, _server.directory(), port));
    if (!_server.start(arguments, port)) continue;
    _address = parsePlaceAddress(filledIn(setup.address, _server.directory(), port));
    return;
  }
  throw std::runtime_error(setup.arguments.front() + " does not start: " + _server.log());
}

std::unique_ptr<Place> WebDavGround::place(Deadline deadline, double pauseBeforeEnd) {
  return makePlace(_address, kAlice, deadline, pauseBeforeEnd);
}

std::unique_ptr<PlaceGround> makeApacheGround() {
  return std::make_unique<WebDavGround>(
      apacheSetup(std::string(kApacheUsers) + "AuthType Basic\n", kAliceSha));
}

std::unique_ptr<WebDavGround> makeOpenApacheGround() {
  return std::make_unique<WebDavGround>(apacheSetup("Require all granted\n", ""));
}

std::unique_ptr<PlaceGround> makeApacheDigestGround() {
  return std::make_unique<WebDavGround>(
      apacheSetup(std::string(kApacheUsers) + "AuthType Digest\n", kAliceDigest));
}

std::unique_ptr<PlaceGround> makeHubGround() { return std::make_unique<HubGround>(); }

std::unique_ptr<S3Ground> makeCephGround() { return std::make_unique<CephGround>(); }

std::unique_ptr<PlaceGround> makeLighttpdGround() {
  return std::make_unique<WebDavGround>(
      ServerSetup{kLighttpd, kAlicePlain, {"/usr/sbin/lighttpd", "-D", "-f", "@DIR@/conf"}});
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
       "@DIR@/cache", "--addr", "127.0.0.1:@PORT@", "--user", kAlice.user, "--pass", kAlice.secret}});
}

}  // namespace corvane::pelto
