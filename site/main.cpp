// korvane-site: a mail site over the component. "serve" runs it, "user" lets a person sign in.
#include <sodium.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <string>

#include "site_users.h"
#include "web_server.h"

namespace {

using namespace korvane::site;

/// The folder with the templates: beside an installed program, else in the sources.
std::string FindAssets(const char* program) {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  const auto installed =
      (error ? std::filesystem::path(program) : self).parent_path() / "../share/korvane/site";
  return std::filesystem::exists(installed / "templates") ? installed.string()
                                                          : KORVANE_SITE_ASSETS;
}

int SetUser(const SiteOptions& options, int32_t id, const std::string& name) {
  // From standard input, so that it shows neither in the list of processes nor in a shell's
  // history.
  std::string password;
  std::getline(std::cin, password);
  if (password.size() < 4) {
    std::cerr << "Give the password as a line on standard input; at least 4 characters.\n";
    return 2;
  }
  MailAccess mail(options.installation);
  SiteUsers users(*mail.Database());
  users.CreateTable();
  users.Set(id, name, password);
  std::cout << name << " may sign in as user " << id << ".\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  SiteOptions options;
  std::string name;
  int32_t id = 1;
  CLI::App app{"A mail site over a Korvane installation (korvane init makes one)"};
  app.require_subcommand(1);
  app.add_option("--instance", options.installation, "Number of the installation")
      ->capture_default_str();
  auto* serve = app.add_subcommand("serve", "Serve the site");
  serve->add_option("--host", options.host, "Address to listen on")->capture_default_str();
  serve->add_option("--port", options.port, "Port; another free one when it is taken")
      ->capture_default_str();
  serve->add_option("--assets", options.assets, "Folder with templates/ and static/");
  serve->add_option("--threads", options.threads, "Requests served at once")->capture_default_str();
  serve->add_flag("--behind-tls", options.behind_tls, "A reverse proxy speaks TLS");
  auto* user = app.add_subcommand("user", "Let a person sign in (password on standard input)");
  user->add_option("id", id, "User number of the mail store")->required();
  user->add_option("name", name, "Name to sign in with")->required();
  CLI11_PARSE(app, argc, argv);
  if (options.assets.empty()) options.assets = FindAssets(argv[0]);
  if (sodium_init() < 0) {
    std::cerr << "There is no source of randomness.\n";
    return 1;
  }
  try {
    if (*user) return SetUser(options, id, name);
    Site site(options);
    SiteUsers(*site.mail.Database()).CreateTable();
    return Serve(site);
  } catch (const std::exception& fault) {
    std::cerr << fault.what() << '\n';
    return 1;
  }
}
