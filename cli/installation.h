// One installation as a command works with it: its settings, its database and the facade.
#pragma once

#include <memory>

#include "facade/web_interface.h"
#include "frame/boss_object.h"
#include "frame/database.h"
#include "program.h"

namespace korvane::cli {

struct Installation {
  std::shared_ptr<BossObject> boss;
  std::shared_ptr<Connection> connection;
};

/// Reads the settings and opens the database. Throws Failure and DatabaseError.
Installation OpenInstallation(const Options& options);

/// The facade for the user, with no account loaded. Throws Failure.
std::shared_ptr<WebInterface> OpenFacade(const Installation& installation, const Options& options);

}  // namespace korvane::cli
