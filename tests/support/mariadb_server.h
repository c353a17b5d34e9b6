// A MariaDB server of the test's own, on a local socket in a temporary folder.
#pragma once

#include <filesystem>
#include <string>

#include "frame/database.h"
#include "support/server_process.h"
#include "support/temp_folder.h"

namespace korvane::test {

class MariadbServer {
 public:
  MariadbServer() : user_(UnprivilegedUser("mysql")) {
    const std::string data = folder_.path() + "/data";
    const std::string log = folder_.path() + "/log";
    if (user_ && chown(folder_.path().c_str(), user_->pw_uid, user_->pw_gid) != 0) {
      throw std::runtime_error("the server's folder cannot be given away");
    }
    // A server that starts deletes the temporary tables it finds: each has a folder for its own.
    const std::string temporary = "--tmpdir=" + folder_.path();
    RunProgram({"/usr/bin/mariadb-install-db", "--no-defaults", "--skip-test-db",
                "--skip-name-resolve", "--auth-root-authentication-method=normal",
                "--datadir=" + data, temporary, "--innodb-log-file-size=4M"},
               log, user_);
    server_.emplace(StartProgram({"/usr/sbin/mariadbd", "--no-defaults", "--datadir=" + data,
                                  temporary, "--skip-networking", "--socket=" + Socket(),
                                  "--innodb-flush-log-at-trx-commit=0", "--innodb-log-file-size=4M",
                                  "--innodb-buffer-pool-size=64M"},
                                 log, user_),
                    SIGTERM);
    server_->WaitUntil(
        [&] {
          try {
            OpenDatabase(Url("mysql"));
            return true;
          } catch (const DatabaseError&) {
            return false;
          }
        },
        log);
  }

  std::string Url(const std::string& database) const {
    return "mysql://root@localhost/" + database + "?socket=" + Socket();
  }
  /// The same database through ODBC.
  std::string OdbcUrl(const std::string& database) const {
    return "odbc:Driver=MariaDB Unicode;SOCKET=" + Socket() + ";Database=" + database + ";UID=root";
  }
  /// Makes an empty database and gives its URL.
  std::string MakeDatabase(const std::string& name) {
    OpenDatabase(Url("mysql"))->Execute("CREATE DATABASE " + name);
    return Url(name);
  }

 private:
  std::string Socket() const { return folder_.path() + "/socket"; }

  TempFolder folder_;
  std::optional<passwd> user_;
  std::optional<ServerProcess> server_;
};

}  // namespace korvane::test
