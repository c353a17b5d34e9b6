// Signing in and out.
#include <optional>
#include <semaphore>

#include "page.h"
#include "pages.h"
#include "site_users.h"

namespace korvane::site {

namespace {

std::string CookieFor(const Visit& visit, const std::string& token, bool forget) {
  std::string cookie = "korvane=" + token + "; Path=/; HttpOnly; SameSite=Strict";
  if (visit.site.options.behind_tls) cookie += "; Secure";
  if (forget) cookie += "; Max-Age=0";
  return cookie;
}

/// Who asks. Behind a reverse proxy that is what the proxy itself put last.
std::string ClientAddress(const Visit& visit) {
  if (!visit.site.options.behind_tls) return visit.request.remote_addr;
  const std::string passed_on = visit.request.get_header_value("X-Forwarded-For");
  const size_t last = passed_on.find_last_of(", ");
  const std::string address = last == std::string::npos ? passed_on : passed_on.substr(last + 1);
  return address.empty() ? visit.request.remote_addr : address;
}

void ShowForm(Visit& visit, const std::string& fault, const std::string& name, int status) {
  Page page(visit, "Sign in", "sign_in");
  page.Set("NAME", name);
  if (!fault.empty()) page.Row("FAULT").SetValue("FAULT_TEXT", fault);
  page.Answer(status);
}

}  // namespace

void ShowSignIn(Visit& visit) { ShowForm(visit, "", "", 200); }

void SignIn(Visit& visit) {
  const std::string name = visit.Field("name");
  const std::string address = ClientAddress(visit);
  if (name.size() > 190 || visit.Field("password").size() > 1000) {
    return ShowForm(visit, "The name or the password is too long.", "", 400);
  }
  Logins& logins = visit.site.logins;
  if (logins.IsBraked(name, address)) {
    visit.response.set_header("Retry-After", "60");
    return ShowForm(visit, "Too many tries. Wait a minute, then try again.", name, 429);
  }
  const auto database = visit.site.mail.Database();
  std::optional<int32_t> user;
  {
    // A check takes 64 MB by design: a crowd at the door waits instead of taking it all.
    static std::counting_semaphore<> checks(2);
    checks.acquire();
    try {
      user = SiteUsers(*database).Check(name, visit.Field("password"));
    } catch (...) {
      checks.release();
      throw;
    }
    checks.release();
  }
  if (!user) {
    logins.Failed(name, address);
    return ShowForm(visit, "The name or the password is wrong.", name, 401);
  }
  logins.Succeeded(name);
  visit.response.set_header("Set-Cookie", CookieFor(visit, logins.Open(*user, name), false));
  visit.GoTo("/box/1");
}

void SignOut(Visit& visit) {
  visit.response.set_header("Set-Cookie", CookieFor(visit, "", true));
  visit.GoTo("/sign-in");
}

}  // namespace korvane::site
