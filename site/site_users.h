// The people who may sign in: a table of the site's own with a password hash (Argon2id, libsodium).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "frame/database.h"

namespace korvane::site {

class SiteUsers {
 public:
  explicit SiteUsers(Connection& database) : database_(database) {}

  /// Makes the table when it is missing.
  void CreateTable();
  /// Adds a person or changes the password; `id` is the user number of the mail store.
  void Set(int32_t id, const std::string& name, const std::string& password);
  /// The user number when name and password fit. It takes as long for a name that is not there.
  std::optional<int32_t> Check(const std::string& name, const std::string& password);

 private:
  Connection& database_;
};

}  // namespace korvane::site
