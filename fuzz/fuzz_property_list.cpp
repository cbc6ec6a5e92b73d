// Whatever reads must write and read back equal, in both flavours that are written.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "fuzz/Require.h"

namespace corvane {
namespace {

// What the XML flavour makes of a value, told in one walk over at most `kMostValues` of them.
struct Census {
  static constexpr std::size_t kMostValues = 20000;

  explicit Census(const Value& top) {
    std::vector<const Value*> pending = {&top};
    for (; !pending.empty() && count < kMostValues; ++count) {
      const Value& value = *pending.back();
      pending.pop_back();
      if (const Array* array = value.as<Array>()) {
        for (const Value& each : *array) pending.push_back(&each);
      } else if (const Dictionary* dictionary = value.as<Dictionary>()) {
        for (const auto& entry : *dictionary) pending.push_back(&entry.value);
      } else {
        addScalar(value);
      }
    }
  }

  std::size_t count = 0;
  bool hasFraction = false;  // of a second
  bool hasNan = false;       // never equal to itself

 private:
  void addScalar(const Value& value) {
    if (const Date* date = value.as<Date>()) {
      hasFraction = hasFraction || date->seconds != std::floor(date->seconds);
      hasNan = hasNan || std::isnan(date->seconds);
    }
    if (const double* real = value.as<double>()) hasNan = hasNan || std::isnan(*real);
  }
};

void checkBinary(const Value& value, const Census& census) {
  const std::string written = writeBinaryPropertyList(value);
  const Value read = readPropertyList(written);
  require(census.hasNan || read == value, "a binary property list reads back equal");
  require(writeBinaryPropertyList(read) == written, "a binary property list is written the same again");
}

void checkXml(const Value& value, const Census& census) {
  if (census.count == Census::kMostValues) return;  // a few shared containers can be XML without end
  std::string written;
  try {
    written = writeXmlPropertyList(value);
  } catch (const PropertyListException&) {
    return;  // control characters, unpaired surrogates, dates out of the calendar
  }
  const Value read = readPropertyList(written);
  require(census.hasNan || census.hasFraction || read == value, "an XML property list reads back equal");
  require(writeXmlPropertyList(read) == written, "an XML property list is written the same again");
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  Value value;
  try {
    value = readPropertyList({reinterpret_cast<const char*>(data), size});
  } catch (const PropertyListException&) {
    return 0;
  }
  const Census census(value);
  checkBinary(value, census);
  checkXml(value, census);
  return 0;
}
