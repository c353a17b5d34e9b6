// One request of a signed-in person, and what every page does with it.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fetch_jobs.h"
#include "logins.h"
#include "mail_access.h"
#include "page_templates.h"
#include "site_options.h"

namespace korvane::site {

/// What the site holds while it runs.
struct Site {
  SiteOptions options;
  PageTemplates templates;
  MailAccess mail;
  Logins logins;
  FetchJobs jobs;

  explicit Site(SiteOptions given)
      : options(std::move(given)),
        templates(options.assets + "/templates"),
        mail(options.installation),
        jobs(mail) {}
};

struct Visit {
  Site& site;
  const httplib::Request& request;
  httplib::Response& response;
  std::shared_ptr<Login> login;

  int32_t user() const { return login->user; }
  /// A parameter or form field; "" when it is missing. Throws PageFault when it is too long.
  std::string Field(const std::string& name) const;
  /// All values of a field: check boxes.
  std::vector<std::string> Fields(const std::string& name) const;
  /// The field as a number in the range, or `otherwise`.
  int32_t Number(const std::string& name, int32_t otherwise, int32_t least = INT32_MIN,
                 int32_t most = INT32_MAX) const;
  bool Ticked(const std::string& name) const { return !Field(name).empty(); }
  /// Answers with a redirect to a path of this site (303, so a reload does not send a form again).
  void GoTo(const std::string& path) const;
  /// Where an attachment's file lies (MailAttachment::NameOnServer).
  std::string StoredPath(const std::string& name_on_server) const;
  void Tell(const std::string& text) const { login->Tell({text, false, ""}); }
  void TellFault(const std::string& text) const { login->Tell({text, true, ""}); }
};

/// A decimal number of 32 bits, and nothing else.
std::optional<int32_t> ParseNumber(std::string_view text);

}  // namespace korvane::site
