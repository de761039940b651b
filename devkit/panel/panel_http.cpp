// The server; see panel_http.h. Who may ask is decided at one place, before any call: the names in
// the address and of the page that asks, then the token, which no other page and no other user
// knows, and which browsers send by themselves to nobody.
#include "panel_http.h"

#include <httplib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "panel_events.h"

namespace {

constexpr size_t kBodyMax = 512 * 1024; /* a value of 32 KiB, each byte as "\u0000" */
constexpr size_t kThreads = 24;         /* more than the streams and a browser's connections */

const PanelCall *const kTables[] = {kModelCalls, kDeskCalls, kAccessCalls, kHealthCalls};

/* The page loads what is here and nothing else, runs no text as a script, and nobody frames it. */
const httplib::Headers kHeaders = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

/* The library of Debian 12 binds no socket file; it serves the socket that it is given. */
struct FileServer : httplib::Server {
  bool Serve(int socket) {
    svr_sock_ = socket;
    return listen_after_bind();
  }
};

void Reply(httplib::Response *response, int code, const Json &json) {
  response->status = code;
  response->set_content(ControlBytes(json), "application/json");
}

/* Takes as long for each wrong token. */
bool Same(const std::string &one, const std::string &other) {
  if (one.size() != other.size()) return false;
  unsigned difference = 0;
  for (size_t i = 0; i < one.size(); ++i)
    difference |= static_cast<unsigned char>(one[i] ^ other[i]);
  return difference == 0;
}

bool IsOurs(const std::string &name, const char *scheme, const std::string &port) {
  return name == scheme + ("127.0.0.1:" + port) || name == scheme + ("localhost:" + port);
}

/* 0: go on; else the status to answer with. */
int Refusal(const httplib::Request &request, const PanelDoor &door) {
  if (!IsOurs(request.get_header_value("Host"), "", door.port)) return 403;
  if (request.has_header("Origin") &&
      !IsOurs(request.get_header_value("Origin"), "http://", door.port))
    return 403;
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  if (request.path.compare(0, 5, "/api/") != 0) return 0; /* the page's files are no secret */
  if (!site.empty() && site != "same-origin") return 403;
  return Same(request.get_header_value("Authorization"), "Bearer " + door.token) ? 0 : 401;
}

const char *WhyRefused(int code) {
  return code == 401 ? "the token is not this gateway's: open the address that it printed"
                     : "another page asks, or by another name than 127.0.0.1";
}

/* True: the answer says why. */
bool Refused(const httplib::Request &request, const PanelDoor &door, httplib::Response *response) {
  const int code = Refusal(request, door);
  if (code != 0) Reply(response, code, ControlReply(EXIT_REFUSED, WhyRefused(code)));
  return code != 0;
}

void Run(const httplib::Request &request, httplib::Response *response) {
  const std::string name = request.matches[1];
  Json asked = JsonIn(request.body);
  if (!asked.is_object() || request.get_header_value("Content-Type") != "application/json")
    return Reply(response, 400, ControlReply(EXIT_USAGE, "the body is no JSON object"));
  for (const PanelCall *call : kTables)
    for (; call->name != nullptr; ++call) {
      if (name != call->name) continue;
      try {
        return Reply(response, 200, call->run(asked));
      } catch (const Json::exception &error) {
        return Reply(response, 400, ControlReply(EXIT_USAGE, error.what()));
      } catch (const std::bad_alloc &) {
        return Reply(response, 503, ControlReply(EXIT_REFUSED, "no memory for it: ask for less"));
      }
    }
  Reply(response, 404, ControlReply(EXIT_USAGE, "no call \"" + name + "\""));
}

void Stream(const httplib::Request &request, httplib::Response *response) {
  std::shared_ptr<EventReader> reader = EventsRead(request.get_param_value("after"));
  if (reader == nullptr)
    return Reply(response, 503, ControlReply(EXIT_REFUSED, "too many pages are open: close some"));
  response->set_chunked_content_provider("text/event-stream",
                                         [reader](size_t, httplib::DataSink &sink) {
                                           const std::string text = EventsNext(reader.get());
                                           return sink.write(text.data(), text.size());
                                         });
}

}  // namespace

int PanelListen(const char *path) {
  struct sockaddr_un address = {AF_UNIX, ""};
  if (strlen(path) >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  strcpy(address.sun_path, path);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return -1;
  (void)unlink(path); /* of one that died */
  const mode_t before = umask(0177);
  const bool bound =
      bind(socket, reinterpret_cast<struct sockaddr *>(&address), sizeof address) == 0;
  umask(before);
  if (bound && listen(socket, SOMAXCONN) == 0) return socket;
  const int reason = errno;
  close(socket);
  errno = reason;
  return -1;
}

int PanelServe(int socket, const PanelDoor &door) {
  FileServer server;
  server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server.set_payload_max_length(kBodyMax);
  server.set_keep_alive_max_count(1000000); /* else the forwarder would connect again and again */
  server.set_write_timeout(5);              /* who does not read by then is let go */
  server.set_default_headers(kHeaders);
  /* A POST is looked at when its body is read: who still sends that to a connection that is closed
     may lose the answer. */
  server.set_pre_routing_handler([&door](const auto &request, auto &response) {
    const bool refused = request.method != "POST" && Refused(request, door, &response);
    return refused ? httplib::Server::HandlerResponse::Handled
                   : httplib::Server::HandlerResponse::Unhandled;
  });
  server.Get("/api/events",
             [](const auto &request, auto &response) { Stream(request, &response); });
  server.Post("/api/([a-z_]+)", [&door](const auto &request, auto &response) {
    if (!Refused(request, door, &response)) Run(request, &response);
  });
  if (!server.set_mount_point("/", door.web)) return -1;
  return server.Serve(socket) ? 0 : -1;
}
