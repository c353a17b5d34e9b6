// httplib's server with a stream of its own: an answer is sent as a whole, where the library sends
// its header and its body one after the other and asks the system in front of each whether it may.
#pragma once

#include <httplib.h>

namespace korvane::site {

class HttpServer : public httplib::Server {
 private:
  bool process_and_close_socket(socket_t socket) override;
};

}  // namespace korvane::site
