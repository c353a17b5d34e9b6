// A TCP port of 127.0.0.1 that nobody listens on at the moment.
#pragma once

namespace korvane::test {

int FreePort();

/// A port that no test takes, for a server that cannot be reached.
inline constexpr int kNobodysPort = 1;

}  // namespace korvane::test
