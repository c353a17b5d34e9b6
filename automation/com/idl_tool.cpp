// Runs while the Windows libraries are built, on the machine that builds them.
//
//   korvane_idl idl FILE                 writes the type library's source
//   korvane_idl settle-defaults FILE     finishes the compiled type library
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "idl.h"

namespace {

bool Write(const char* path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  return file.flush().good();
}

}  // namespace

int main(int count, char** arguments) {
  const std::string what = count == 3 ? arguments[1] : "";
  if (what == "idl") return Write(arguments[2], korvane::com::ToIdl()) ? 0 : 1;
  if (what == "settle-defaults") {
    std::ifstream file(arguments[2], std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!korvane::com::SettleDefaults(bytes)) {
      std::cerr << arguments[2] << ": not the defaults that were expected\n";
      return 1;
    }
    return Write(arguments[2], bytes) ? 0 : 1;
  }
  std::cerr << "korvane_idl idl|settle-defaults FILE\n";
  return 2;
}
