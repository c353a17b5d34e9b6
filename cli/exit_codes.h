// The statuses that the command line ends with. docs/command_line.md lists them for scripts.
#pragma once

#include <cstdint>

namespace korvane::cli {

enum class Exit : int {
  kSuccess = 0,
  kOther = 1,     ///< none of the following
  kUsage = 2,     ///< the command line is wrong
  kSettings = 3,  ///< the settings cannot be read or written
  kDatabase = 4,  ///< the database cannot be reached or refused
  kAccount = 5,   ///< there is no such account
  kConnect = 6,   ///< the server cannot be reached, or its certificate is not trusted
  kLogin = 7,     ///< the server refused the user name or the password
  kServer = 8,    ///< the server failed in the middle of a session
  kFiles = 9,     ///< a file of the store cannot be written or read
  kNotFound = 10  ///< there is no such message or page
};

/// The status for one of the library's error numbers.
Exit ExitFor(int32_t number);

}  // namespace korvane::cli
