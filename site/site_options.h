// What the site is started with.
#pragma once

#include <cstdint>
#include <string>

namespace korvane::site {

struct SiteOptions {
  std::string host = "127.0.0.1";
  int port = 8080;             ///< 0: any free one
  bool next_free_port = true;  ///< when `port` is taken
  int32_t installation = 1;    ///< the number of the settings
  std::string assets;          ///< folder with templates/ and static/
  bool behind_tls = false;     ///< a reverse proxy speaks TLS: cookies are Secure
  int threads = 16;
};

/// Sizes beyond which a request is refused.
inline constexpr size_t kLargestRequest = 32u << 20;
inline constexpr size_t kLargestField = 1u << 20;

}  // namespace korvane::site
