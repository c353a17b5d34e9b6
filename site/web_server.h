// The HTTP server: which address shows which page, and what holds for every answer.
#pragma once

#include "visit.h"

namespace korvane::site {

/// Serves until the process is told to stop. Returns the exit status.
int Serve(Site& site);

}  // namespace korvane::site
