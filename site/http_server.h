// httplib's server with a stream of its own: an answer is sent as a whole, where the library sends
// its header and its body one after the other and asks the system in front of each whether it may.
// It is sent before anything of the request is taken apart.
#pragma once

#include <httplib.h>

#include <memory>

namespace korvane::site {

class HttpServer : public httplib::Server {
 public:
  HttpServer();

 private:
  bool process_and_close_socket(socket_t socket) override;
};

/// What a page was made of, taken apart when its answer has been sent: who waits for the answer
/// does not wait for that.
void DropAfterAnswer(std::shared_ptr<const void> used);

}  // namespace korvane::site
