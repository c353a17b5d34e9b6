// A PostgreSQL server of the test's own, on a local socket in a temporary folder.
#pragma once

#include <filesystem>
#include <string>

#include "frame/database.h"
#include "support/server_process.h"
#include "support/temp_folder.h"

namespace korvane::test {

class PostgresServer {
 public:
  PostgresServer() : user_(UnprivilegedUser("postgres")) {
    const std::string programs = Programs();
    const std::string data = folder_.path() + "/data";
    const std::string log = folder_.path() + "/log";
    if (user_ && chown(folder_.path().c_str(), user_->pw_uid, user_->pw_gid) != 0) {
      throw std::runtime_error("the server's folder cannot be given away");
    }
    RunProgram({programs + "/initdb", "--no-sync", "--auth=trust", "--username=korvane",
                "--encoding=UTF8", "--locale=C.UTF-8", "--pgdata=" + data},
               log, user_);
    server_.emplace(
        StartProgram({programs + "/postgres", "-D", data, "-k", folder_.path(), "-c",
                      "listen_addresses=", "-c", "fsync=off", "-c", "full_page_writes=off"},
                     log, user_),
        SIGINT);
    server_->WaitUntil(
        [&] {
          try {
            OpenDatabase(Url("postgres"));
            return true;
          } catch (const DatabaseError&) {
            return false;
          }
        },
        log);
  }

  std::string Url(const std::string& database) const {
    return "postgresql://korvane@/" + database + "?host=" + folder_.path();
  }
  /// The same database through ODBC.
  std::string OdbcUrl(const std::string& database) const {
    return "odbc:Driver=PostgreSQL Unicode;Servername=" + folder_.path() +
           ";Port=5432;Database=" + database + ";Username=korvane";
  }
  /// Makes an empty database and gives its URL.
  std::string MakeDatabase(const std::string& name) {
    OpenDatabase(Url("postgres"))->Execute("CREATE DATABASE " + name);
    return Url(name);
  }

 private:
  static std::string Programs() {
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql")) {
      if (std::filesystem::exists(version.path() / "bin/initdb")) {
        return (version.path() / "bin").string();
      }
    }
    throw std::runtime_error("the package postgresql is not installed");
  }

  TempFolder folder_;
  std::optional<passwd> user_;
  std::optional<ServerProcess> server_;
};

}  // namespace korvane::test
