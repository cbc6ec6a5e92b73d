#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::servicebench {

inline constexpr const char* kUsage =
    "usage: corvane-service-bench WHAT [--OPTION VALUE...]\n"
    "  places    what sessions cost at each place\n"
    "      --places directory,hub,lighttpd,ceph   and apache, nginx, nginx_tls, rclone\n"
    "      --records 10000,100000                 of a first push\n"
    "  records   what a session costs in accounts of different sizes, at a corvane-hub\n"
    "      --records 1,1000,100000\n"
    "  accounts  what a session costs among that many accounts, at one corvane-hub and in one directory\n"
    "      --accounts 1,1000,10000\n"
    "  year      a family's edits, by the clock of a year\n"
    "      --records 2000    in the beginning\n"
    "      --days 365\n";

/// A command line that cannot be followed.
class UsageError : public std::runtime_error {
  using runtime_error::runtime_error;
};

struct Options {
  std::string what;
  std::vector<std::string> places{"directory", "hub", "lighttpd", "ceph"};
  std::vector<int> records;
  std::vector<int> accounts{1, 1'000, 10'000};
  int days = 365;
};

/// Raises UsageError.
Options parseOptions(const std::vector<std::string>& arguments);

}  // namespace corvane::servicebench
