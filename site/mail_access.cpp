#include "mail_access.h"

#include "frame/error_numbers.h"

namespace korvane::site {

std::string FaultText(int32_t number, const std::string& text) {
  const ErrorEntry* entry = FindError(number);
  std::string said = entry ? std::string(entry->meaning) : "an unknown fault";
  if (!said.empty()) said[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(said[0])));
  said += " (error " + std::to_string(number) + ").";
  if (number >= error::ServerRefused && !text.empty()) said += " The server says: " + text;
  if (entry) said += " What to do: " + std::string(entry->advice) + ".";
  return said;
}

MailAccess::MailAccess(int32_t installation)
    : installation_(installation), boss_(std::make_shared<BossObject>()) {
  if (!boss_->Init(installation)) {
    throw std::runtime_error(FaultText(boss_->GetLastError(), boss_->GetLastErrorDesc()));
  }
  if (!boss_->Init2(Database())) {
    throw std::runtime_error("the database does not tell how it writes dates");
  }
}

std::shared_ptr<Connection> MailAccess::Database() {
  // One a thread, because a connection serves one request at a time and its prepared statements are
  // worth keeping.
  thread_local std::shared_ptr<Connection> connection;
  thread_local std::string opened;
  if (!connection || opened != boss_->DbConnectionString()) {
    connection = OpenDatabase(boss_->DbConnectionString());
    opened = boss_->DbConnectionString();
  }
  return connection;
}

std::unique_ptr<Mail> MailAccess::Open(int32_t user, int32_t account) {
  // The settings as they are now. The copy keeps what the database said about its dates.
  auto boss = std::make_shared<BossObject>(*boss_);
  boss->Init(installation_);
  if (boss->GetLastError() != 0) {
    throw PageFault(503, FaultText(boss->GetLastError(), boss->GetLastErrorDesc()));
  }
  auto mail = std::make_unique<Mail>();
  mail->database = Database();
  mail->web.ConnDataBase(mail->database);
  mail->web.UserId(user);
  mail->has_account = mail->web.Init(boss, account);
  // Stored mail can be read without an account.
  if (!mail->has_account && !mail->web.Init(boss, -10)) {
    throw PageFault(503, FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
  }
  return mail;
}

std::unique_lock<std::mutex> MailAccess::LockUser(int32_t user) {
  std::mutex* own = nullptr;
  {
    const std::lock_guard lock(mutex_);
    auto& place = users_[user];
    if (!place) place = std::make_unique<std::mutex>();
    own = place.get();
  }
  return std::unique_lock(*own);
}

}  // namespace korvane::site
