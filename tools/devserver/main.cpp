/* velmora-devserver: a local stand-in for the remote service, to develop,
 * demonstrate and test against. This file serves: it reads each request,
 * hands it to the concern that answers it, and logs the outcome. */
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <curl/curl.h>

#include "devserver.h"

namespace devserver {

thread_local Note note;

namespace {

/* What this server answers itself, after the checks the service makes. */
void answer_here(const Config &config, const State &state, const Request &req,
                 const std::string &body, Response &res) {
  int auth_error = authenticate(req, body, config);
  if (auth_error != 0)
    return refuse(config, auth_error, res);
  if (answer_route(config, req.path, res))
    return;
  if (!config.replay_dir.empty()) {
    replay(config, state.replayed, req, body, res);
  } else if (req.path == "/echo") {
    std::string type = req.get_header_value("Content-Type");
    res.set_content(body,
                    type.empty() ? "application/octet-stream" : type.c_str());
    note.detail = "ok";
  } else if (req.path == "/items/list") {
    list_items(config.items, body, res);
  } else {
    answer_error(res, 404, "unknown path");
  }
}

/* Faults come first in every mode; a forwarded request is checked by the
 * upstream, not here. */
void serve(const Config &config, State &state, const Request &req,
           const std::string &body, Response &res) {
  const Fault *fault = due_fault(config.script, state.fault_counts, req.path);
  if (fault != nullptr && inject(config, state, *fault, res))
    return;
  if (config.upstream.empty())
    return answer_here(config, state, req, body, res);
  if (!answer_route(config, req.path, res))
    forward(config, req, body, res);
}

/* Log text keeps to one line of ASCII whatever a client sends. */
std::string printable(const std::string &text) {
  std::string out;
  for (unsigned char c : text.substr(0, 200)) {
    if (c >= 32 && c < 127 && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char escape[5];
      snprintf(escape, sizeof escape, "\\x%02x", c);
      out += escape;
    }
  }
  return out.empty() ? "-" : out;
}

/* The state serving starts from; false with the reason in `why`. */
bool prepare(const Config &config, State *state, std::string *why) {
  if (!config.replay_dir.empty() && !load_replay(config, state, why))
    return false;
  count_faults(config.script, &state->fault_counts);
  return true;
}

/* The listening socket on 127.0.0.1, its port in `port`; -1 after saying
 * why not. A port in use fails rather than sharing its requests. */
int listen_on(int wanted, int *port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int yes = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(wanted));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto *any = reinterpret_cast<sockaddr *>(&address);
  if (fd >= 0 &&
      setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
      bind(fd, any, length) == 0 && listen(fd, listen_backlog) == 0 &&
      getsockname(fd, any, &length) == 0) {
    *port = ntohs(address.sin_port);
    return fd;
  }
  if (errno == EADDRINUSE)
    fprintf(stderr,
            "velmora-devserver: port %d is already in use; --port 0 takes "
            "any free port and prints it on the first line\n",
            wanted);
  else
    fprintf(stderr, "velmora-devserver: cannot listen on 127.0.0.1:%d: %s\n",
            wanted, strerror(errno));
  return -1;
}

/* The port on stdout, for scripts that started us on any port. */
void announce(const Config &config, int port) {
  printf("%d\n", port);
  fflush(stdout);
  if (config.upstream.empty())
    fprintf(stderr,
            "velmora-devserver: listening on http://127.0.0.1:%d, clock "
            "offset %ld s\n",
            port, config.clock_offset);
  else
    fprintf(stderr,
            "velmora-devserver: listening on http://127.0.0.1:%d, "
            "forwarding to http://%s\n",
            port, config.upstream.c_str());
}

} // namespace

void handle(const Config &config, State &state, const Request &req,
            const std::string &body, Response &res) {
  note = Note();
  /* Numbered as they arrive, whenever their answers are ready. */
  long number = config.record_dir.empty() ? 0 : state.next_recording++;
  const std::string type = req.get_header_value("Content-Type");
  /* Every answer carries the server's date, refusals of this server's own
   * included, as servers send it. */
  if (type.rfind("multipart/form-data", 0) == 0) {
    answer_error(res, 415, "multipart bodies are not served");
    return stamp_date(config, res);
  }
  try {
    serve(config, state, req, body, res);
    stamp_date(config, res);
    if (number != 0 && note.recordable)
      record(config, state, number, req, body, res);
  } catch (const std::exception &e) {
    answer_error(res, 500, std::string("internal error: ") + e.what());
    stamp_date(config, res);
  }
}

void log_request(const Config &config, const Request &req,
                 const Response &res) {
  if (config.log_json) {
    Json::Value entry;
    entry["method"] = req.method;
    entry["path"] = req.path;
    entry["user"] = note.user;
    entry["status"] = res.status;
    entry["outcome"] = note.detail;
    fprintf(stderr, "%s\n", render(entry).c_str());
  } else {
    fprintf(stderr, "%s %s %s %d %s\n", printable(req.method).c_str(),
            printable(req.path).c_str(), printable(note.user).c_str(),
            res.status, printable(note.detail).c_str());
  }
  note = Note();
}

std::string render(const Json::Value &value) {
  return velmora_tools::one_line(value);
}

void answer_error(Response &res, int status, const std::string &why) {
  Json::Value body;
  body["error"] = why;
  body["status"] = status;
  res.status = status;
  res.set_content(render(body), "application/json");
  if (note.detail.empty())
    note.detail = why;
}

} // namespace devserver

int main(int argc, char **argv) {
  devserver::Config config;
  int status = devserver::parse_options(argc, argv, &config);
  if (status >= 0)
    return status;
  /* Before any thread starts, as libcurl asks. */
  if (!config.upstream.empty())
    curl_global_init(CURL_GLOBAL_DEFAULT);
  devserver::State state;
  std::string why;
  if (!devserver::prepare(config, &state, &why)) {
    fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
    return 1;
  }
  if (config.accounts.empty() && config.upstream.empty())
    fprintf(stderr, "velmora-devserver: no --user given: every request "
                    "will be refused\n");

  /* Signals are taken by this thread when serving ends; every other
   * thread inherits the blocked mask. */
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  int port;
  int listener = devserver::listen_on(config.port, &port);
  if (listener < 0)
    return 1;
  /* Only once listening, so that a failed start leaves no directory. */
  if (!config.record_dir.empty() &&
      !devserver::open_recording(config, &state, &why)) {
    fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
    return 1;
  }
  devserver::announce(config, port);
  return devserver::serve_http(config, state, listener, stop_signals) ? 0 : 1;
}
