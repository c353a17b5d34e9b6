#include "logins.h"

#include <utility>

#include "random_text.h"

namespace korvane::site {

namespace {
constexpr auto kIdle = std::chrono::hours(8);
constexpr auto kBrake = std::chrono::seconds(60);
constexpr int kTriesPerName = 5;
constexpr int kTriesPerAddress = 20;
constexpr size_t kMostKept = 10'000;  // failures remembered; beyond it the old ones go
}  // namespace

std::string Logins::Open(int32_t user, const std::string& name) {
  auto login = std::make_shared<Login>();
  login->user = user;
  login->name = name;
  login->csrf = RandomToken();
  login->last_used = Clock::now();
  std::string token = RandomToken();
  const std::lock_guard lock(mutex_);
  std::erase_if(logins_,
                [](const auto& one) { return Clock::now() - one.second->last_used > kIdle; });
  logins_.emplace(token, std::move(login));
  return token;
}

std::shared_ptr<Login> Logins::Find(const std::string& token) {
  const std::lock_guard lock(mutex_);
  const auto found = logins_.find(token);
  if (found == logins_.end()) return nullptr;
  const auto now = Clock::now();
  if (now - found->second->last_used > kIdle) {
    logins_.erase(found);
    return nullptr;
  }
  found->second->last_used = now;
  return found->second;
}

void Logins::Close(const std::string& token) {
  const std::lock_guard lock(mutex_);
  logins_.erase(token);
}

bool Logins::TooMany(const std::string& key, int allowed) {
  const auto found = failures_.find(key);
  return found != failures_.end() && found->second.count >= allowed &&
         Clock::now() - found->second.last < kBrake;
}

bool Logins::IsBraked(const std::string& name, const std::string& address) {
  const std::lock_guard lock(mutex_);
  return TooMany("name " + name, kTriesPerName) || TooMany("from " + address, kTriesPerAddress);
}

void Logins::Forget() {
  if (failures_.size() < kMostKept) return;
  std::erase_if(failures_, [](const auto& one) { return Clock::now() - one.second.last > kBrake; });
  if (failures_.size() >= kMostKept) failures_.clear();
}

void Logins::Failed(const std::string& name, const std::string& address) {
  const std::lock_guard lock(mutex_);
  Forget();
  for (const std::string& key : {"name " + name, "from " + address}) {
    Failures& failures = failures_[key];
    const auto now = Clock::now();
    if (now - failures.last > kBrake) failures.count = 0;
    ++failures.count;
    failures.last = now;
  }
}

void Logins::Succeeded(const std::string& name) {
  const std::lock_guard lock(mutex_);
  failures_.erase("name " + name);
}

}  // namespace korvane::site
