#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"

namespace corvane::loomerctl {

/// Where the user's store stands.
std::string storePath();

/// Opens the user's store to change it; null if there is none. Raises Refused if it cannot find out. On a
/// full or a read-only disk it can only be read.
std::unique_ptr<loomer::TruthStore> openStoreIfAny();

/// Opens the user's store to change it. Raises Refused if there is none.
std::unique_ptr<loomer::TruthStore> openStore();

/// Opens the user's store to read it as it is at this moment, whatever sessions do meanwhile. Raises Refused
/// if there is none.
std::unique_ptr<loomer::TruthStore> openStoreToRead();

/// Opens the user's store, making it if there is none.
std::unique_ptr<loomer::TruthStore> openOrMakeStore();

/// The registered client. Raises Refused, with the names that there are, for any other.
loomer::ClientState clientNamed(loomer::TruthStore& store, const std::string& identifier);

}  // namespace corvane::loomerctl
