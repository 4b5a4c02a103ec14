/* The HTTP layer on libmicrohttpd: its event loop reads requests on a few
 * threads, each connection a socket and its buffers; a whole request is
 * answered on a worker while its connection is suspended, so that a slow
 * handler (a delay, a hang, an upstream) holds no other client. */
#include <strings.h>
#include <sys/resource.h>

#include <microhttpd.h>

#include "http.h"

namespace devserver {
namespace {

/* Threads of the event loop: the machine's cores are enough for sockets. */
const unsigned loop_threads = 2;

/* A request from its first line to its answer sent. */
struct Exchange {
  Request req;
  std::string body;
  Response res;
  bool started = false;           /* its header lines are read */
  bool too_large = false;         /* the rest of its body is read and dropped */
  bool passed = false;            /* handed to a worker */
  std::atomic<bool> ready{false}; /* the worker's answer is in `res` */
};

struct Server {
  const Config &config;
  State &state;
  Links links;
  Workers workers;
};

Link *link_of(MHD_Connection *connection) {
  const MHD_ConnectionInfo *info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return static_cast<Link *>(info->socket_context);
}

MHD_Result add_header(void *headers, MHD_ValueKind, const char *name,
                      const char *value) {
  static_cast<Headers *>(headers)->emplace(name, value == nullptr ? "" : value);
  return MHD_YES;
}

/* The connection closes after a cut reply's first piece. */
ssize_t cut_piece(void *text, uint64_t offset, char *buffer, size_t most) {
  const std::string &body = *static_cast<const std::string *>(text);
  if (offset != 0 || body.size() > most)
    return MHD_CONTENT_READER_END_WITH_ERROR;
  body.copy(buffer, body.size());
  return static_cast<ssize_t>(body.size());
}

MHD_Response *make_response(const Response &res) {
  if (res.cut)
    return MHD_create_response_from_callback(
        res.body.size() + 1000, 1024, cut_piece, (void *)&res.body, nullptr);
  const std::string &body = res.lent != nullptr ? *res.lent : res.body;
  return MHD_create_response_from_buffer(
      body.size(), const_cast<char *>(body.data()), MHD_RESPMEM_PERSISTENT);
}

/* The reply's bytes stay in the exchange until the request completes. */
MHD_Result send_reply(MHD_Connection *connection, const Response &res) {
  MHD_Response *response = make_response(res);
  if (response == nullptr)
    return MHD_NO;
  for (const auto &header : res.headers)
    MHD_add_response_header(response, header.first.c_str(),
                            header.second.c_str());
  MHD_Result queued = MHD_queue_response(
      connection, static_cast<unsigned>(res.status), response);
  MHD_destroy_response(response);
  return queued;
}

/* An answer the HTTP layer gives before any handler: logged alike. */
MHD_Result answer_early(Server &server, MHD_Connection *connection,
                        Exchange &exchange, int status,
                        const std::string &why) {
  if (!server.links.take(link_of(connection)))
    return MHD_NO;
  note = Note();
  answer_error(exchange.res, status, why);
  stamp_date(server.config, exchange.res);
  log_request(server.config, exchange.req, exchange.res);
  return send_reply(connection, exchange.res);
}

/* The header lines are read: only POST goes on, and a body announced past
 * the limit is refused before it is read. */
MHD_Result start(Server &server, MHD_Connection *connection, Exchange &exchange,
                 const char *url, const char *method) {
  exchange.started = true;
  exchange.req.method = method;
  exchange.req.path = url;
  MHD_get_connection_values(connection, MHD_HEADER_KIND, add_header,
                            &exchange.req.headers);
  if (exchange.req.method != "POST")
    return answer_early(server, connection, exchange, 405,
                        "only POST is served");
  std::string length = exchange.req.get_header_value("Content-Length");
  if (!length.empty() && strtoull(length.c_str(), nullptr, 10) > max_body)
    return answer_early(server, connection, exchange, 413,
                        "request body too large");
  return MHD_YES;
}

/* The worker's part: the answer, its log line, and the connection back to
 * the event loop to send it. */
void pass(Server &server, MHD_Connection *connection, Exchange &exchange) {
  exchange.passed = true;
  MHD_suspend_connection(connection);
  server.workers.run([&server, connection, &exchange] {
    handle(server.config, server.state, exchange.req, exchange.body,
           exchange.res);
    log_request(server.config, exchange.req, exchange.res);
    exchange.ready = true;
    MHD_resume_connection(connection);
  });
}

MHD_Result on_request(void *cls, MHD_Connection *connection, const char *url,
                      const char *method, const char *, const char *upload_data,
                      size_t *upload_size, void **request) {
  Server &server = *static_cast<Server *>(cls);
  Exchange &exchange = *static_cast<Exchange *>(*request);
  if (!exchange.started)
    return start(server, connection, exchange, url, method);
  /* A body past the limit is read to its end, so that the client, done
   * sending, reads the 413 rather than a reset. */
  if (*upload_size != 0) {
    exchange.too_large |= exchange.body.size() + *upload_size > max_body;
    if (!exchange.too_large)
      exchange.body.append(upload_data, *upload_size);
    *upload_size = 0;
    return MHD_YES;
  }
  if (exchange.ready)
    return exchange.res.silent ? MHD_NO : send_reply(connection, exchange.res);
  if (exchange.too_large)
    return answer_early(server, connection, exchange, 413,
                        "request body too large");
  if (exchange.passed || !server.links.take(link_of(connection)))
    return MHD_NO;
  pass(server, connection, exchange);
  return MHD_YES;
}

/* Called with the request's first line: its target as sent. */
void *on_request_line(void *cls, const char *uri, MHD_Connection *connection) {
  static_cast<Server *>(cls)->links.begin(link_of(connection), uri);
  Exchange *exchange = new Exchange;
  exchange->req.target = uri;
  return exchange;
}

void on_completed(void *cls, MHD_Connection *connection, void **request,
                  MHD_RequestTerminationCode) {
  delete static_cast<Exchange *>(*request);
  *request = nullptr;
  static_cast<Server *>(cls)->links.done(link_of(connection));
}

void on_connection(void *cls, MHD_Connection *connection, void **context,
                   MHD_ConnectionNotificationCode code) {
  Links &links = static_cast<Server *>(cls)->links;
  if (code == MHD_CONNECTION_NOTIFY_STARTED)
    *context = links.open(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)
            ->connect_fd);
  else
    links.close(static_cast<Link *>(*context));
}

/* Connections need a descriptor each: the soft limit is raised as far as
 * the hard one allows, and the connections kept below it. */
unsigned connection_limit() {
  const rlim_t spare = 64;
  rlimit files;
  if (getrlimit(RLIMIT_NOFILE, &files) != 0)
    return 1024 - spare;
  if (files.rlim_cur < max_connections + spare) {
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, max_connections + spare);
    setrlimit(RLIMIT_NOFILE, &files);
    getrlimit(RLIMIT_NOFILE, &files);
  }
  return static_cast<unsigned>(
      std::min<rlim_t>(max_connections, files.rlim_cur - spare));
}

MHD_Daemon *start_daemon(Server &server, int listener) {
  return MHD_start_daemon(
      MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME |
          MHD_USE_SUPPRESS_DATE_NO_CLOCK,
      0, nullptr, nullptr, on_request, &server, MHD_OPTION_LISTEN_SOCKET,
      listener, MHD_OPTION_THREAD_POOL_SIZE, loop_threads,
      MHD_OPTION_CONNECTION_LIMIT, connection_limit(),
      MHD_OPTION_CONNECTION_TIMEOUT, idle_seconds,
      MHD_OPTION_CONNECTION_MEMORY_LIMIT, max_head, MHD_OPTION_URI_LOG_CALLBACK,
      on_request_line, &server, MHD_OPTION_NOTIFY_COMPLETED, on_completed,
      &server, MHD_OPTION_NOTIFY_CONNECTION, on_connection, &server,
      MHD_OPTION_END);
}

} // namespace

bool NoCase::operator()(const std::string &a, const std::string &b) const {
  return strcasecmp(a.c_str(), b.c_str()) < 0;
}

bool Request::has_header(const std::string &name) const {
  return headers.find(name) != headers.end();
}

std::string Request::get_header_value(const std::string &name) const {
  auto found = headers.find(name);
  return found == headers.end() ? "" : found->second;
}

void Response::set_content(const std::string &text, const std::string &type) {
  body = text;
  set_header("Content-Type", type);
}

void Response::set_header(const std::string &name, const std::string &value) {
  headers.erase(name);
  headers.emplace(name, value);
}

bool Response::has_header(const std::string &name) const {
  return headers.find(name) != headers.end();
}

std::string Response::get_header_value(const std::string &name) const {
  auto found = headers.find(name);
  return found == headers.end() ? "" : found->second;
}

bool serve_http(const Config &config, State &state, int listener,
                const sigset_t &stop) {
  Server server{config, state, Links(config, config.request_seconds),
                Workers(max_answering)};
  MHD_Daemon *daemon = start_daemon(server, listener);
  if (daemon == nullptr) {
    fprintf(stderr, "velmora-devserver: cannot start serving\n");
    return false;
  }
  int signal_number;
  sigwait(&stop, &signal_number);
  /* Delays and hangs end first, so that their workers can be joined. */
  state.stopping = true;
  server.workers.finish();
  MHD_stop_daemon(daemon);
  return true;
}

} // namespace devserver
