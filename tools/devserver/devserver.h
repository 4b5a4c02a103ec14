/* velmora-devserver's internals shared between its files: the settings the
 * command line gives, the state serving keeps apart from them, the note
 * each request leaves for its log line, and the functions one concern
 * offers the others. */
#ifndef VELMORA_DEVSERVER_H
#define VELMORA_DEVSERVER_H

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

#include "common/json_text.h"
#include "common/recording.h"
#include "common/redaction.h"
#include "items.h"
#include "script.h"

namespace devserver {

/* Header-line names compare in any case, as HTTP has them. */
struct NoCase {
  bool operator()(const std::string &a, const std::string &b) const;
};
/* Header lines by name, as they came; a name may come more than once. */
using Headers = std::multimap<std::string, std::string, NoCase>;

/* A whole request, as the HTTP layer (http.cpp) hands it on. */
struct Request {
  std::string method;
  std::string target; /* as sent: undecoded, its query included */
  std::string path;   /* decoded, without the query */
  Headers headers;
  bool has_header(const std::string &name) const;
  /* The first line of that name's value; empty when there is none. */
  std::string get_header_value(const std::string &name) const;
};

/* The answer a handler makes, as the HTTP layer sends it. */
struct Response {
  int status = 200;
  std::string body;
  /* Sent instead of `body` when set: text that outlives every answer. */
  const std::string *lent = nullptr;
  /* Promises more than `body` and closes the connection after it. */
  bool cut = false;
  /* No answer at all: the connection closes. */
  bool silent = false;
  Headers headers;
  void set_content(const std::string &text, const std::string &type);
  void set_header(const std::string &name, const std::string &value);
  bool has_header(const std::string &name) const;
  std::string get_header_value(const std::string &name) const;
};

/* The limits of serving, as --help and the README state them. */
const size_t max_body = 8 << 20;         /* past it: 413 */
const size_t max_head = 32 << 10;        /* request line and header lines */
const unsigned idle_seconds = 2;         /* a connection silent that long */
const unsigned max_connections = 10000;  /* open at once */
const int listen_backlog = 4096;         /* waiting to be accepted */
const size_t max_answering = 512;        /* requests in handlers at once */
const long default_request_seconds = 10; /* a whole request must come in */

struct Account {
  std::string name;
  std::string password_sha1; /* hex; empty when the account has no password */
  bool has_password = false;
  std::string token;
  bool has_token = false;
};

/* One recorded answer, as --replay matches and gives it. */
struct Replayed {
  long number = 0;
  velmora_tools::Body request;
  std::string reply; /* its bytes as recorded */
  std::string reply_type;
};
/* Recorded answers by path, oldest first. */
using Recording = std::map<std::string, std::vector<Replayed>>;

/* The largest body held whole besides a request's: a forwarded reply
 * past it is refused, and a recording notes a body past it (unless
 * --record-limit says otherwise) by its size. */
const size_t max_held_body = size_t{64} << 20;

/* The longest catalogue --items makes: its totals stay in a ResultSet's
 * count, and a filtered or sorted page takes a fraction of a second. */
const long max_items = 10000000;

/* The settings the command line gives. */
struct Config {
  int port = 8888;
  long clock_offset = 0;
  long items = 40; /* the catalogue's length */
  std::vector<Account> accounts;
  std::string auth_key;
  bool require_auth_key = false;
  bool log_json = false;
  Script script;
  std::string upstream;   /* HOST:PORT to forward to; empty: answer here */
  std::string record_dir; /* empty: nothing recorded */
  size_t record_limit = max_held_body; /* a body past it: its size alone */
  std::vector<std::string> redacted;   /* --redact's names */
  std::string replay_dir;              /* empty: no replay */
  long request_seconds = default_request_seconds;
};

/* What the server holds besides its settings, made before the first
 * request: the atomics change while serving, the rest is only read. */
struct State {
  Recording replayed;
  std::atomic<long> next_recording{1}; /* of --record's next file */
  FaultCounts fault_counts;
  std::atomic<bool> stopping{false};
};

/* The outcome of a request, as the log line tells it. */
struct Note {
  std::string user = "-";
  std::string detail;
  bool recordable = true; /* false for a reply cut or never given */
};
/* A request's handler and its log line run on one thread. */
extern thread_local Note note;

/* Serving (main.cpp) */
std::string render(const Json::Value &value);
void answer_error(Response &res, int status, const std::string &why);
/* Answers a whole request, dated, recorded when --record asks. */
void handle(const Config &config, State &state, const Request &req,
            const std::string &body, Response &res);
/* The request's line on standard error, from its note; clears the note. */
void log_request(const Config &config, const Request &req, const Response &res);

/* The HTTP layer (http.cpp): serves on `listener`, a listening socket,
 * until one of `stop` comes; false after saying why it could not. */
bool serve_http(const Config &config, State &state, int listener,
                const sigset_t &stop);

/* Command line (options.cpp): -1 to go on, else an exit code. */
int parse_options(int argc, char **argv, Config *config);

/* Signatures and dates (auth.cpp) */
std::string sha1_hex(const std::string &text);
const Account *find_account(const Config &config, const std::string &name);
/* 0 when the request is signed by a known account and dated within the
 * allowed skew; otherwise the "auth_error" value to answer (1: the date,
 * 2: anything else), with the reason in the request's note. */
int authenticate(const Request &req, const std::string &body,
                 const Config &config);
/* 401 with that "auth_error" (and the server's Date for 1). */
void refuse(const Config &config, int auth_error, Response &res);
/* This server's Date: on an answer that has none, as servers send it. */
void stamp_date(const Config &config, Response &res);

/* The demo catalogue of `count` items (catalogue.cpp): one page of it. */
void list_items(long count, const std::string &body, Response &res);

/* Scripted faults (script.cpp): true when the fault is the whole answer; a
 * delay lets the request go on. */
bool inject(const Config &config, State &state, const Fault &fault,
            Response &res);
/* The --route's text as the reply; false when no --route names `path`. */
bool answer_route(const Config &config, const std::string &path, Response &res);

/* Forwarding (relay.cpp) */
bool set_upstream(const std::string &argument, Config *config,
                  std::string *why);
/* Sends the request on unchanged; 502 naming the upstream when it cannot
 * be reached. */
void forward(const Config &config, const Request &req, const std::string &body,
             Response &res);

/* Recording (record.cpp) */
/* Makes the directory when missing, numbers on from what it holds and
 * removes, saying how many, files stopped recorders left aside. False with
 * the reason in `why`. */
bool open_recording(const Config &config, State *state, std::string *why);
/* Records the exchange as file `number` or, when another recorder on the
 * directory took it, the first free one after. */
void record(const Config &config, State &state, long number, const Request &req,
            const std::string &body, const Response &res);

/* Replaying (replay.cpp) */
bool load_replay(const Config &config, State *state, std::string *why);
/* The recorded answer for the request; 404 naming a path never answered. */
void replay(const Config &config, const Recording &replayed, const Request &req,
            const std::string &body, Response &res);

} // namespace devserver

#endif
