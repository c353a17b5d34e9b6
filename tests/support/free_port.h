// A TCP port of 127.0.0.1 that nobody listens on at the moment.
#pragma once

namespace korvane::test {

int FreePort();

}  // namespace korvane::test
