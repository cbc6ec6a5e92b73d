#include "tests/pelto/place/PlaceGround.h"

#include <functional>
#include <map>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/pelto/place/ServerGrounds.h"

namespace corvane::pelto {

namespace {

class DirectoryGround : public PlaceGround {
 public:
  std::unique_ptr<Place> place(Deadline deadline, double /*pauseBeforeEnd*/) override {
    return std::make_unique<DirectoryPlace>(_directory.path(), deadline);
  }

 private:
  TemporaryDirectory _directory;
};

using GroundMaker = std::function<std::unique_ptr<PlaceGround>()>;

const std::map<std::string, GroundMaker>& makers() {
  static const std::map<std::string, GroundMaker> all{
      {"apache", &makeApacheGround}, {"apache_digest", &makeApacheDigestGround},
      {"ceph", &makeCephGround},     {"directory", [] { return std::make_unique<DirectoryGround>(); }},
      {"hub", &makeHubGround},       {"lighttpd", &makeLighttpdGround},
      {"nginx", &makeNginxGround},   {"nginx_tls", &makeNginxTlsGround},
      {"rclone", &makeRcloneGround},
  };
  return all;
}

}  // namespace

std::vector<std::string> groundNames() {
  std::vector<std::string> names;
  for (const auto& [name, make] : makers()) names.push_back(name);
  return names;
}

PlaceGround& groundOf(const std::string& name) {
  static std::map<std::string, std::unique_ptr<PlaceGround>> made;
  std::unique_ptr<PlaceGround>& ground = made[name];
  if (!ground) ground = makers().at(name)();
  return *ground;
}

}  // namespace corvane::pelto
