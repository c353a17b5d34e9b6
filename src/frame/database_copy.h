// The tables of an installation copied from one engine to another, in the order of their
// identifiers and a batch at a time: a copy that was broken off goes on behind the last row that is
// there. Nobody may use either database meanwhile; the files of the messages are not looked at.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "database.h"

namespace korvane {

struct CopiedTable {
  std::string name;
  int64_t there = 0;   ///< rows that an earlier copy had left
  int64_t copied = 0;  ///< rows of this one
};

/// Called behind every batch.
using CopyProgress = std::function<void(const CopiedTable& table)>;

/// Both databases have their tables. Throws DatabaseError.
std::vector<CopiedTable> CopyDatabase(Connection& from, Connection& to,
                                      const CopyProgress& progress = nullptr);

/// Reads all rows of both again; where they first differ ("mail, id_mail 7, oggetto"), empty when
/// they are the same. Throws DatabaseError.
std::string FirstDifference(Connection& from, Connection& to);

}  // namespace korvane
