#include "bench/service/CountedPlace.h"

#include <utility>

#include "bench/service/Traffic.h"

namespace corvane::servicebench {

namespace {

using namespace pelto;

// "BYTES SECONDS-SINCE-1970 NAME\n", without the name.
constexpr std::int64_t kListedLine = 18;

std::int64_t sizeOf(const auto& bytes) { return static_cast<std::int64_t>(bytes.size()); }

class CountedPlace : public Place {
 public:
  CountedPlace(std::unique_ptr<Place> place, ObjectCounts& counts)
      : _place(std::move(place)), _counts(counts) {}

  Made putNew(const std::string& name, std::string_view bytes) override {
    const Made made = _place->putNew(name, bytes);
    countTraffic({1, sizeOf(name) + sizeOf(bytes), 0});
    _counts.written += made == Made::made ? 1 : 0;
    return made;
  }

  void put(const std::vector<NamedBytes>& objects) override {
    _place->put(objects);
    for (const NamedBytes& each : objects) countTraffic({1, sizeOf(each.name) + sizeOf(each.bytes), 0});
    _counts.written += sizeOf(objects);
  }

  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override {
    std::vector<GetAnswer> answers = _place->get(requests);
    for (const GetRequest& each : requests) countTraffic({1, sizeOf(each.name), 0});
    for (const GetAnswer& each : answers) countTraffic({0, 0, sizeOf(each.bytes)});
    return answers;
  }

  std::vector<PlaceObject> list(const std::string& folder) override {
    std::vector<PlaceObject> objects = _place->list(folder);
    countTraffic({1, sizeOf(folder), 0});
    for (const PlaceObject& each : objects) countTraffic({0, 0, sizeOf(each.name) + kListedLine});
    return objects;
  }

  void remove(const std::vector<std::string>& names) override {
    _place->remove(names);
    for (const std::string& each : names) countTraffic({1, sizeOf(each), 0});
    _counts.removed += sizeOf(names);
  }

  Message description() const override { return _place->description(); }

 private:
  std::unique_ptr<Place> _place;
  ObjectCounts& _counts;
};

}  // namespace

std::unique_ptr<Place> counted(std::unique_ptr<Place> place, ObjectCounts& counts) {
  return std::make_unique<CountedPlace>(std::move(place), counts);
}

}  // namespace corvane::servicebench
