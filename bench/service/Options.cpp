#include "bench/service/Options.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <sstream>

#include "tests/pelto/place/PlaceGround.h"

namespace corvane::servicebench {

namespace {

std::vector<std::string> parts(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) found.push_back(part);
  return found;
}

int countIn(const std::string& text) {
  int count = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, count);
  if (error != std::errc() || rest != end || count < 1) throw UsageError("\"" + text + "\" is no count");
  return count;
}

std::vector<int> countsIn(const std::string& text) {
  std::vector<int> counts;
  for (const std::string& part : parts(text)) counts.push_back(countIn(part));
  return counts;
}

std::vector<std::string> placesIn(const std::string& text) {
  std::vector<std::string> places = parts(text);
  const std::vector<std::string> known = pelto::groundNames();
  for (const std::string& place : places) {
    if (std::find(known.begin(), known.end(), place) == known.end())
      throw UsageError("there is no place \"" + place + "\"");
  }
  return places;
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  static const std::map<std::string, std::vector<int>> kRecords{
      {"places", {10'000, 100'000}}, {"records", {1, 1'000, 100'000}}, {"accounts", {}}, {"year", {2'000}}};
  Options options;
  options.what = arguments.empty() ? "" : arguments.front();
  const auto records = kRecords.find(options.what);
  if (records == kRecords.end()) throw UsageError("it has to be said what is measured");
  options.records = records->second;
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    const std::string& name = arguments[i];
    if (i + 1 == arguments.size()) throw UsageError(name + " lacks its value");
    const std::string& value = arguments[i + 1];
    if (name == "--places" && options.what == "places") {
      options.places = placesIn(value);
    } else if (name == "--records" && options.what != "accounts") {
      options.records = countsIn(value);
    } else if (name == "--accounts" && options.what == "accounts") {
      options.accounts = countsIn(value);
    } else if (name == "--days" && options.what == "year") {
      options.days = countIn(value);
    } else {
      throw UsageError("\"" + options.what + "\" has no option " + name);
    }
  }
  return options;
}

}  // namespace corvane::servicebench
