#include "cli/installation.h"

#include "cli/failure.h"
#include "facade/mail_user.h"

namespace korvane::cli {

Installation OpenInstallation(const Options& options) {
  Installation installation;
  installation.boss = std::make_shared<BossObject>();
  if (!installation.boss->Init(options.instance)) throw Failure(*installation.boss);
  installation.connection = OpenDatabase(installation.boss->DbConnectionString());
  if (!installation.connection->HasTable("testdata")) {
    throw Failure(Exit::kDatabase, "the database has no tables yet: run korvane init");
  }
  if (!installation.boss->Init2(installation.connection)) throw Failure(*installation.boss);
  return installation;
}

std::shared_ptr<WebInterface> OpenFacade(const Installation& installation, const Options& options) {
  auto web = std::make_shared<WebInterface>();
  web->ConnDataBase(installation.connection);
  web->UserId(options.user);
  if (!web->Init(installation.boss, MailUser::kNoAccount)) throw Failure(*web);
  return web;
}

}  // namespace korvane::cli
