#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"

namespace corvane {

/// An account of which no part is empty. Its secrets are "geheim", and keys of 'K's and 'S's.
inline pelto::Account accountAtPlace() {
  pelto::Membership membership{
      {"ada", pelto::SharedSecret("geheim")},
      "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01",
      3,
      std::make_shared<pelto::AccountKey>(std::string(32, 'K')),
      std::make_shared<pelto::ComputerKeys>(std::string(32, 'S')),
      "Küche",
      {"com.keldra.Bookmarks"},
      {12, std::string(16, 'h')},
      {},
      {{std::string(32, 'a'), "7-" + std::string(32, 'f')}, {std::string(32, 'b'), ""}},
      {{1, std::string(pelto::kKeyBoxBytes, 'x'), {2, {}, {}}, "5-" + std::string(32, '0')},
       {2, std::string(pelto::kKeyBoxBytes, 'y'), {3, {}, {}}, "7-" + std::string(32, 'f')}}};
  return {"https://ada@dav.example.com/b", "C0000000-0000-4000-8000-000000000001", {}, std::move(membership)};
}

}  // namespace corvane
