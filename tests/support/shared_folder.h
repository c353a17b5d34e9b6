// One folder reached by two mounts of a file system of its own, as two machines reach it: GlusterFS
// over loopback, one brick and two clients, which answer from memory for a second. Where the
// machine allows no such mounts, both ways are one folder.
#pragma once

#include <sys/mount.h>
#include <sys/statfs.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>

#include "support/free_port.h"
#include "support/server_process.h"
#include "support/temp_folder.h"

namespace korvane::test {

class SharedFolder {
 public:
  SharedFolder() {
    for (const char* name : {"brick", "0", "1"}) std::filesystem::create_directory(folder_ / name);
    if (!std::filesystem::exists("/usr/sbin/glusterfsd") || !Start()) {
      Unmount();
      std::printf("no shared file system here: both nodes use one folder\n");
      for (auto& way : ways_) way = folder_ / "brick";
    }
  }
  ~SharedFolder() { Unmount(); }
  SharedFolder(const SharedFolder&) = delete;
  SharedFolder& operator=(const SharedFolder&) = delete;

  /// The folder as machine 0 or 1 sees it.
  const std::string& way(size_t machine) const { return ways_[machine]; }

 private:
  static constexpr long kFuse = 0x65735546;

  bool Start() {
    const std::string port = std::to_string(FreePort());
    const std::string brick = folder_ / "brick";
    std::ofstream(folder_ / "server")
        << "volume posix\n type storage/posix\n option directory " << brick
        << "\nend-volume\n"
           "volume "
        << brick
        << "\n type features/locks\n subvolumes posix\nend-volume\n"
           "volume server\n type protocol/server\n"
           " option transport-type socket\n"
           " option transport.socket.bind-address 127.0.0.1\n"
           " option transport.socket.listen-port "
        << port << "\n option auth.addr." << brick << ".allow 127.0.0.1\n subvolumes " << brick
        << "\nend-volume\n";
    std::ofstream(folder_ / "client")
        << "volume client\n type protocol/client\n option transport-type socket\n"
           " option remote-host 127.0.0.1\n option remote-port "
        << port << "\n option remote-subvolume " << brick << "\nend-volume\n";
    server_.emplace(StartProgram({"/usr/sbin/glusterfsd", "-N", "-f", folder_ / "server", "-l",
                                  folder_ / "server.log", "-p", folder_ / "server.pid"},
                                 folder_ / "log", std::nullopt),
                    SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    for (size_t machine = 0; machine < 2; ++machine) {
      ways_[machine] = folder_ / std::to_string(machine);
      clients_[machine].emplace(
          StartProgram({"/usr/sbin/glusterfs", "-N", "-f", folder_ / "client", "-l",
                        ways_[machine] + ".log", "-p", ways_[machine] + ".pid",
                        "--attribute-timeout=1", "--entry-timeout=1", ways_[machine]},
                       folder_ / "log", std::nullopt),
          SIGTERM);
    }
    for (const std::string& way : ways_) {
      struct statfs status {};
      for (int i = 0; status.f_type != kFuse; ++i) {
        if (i == 100) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (::statfs(way.c_str(), &status) != 0) return false;
      }
    }
    // What one machine writes the other one reads.
    std::ofstream(ways_[0] + "/try") << "x";
    return std::filesystem::exists(ways_[1] + "/try") && std::filesystem::remove(ways_[1] + "/try");
  }

  void Unmount() {
    for (size_t machine = 0; machine < 2; ++machine) {
      if (clients_[machine]) ::umount2(ways_[machine].c_str(), MNT_DETACH);
      clients_[machine].reset();
    }
    server_.reset();
  }

  TempFolder folder_;
  std::array<std::string, 2> ways_;
  std::optional<ServerProcess> server_;
  std::array<std::optional<ServerProcess>, 2> clients_;
};

}  // namespace korvane::test
