#pragma once

#include <string>
#include <string_view>

// SQLite's files as bytes (https://www.sqlite.org/fileformat2.html), so that another program's database can
// be read while that program has it open: without a lock, which it would trip over, without the files that
// SQLite makes beside a database, and without a copy on disk of what may be somebody's history.

namespace corvane::loomerctl {

/// The database at the path as it was at one moment, whatever another program writes meanwhile: its file with
/// the write-ahead log beside it, if there is one, worked in. Reads files and does nothing else to them. A
/// program that writes all the time is tried again for about a second.
///
/// Raises Refused, with the path and the cause, where a file cannot be read, where it changes again and
/// again, and where a transaction was begun in the file itself and has not ended.
std::string databaseSnapshot(const std::string& path);

/// The database with what its write-ahead log has committed. A log that was begun anew, and the end of one
/// that is still being written, are left aside as SQLite does it. What is answered says of itself that it
/// needs no log. Raises Refused, with `name` and the frame, for a log that is whole and makes no sense.
std::string withWriteAheadLog(std::string database, std::string_view log, const std::string& name);

}  // namespace corvane::loomerctl
