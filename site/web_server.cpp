#include "web_server.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include "http_server.h"
#include "page.h"
#include "pages.h"
#include "random_text.h"

namespace korvane::site {

namespace {

using Handler = void (*)(Visit&);

std::string CookieToken(const httplib::Request& request) {
  const std::string cookies = request.get_header_value("Cookie");
  const std::string name = "korvane=";
  for (size_t at = 0; at < cookies.size();) {
    const size_t end = std::min(cookies.find(';', at), cookies.size());
    size_t start = cookies.find_first_not_of(' ', at);
    if (start != std::string::npos && cookies.compare(start, name.size(), name) == 0) {
      return cookies.substr(start + name.size(), end - start - name.size());
    }
    at = end + 1;
  }
  return "";
}

/// What holds for every answer that says nothing stricter itself.
void Secure(const httplib::Request&, httplib::Response& response) {
  const auto unless_set = [&](const char* name, const char* value) {
    if (!response.has_header(name)) response.set_header(name, value);
  };
  unless_set("Content-Security-Policy",
             "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; "
             "connect-src 'self'; frame-src 'self'; form-action 'self'; base-uri 'none'; "
             "frame-ancestors 'none'");
  unless_set("X-Content-Type-Options", "nosniff");
  unless_set("Referrer-Policy", "same-origin");
  unless_set("Cross-Origin-Opener-Policy", "same-origin");
  unless_set("Cache-Control", "no-store");
}

void ShowFault(Visit& visit, int status, const std::string& text) {
  Page page(visit, "That did not work", "fault");
  page.Set("FAULT_TEXT", text);
  page.Answer(status);
}

void Run(Visit& visit, Handler handler) {
  try {
    handler(visit);
  } catch (const PageFault& fault) {
    ShowFault(visit, fault.status, fault.what());
  } catch (const DatabaseError& fault) {
    std::cerr << "database: " << fault.what() << std::endl;
    ShowFault(visit, 503, "The database cannot be used right now. Try again in a moment.");
  } catch (const std::exception& fault) {
    std::cerr << "page: " << fault.what() << std::endl;
    ShowFault(visit, 500, "This page could not be made. The log of the site says why.");
  }
}

/// A form that another site sends says so in its Origin; the sign-in form has no other protection,
/// because there is no login yet whose secret it could bring back.
bool FromElsewhere(const httplib::Request& request) {
  const std::string origin = request.get_header_value("Origin");
  if (origin.empty()) return false;
  const size_t host = origin.find("://");
  return host == std::string::npos || origin.substr(host + 3) != request.get_header_value("Host");
}

class Routes {
 public:
  Routes(httplib::Server& server, Site& site) : server_(server), site_(site) {}

  /// A page for anybody.
  void Open(const char* path, Handler handler) {
    server_.Get(path, [this, handler](const auto& request, auto& response) {
      Visit visit{site_, request, response, nullptr};
      Run(visit, handler);
    });
  }
  void SignIn(const char* path, Handler handler) {
    server_.Post(path, [this, handler](const auto& request, auto& response) {
      Visit visit{site_, request, response, nullptr};
      if (FromElsewhere(request)) return ShowFault(visit, 403, "This form is of another site.");
      Run(visit, handler);
    });
  }
  /// A page for who is signed in.
  void Get(const char* path, Handler handler) {
    server_.Get(path, [this, handler](const auto& request, auto& response) {
      Visit visit{site_, request, response, site_.logins.Find(CookieToken(request))};
      if (!visit.login) return visit.GoTo("/sign-in");
      Run(visit, handler);
    });
  }
  /// A form of who is signed in: it must bring back the login's secret.
  void Post(const char* path, Handler handler) {
    server_.Post(path, [this, handler](const auto& request, auto& response) {
      Visit visit{site_, request, response, site_.logins.Find(CookieToken(request))};
      if (!visit.login) return visit.GoTo("/sign-in");
      if (FromElsewhere(request) || !SameSecret(visit.Field("csrf"), visit.login->csrf)) {
        return ShowFault(visit, 403,
                         "This form is not of this visit. Reload the page and try again.");
      }
      Run(visit, handler);
    });
  }

 private:
  httplib::Server& server_;
  Site& site_;
};

void SetRoutes(httplib::Server& server, Site& site) {
  static Routes routes(server, site);
  routes.Open("/sign-in", ShowSignIn);
  routes.SignIn("/sign-in", SignIn);
  routes.Open(R"(/frame-file/([0-9a-f]+)/(\d+)/(.+))", SendFrameFile);
  routes.Post("/sign-out", [](Visit& visit) {
    visit.site.logins.Close(CookieToken(visit.request));
    SignOut(visit);
  });
  routes.Get("/", [](Visit& visit) { visit.GoTo("/box/1"); });
  routes.Get(R"(/box/(\d+))", ShowBox);
  routes.Post("/fetch", StartFetch);
  routes.Get("/progress", ShowProgress);
  routes.Post("/delete", DeleteMessages);
  routes.Post("/undo", UndoDelete);
  routes.Get(R"(/message/(\d+))", ShowMessage);
  routes.Post(R"(/message/(\d+))", ShowMessage);
  routes.Get(R"(/message/(\d+)/body)", ShowBody);
  routes.Get(R"(/message/(\d+)/source)", SendSource);
  routes.Get(R"(/message/(\d+)/attachment/(-?\d+))", SendFile);
  routes.Get("/compose", ShowCompose);
  routes.Post("/compose", SaveDraft);
  routes.Get("/accounts", ShowAccounts);
  routes.Post("/accounts/(add|change|remove|default|ahead|verify)", ChangeAccounts);
  routes.Get("/maintenance", ShowMaintenance);
  routes.Post("/maintenance/compact", CompactNow);
  routes.Get("/peek", ShowPeek);
  routes.Post("/peek", ShowPeek);
  routes.Get(R"(/peek/(\d+))", PeekMessage);
  routes.Post(R"(/peek/(\d+))", PeekMessage);
  routes.Post(R"(/peek/(\d+)/delete)", PeekDelete);
}

httplib::Server* running = nullptr;

void Stop(int) {
  if (running) running->stop();
}

/// The port that was bound, -1 when none could be.
int Bind(httplib::Server& server, const SiteOptions& options) {
  if (options.port == 0) return server.bind_to_any_port(options.host);
  if (server.bind_to_port(options.host, options.port)) return options.port;
  return options.next_free_port ? server.bind_to_any_port(options.host) : -1;
}

}  // namespace

int Serve(Site& site) {
  HttpServer server;
  server.new_task_queue = [&] { return new httplib::ThreadPool(site.options.threads); };
  server.set_payload_max_length(kLargestRequest);
  server.set_keep_alive_max_count(1000);
  server.set_read_timeout(20);
  server.set_write_timeout(60);
  server.set_tcp_nodelay(true);
  server.set_socket_options([](int socket) {
    // A port that somebody else listens on is taken, not shared.
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.set_post_routing_handler(Secure);
  server.set_mount_point("/static", site.options.assets + "/static",
                         {{"Cache-Control", "max-age=3600"}});
  server.set_error_handler([&](const httplib::Request& request, httplib::Response& response) {
    if (!response.body.empty()) return;
    Visit visit{site, request, response, nullptr};
    Run(visit, [](Visit& lost) {
      ShowFault(lost, lost.response.status,
                lost.response.status == 413 ? "That is too large for this site."
                                            : "There is no such page.");
    });
  });
  SetRoutes(server, site);

  const int port = Bind(server, site.options);
  if (port < 0) {
    std::cerr << "No one can listen on " << site.options.host << " port " << site.options.port
              << ": choose another with --port.\n";
    return 1;
  }
  running = &server;
  std::signal(SIGINT, Stop);
  std::signal(SIGTERM, Stop);
  std::cout << "Mail site: http://" << site.options.host << ':' << port << '/' << std::endl;
  const bool served = server.listen_after_bind();
  running = nullptr;
  return served ? 0 : 1;
}

}  // namespace korvane::site
