/* velmora-devserver: a local stand-in for the remote service, to develop,
 * demonstrate and test against. This file serves: it reads each request,
 * hands it to the concern that answers it, and logs the outcome. */
#include <cerrno>
#include <csignal>
#include <cstring>
#include <strings.h>
#include <thread>
#include <unistd.h>

#include <curl/curl.h>

#include "devserver.h"

namespace devserver {

thread_local Note note;

namespace {

const size_t max_body = 8 << 20;
/* Every connection has a worker of its own, so that idle or slow clients
 * cannot hold the others up; idle ones are dropped after a few seconds. */
const size_t worker_threads = 512;
const time_t idle_seconds = 2;

/* What this server answers itself, after the checks the service makes. */
void answer_here(const Config &config, const State &state,
                 const httplib::Request &req, const std::string &body,
                 httplib::Response &res) {
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
void serve(const Config &config, State &state, const httplib::Request &req,
           const std::string &body, httplib::Response &res) {
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

/* Reads the body as it comes, chunked or not, up to max_body: one more
 * byte and the request gets 413 without the rest being kept. */
void handle(const Config &config, State &state, const httplib::Request &req,
            httplib::Response &res, const httplib::ContentReader &read) {
  note = Note();
  /* Numbered as they arrive, whenever their answers are ready. */
  long number = config.record_dir.empty() ? 0 : state.next_recording++;
  if (req.is_multipart_form_data())
    return answer_error(res, 415, "multipart bodies are not served");
  try {
    std::string body;
    bool too_large = false;
    if (!read([&](const char *data, size_t length) {
          too_large = body.size() + length > max_body;
          if (!too_large)
            body.append(data, length);
          return !too_large;
        })) {
      if (too_large || res.status == 413)
        return answer_error(res, 413, "request body too large");
      return answer_error(res, res.status >= 400 ? res.status : 400,
                          "request body not read");
    }
    serve(config, state, req, body, res);
    stamp_date(config, res);
    if (number != 0 && note.recordable)
      record(config, state, number, req, body, res);
  } catch (const std::exception &e) {
    answer_error(res, 500, std::string("internal error: ") + e.what());
  }
}

void log_request(const Config &config, const httplib::Request &req,
                 const httplib::Response &res) {
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

void set_up(httplib::Server &server, const Config &config, State &state) {
  /* Without httplib's SO_REUSEPORT, a port in use fails to bind instead of
   * sharing its requests with another server. */
  server.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.new_task_queue = [] {
    return new httplib::ThreadPool(worker_threads);
  };
  server.set_keep_alive_timeout(idle_seconds);
  server.set_read_timeout(idle_seconds, 0);
  server.set_payload_max_length(max_body);
  server.Post(".*", [&](const httplib::Request &req, httplib::Response &res,
                        const httplib::ContentReader &read) {
    handle(config, state, req, res, read);
  });
  auto not_post = [](const httplib::Request &, httplib::Response &res) {
    answer_error(res, 405, "only POST is served");
  };
  server.Get(".*", not_post);
  server.Put(".*", not_post);
  server.Patch(".*", not_post);
  server.Delete(".*", not_post);
  server.Options(".*", not_post);
  /* Errors httplib answers itself (a malformed request, a body too large)
   * get the same JSON form as ours. */
  server.set_error_handler(
      [](const httplib::Request &, httplib::Response &res) {
        if (res.body.empty())
          answer_error(res, res.status,
                       res.status == 413 ? "request body too large"
                                         : "malformed HTTP request");
      });
  server.set_logger(
      [&](const httplib::Request &req, const httplib::Response &res) {
        log_request(config, req, res);
      });
}

/* The state serving starts from; false with the reason in `why`. */
bool prepare(const Config &config, State *state, std::string *why) {
  if (!config.replay_dir.empty() && !load_replay(config, state, why))
    return false;
  count_faults(config.script, &state->fault_counts);
  return true;
}

/* The port listened on, or -1 after saying why not. */
int bind_port(httplib::Server &server, int wanted) {
  int port = wanted == 0
                 ? server.bind_to_any_port("127.0.0.1")
                 : (server.bind_to_port("127.0.0.1", wanted) ? wanted : -1);
  if (port < 0 && errno == EADDRINUSE)
    fprintf(stderr,
            "velmora-devserver: port %d is already in use; --port 0 takes "
            "any free port and prints it on the first line\n",
            wanted);
  else if (port < 0)
    fprintf(stderr, "velmora-devserver: cannot listen on 127.0.0.1:%d: %s\n",
            wanted, strerror(errno));
  return port;
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

std::string render(const Json::Value &value) {
  return velmora_tools::one_line(value);
}

void answer_error(httplib::Response &res, int status, const std::string &why) {
  Json::Value body;
  body["error"] = why;
  body["status"] = status;
  res.status = status;
  res.set_content(render(body), "application/json");
  if (note.detail.empty())
    note.detail = why;
}

bool peer_header(const std::string &name) {
  for (const char *peer :
       {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"})
    if (strcasecmp(name.c_str(), peer) == 0)
      return true;
  return false;
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

  /* Signals are taken by one thread that stops the server; every other
   * thread, httplib's workers included, inherits the blocked mask. */
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  httplib::Server server;
  devserver::set_up(server, config, state);
  int port = devserver::bind_port(server, config.port);
  if (port < 0)
    return 1;
  /* Only once listening, so that a failed start leaves no directory. */
  if (!config.record_dir.empty() &&
      !devserver::open_recording(config, &state, &why)) {
    fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
    return 1;
  }
  devserver::announce(config, port);

  std::thread stopper([&] {
    int signal_number;
    sigwait(&stop_signals, &signal_number);
    /* Delays and hangs end first, so that their workers can be joined. */
    state.stopping = true;
    server.stop();
  });
  bool listened = server.listen_after_bind();
  /* Wakes the stopper when the server ended on its own; otherwise the
   * signal stays pending, blocked, and is never delivered. */
  kill(getpid(), SIGTERM);
  stopper.join();
  return listened ? 0 : 1;
}
