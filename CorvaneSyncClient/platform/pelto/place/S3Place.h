#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Signature.h"

namespace corvane::pelto {

/// A bucket at a server that speaks S3 and knows conditional writes. What it answers has been signed for by
/// this computer's clock; a server that finds it wrong is asked again by its own.
class S3Place : public Place {
 public:
  S3Place(const PlaceAddress& address, const PlaceCredentials& credentials, Deadline deadline,
          double pauseBeforeEnd = 0);

  Made putNew(const std::string& name, std::string_view bytes) override;
  void put(const std::vector<NamedBytes>& objects) override;
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override;
  std::vector<PlaceObject> list(const std::string& folder) override;
  void remove(const std::vector<std::string>& names) override;
  Message description() const override { return _address.description(); }
  std::string software() const override { return _client.server(); }
  std::vector<std::string> caveats() const override {
    return {"Where the bucket keeps old versions of what is removed, it grows until you have them removed."};
  }

 private:
  HttpSettings settings(const PlaceCredentials& credentials, double pauseBeforeEnd) const;
  std::vector<std::string> sign(const HttpRequest& request) const;
  std::vector<HttpAnswer> perform(const std::vector<HttpRequest>& requests);
  bool isClockRefused(const HttpAnswer& answer);
  std::string keyOf(const std::string& name) const;
  std::string urlOf(const std::string& name) const;

  PlaceAddress _address;
  S3Keys _keys;
  double _clockAhead = 0;  // seconds that the server's clock is before this computer's
  HttpClient _client;
};

}  // namespace corvane::pelto
