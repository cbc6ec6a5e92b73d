#include "bench/hubload/Options.h"

#include <charconv>
#include <string_view>

namespace corvane::hubload {

const char* const kUsage =
    "usage: corvane-hubload --private-server | --url URL [--via HOST:PORT]\n"
    "         [--accounts A,...] [--computers C] [--records N,...] [--edits-per-second R] [--seconds S]\n"
    "         [--processes P] [--seed SEED]\n"
    "\n"
    "Plays A accounts of C computers each, with N records to begin with, against the online service, and\n"
    "prints what their exchanges cost. URL is that of the server's superuser and names the service's\n"
    "database; accounts are made there and removed in the end. HOST:PORT is a pooler before that server.\n"
    "With several numbers of accounts or records every pair of them is measured, one after the other.\n";

namespace {

template <typename Number>
Number numberIn(std::string_view text, const std::string& option, Number least, Number most) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || !(number >= least && number <= most)) {
    throw UsageError(option + " takes a number from " + std::to_string(least) + " to " +
                     std::to_string(most) + ", not \"" + std::string(text) + "\"");
  }
  return number;
}

std::vector<int> numbersIn(std::string_view text, const std::string& option, int least, int most) {
  std::vector<int> numbers;
  while (true) {
    const std::size_t comma = text.find(',');
    numbers.push_back(numberIn(text.substr(0, comma), option, least, most));
    if (comma == std::string_view::npos) return numbers;
    text.remove_prefix(comma + 1);
  }
}

void set(Options& options, const std::string& option, const std::string& value) {
  if (option == "--url") {
    options.url = value;
  } else if (option == "--via") {
    options.via = value;
  } else if (option == "--accounts") {
    options.accounts = numbersIn(value, option, 1, 100'000);
  } else if (option == "--records") {
    options.records = numbersIn(value, option, 0, 1'000'000);
  } else if (option == "--computers") {
    options.computers = numberIn(value, option, 1, 1000);
  } else if (option == "--processes") {
    options.processes = numberIn(value, option, 1, 100);
  } else if (option == "--edits-per-second") {
    options.editsPerSecond = numberIn(value, option, 0.0, 1e6);
  } else if (option == "--seconds") {
    options.seconds = numberIn(value, option, 0.1, 1e6);
  } else if (option == "--seed") {
    options.seed = numberIn(value, option, std::uint64_t{0}, UINT64_MAX);
  } else {
    throw UsageError("there is no option " + option);
  }
}

}  // namespace

Options parseOptions(int count, char** arguments) {
  Options options;
  bool isPrivate = false;
  for (int i = 1; i < count; ++i) {
    const std::string option = arguments[i];
    if (option == "--private-server") {
      isPrivate = true;
      continue;
    }
    if (i + 1 == count) throw UsageError(option + " lacks its value, or is no option");
    set(options, option, arguments[++i]);
  }
  if (isPrivate == !options.url.empty()) throw UsageError("either --private-server or --url is needed");
  if (isPrivate && !options.via.empty()) throw UsageError("--via goes with --url");
  return options;
}

}  // namespace corvane::hubload
