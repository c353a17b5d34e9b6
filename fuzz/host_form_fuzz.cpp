// Hosts as accounts hold them: whatever is accepted has a port and a name without anything that
// could end a line.
#include <cstdlib>
#include <string_view>

#include "pop3/sockets/host_form.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view host(reinterpret_cast<const char*>(data), size);
  const auto form = korvane::sockets::ParseHostForm(host, 110);
  if (!form) return 0;
  if (form->port == 0 || form->name.empty() || host.find(form->name) == host.npos) std::abort();
  for (const char c : form->name) {
    if (static_cast<unsigned char>(c) <= ' ' || c == '/') std::abort();
  }
  return 0;
}
