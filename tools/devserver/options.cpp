/* velmora-devserver's command line: its usage text and the options read
 * into a Config. */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

#include <velmora/velmora.h>

#include "common/input.h"
#include "devserver.h"

namespace devserver {
namespace {

/* The names --record redacts by default, wrapped as the usage text is. */
void print_redacted(FILE *stream) {
  std::string names = velmora_tools::default_redacted_names() + ".";
  std::string line = " ";
  for (size_t start = 0, end; start < names.size(); start = end + 1) {
    end = std::min(names.find(' ', start), names.size());
    if (line.size() + end - start > 75) {
      fprintf(stream, "%s\n", line.c_str());
      line = " ";
    }
    line += " " + names.substr(start, end - start);
  }
  fprintf(stream, "%s\n", line.c_str());
}

/* The limits of serving, and what a client sees when it meets one. */
void print_limits(FILE *stream) {
  fprintf(
      stream,
      "Limits. Waiting clients cost a connection, not a thread: %u\n"
      "connections at once (fewer when the open-file limit is lower; it is\n"
      "raised to the hard limit); past them, and up to %d, new ones wait to\n"
      "be accepted until others close. A request (line, header lines and\n"
      "body) must come in whole within --request-timeout seconds (default\n"
      "%ld) of the connection's opening or the previous answer, or it gets\n"
      "408 and the connection is closed (closed unanswered before its first\n"
      "line is whole); a connection silent for %u s is closed. A head over\n"
      "%zu KiB gets 431; a body over %zu MiB, chunked or not, 413 (with a\n"
      "Content-Length past it, before it is sent). %zu requests are answered\n"
      "at once (a delay or hang holds one until it ends); more wait.\n",
      max_connections, listen_backlog, default_request_seconds, idle_seconds,
      max_head >> 10, max_body >> 20, max_answering);
}

void usage(FILE *stream) {
  fprintf(
      stream,
      "Usage: velmora-devserver [--port N] [--user NAME (--password-file F "
      "| --token-file F)...]...\n"
      "                         [--auth-key-file F] [--clock-offset "
      "SECONDS] [--items N]\n"
      "                         [--route PATH=FILE]... [--fault "
      "PATH:FAULT]...\n"
      "                         [--upstream HOST:PORT | --replay DIR] "
      "[--record DIR [--record-limit BYTES]]\n"
      "                         [--redact NAME]...\n"
      "                         [--log json] [--request-timeout SECONDS]\n"
      "\n"
      "A local stand-in for the service, on 127.0.0.1. Prints the port it\n"
      "listens on as the first line of standard output and one line per\n"
      "request (method, path, user, outcome) on standard error. Stops on\n"
      "SIGINT or SIGTERM. A refused request gets 401 with \"auth_error: 1\"\n"
      "(and this server's Date:) when its date is more than 300 s off, and\n"
      "\"auth_error: 2\" for every other cause (no or a wrong local key, not\n"
      "signed, an unknown scheme or user, no Date, a wrong signature), which\n"
      "the request's line on standard error names.\n"
      "\n"
      "  --port N             port to listen on (default 8888; 0: any free "
      "one)\n"
      "  --user NAME          an account; the password and token options\n"
      "                       that follow belong to it (both may be given)\n"
      "  --password-file F    the account signs with the password scheme, the\n"
      "                       password the first line of file F (- for\n"
      "                       standard input)\n"
      "  --token-file F       the account signs with the token scheme, the\n"
      "                       token the first line of F\n"
      "  --auth-key-file F    require the first line of F as LOCAL_AUTH_KEY\n"
      "                       on every request; without it or --auth-key,\n"
      "                       the key in VELMORA_DEVSERVER_AUTH_KEY when set\n"
      "  --password PW, --token TK, --auth-key KEY\n"
      "                       the same, given on the command line, where\n"
      "                       every local user sees them (ps): use the file\n"
      "                       options or the variable\n"
      "  --clock-offset S     run the server's clock S seconds ahead (or\n"
      "                       behind, when negative)\n"
      "  --items N            the catalogue's length (default 40, at most\n"
      "                       10000000); items past the 40th repeat its\n"
      "                       names with a number (\"agate-1\")\n"
      "  --route PATH=FILE    answer FILE's JSON for PATH (signatures are "
      "still\n"
      "                       checked)\n"
      "  --fault PATH:FAULT[,after=M][,first=N]\n"
      "                       inject a fault on PATH, for all requests or\n"
      "                       the first N, after sparing the first M; FAULT\n"
      "                       is status=CODE (that status),\n"
      "                       auth-error=1 (a refused date, with the server's\n"
      "                       Date), delay=Ns or delay=Nms (then the answer),\n"
      "                       close (a cut reply) or hang (no answer at all)\n"
      "  --upstream HOST:PORT forward every request to http://HOST:PORT with\n"
      "                       its path, body and header lines unchanged, and\n"
      "                       its status, Date, auth_error and body back; the\n"
      "                       upstream checks signatures, this server does "
      "not.\n"
      "                       502 when the upstream cannot be reached, "
      "answers\n"
      "                       over %zu MiB or not within 120 s\n"
      "  --record DIR         write each exchange to DIR/NNNNNN.json (whole\n"
      "                       and synced; recorders may share DIR),\n"
      "                       credentials (below, and --redact's) replaced\n"
      "                       by \"(removed)\"; a body over the limit is\n"
      "                       passed on and only its size recorded\n"
      "  --record-limit BYTES the largest body recorded (default %zu MiB)\n"
      "  --redact NAME        redact NAME's values too, in header lines and\n"
      "                       query parameters (repeatable; give --replay\n"
      "                       the same names)\n"
      "  --replay DIR         answer from DIR's recorded 200 replies: the one\n"
      "                       whose path and JSON body match, else the latest\n"
      "                       for the path, else 404; checks still apply\n"
      "  --log json           log one JSON object per request\n"
      "  --request-timeout S  the time a request has to come in whole (below)\n"
      "  --help               this text\n"
      "  --version            print the version\n"
      "\n"
      "Operations (POST): /echo answers the body it got; /items/list takes\n"
      "{\"list_info\": <ListInfo>} and answers {\"result\": <ResultSet of "
      "Item>}\n"
      "from --items items with the fields id, name, address and created.\n"
      "Limit 0 means no limit; order_by and search_parameters name those\n"
      "fields.\n"
      "\n"
      "A port in use is refused.\n"
      "\n",
      max_held_body >> 20, max_held_body >> 20);
  print_limits(stream);
  fputs("\nRedacted by default, in header lines and query parameters of any "
        "case:\n",
        stream);
  print_redacted(stream);
}

/* --route, --fault and --log; false after saying why. */
bool script_option(int option, const char *argument, Config *config) {
  std::string why;
  bool ok = option == 'r'   ? add_route(config->script, argument, &why)
            : option == 'f' ? add_fault(config->script, argument, &why)
                            : strcmp(argument, "json") == 0;
  if (option == 'l' && ok)
    config->log_json = true;
  if (option == 'l' && !ok)
    why = "--log takes \"json\"";
  if (!ok)
    fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
  return ok;
}

const char *option_name(int option) {
  return option == 'w'   ? "--password"
         : option == 'W' ? "--password-file"
         : option == 't' ? "--token"
         : option == 'T' ? "--token-file"
                         : "--auth-key-file";
}

/* The secret an option gives: its argument, or for a -file option the
 * first line of that file; false after saying why. */
bool secret_option(int option, const char *argument, std::string *secret) {
  if (option == 'w' || option == 't' || option == 'k') {
    *secret = argument;
    return true;
  }
  std::string why;
  if (velmora_tools::read_secret(argument, secret, &why))
    return true;
  fprintf(stderr, "velmora-devserver: %s: %s\n", option_name(option),
          why.c_str());
  return false;
}

/* --user, --password, --token and their -file forms; false after saying
 * why. */
bool account_option(int option, const char *argument, Config *config,
                    Account **account) {
  if (option == 'u') {
    *account = const_cast<Account *>(find_account(*config, argument));
    if (*account == nullptr) {
      config->accounts.emplace_back();
      *account = &config->accounts.back();
      (*account)->name = argument;
    }
    return true;
  }
  std::string secret;
  if (*account == nullptr) {
    fprintf(stderr, "velmora-devserver: %s must follow a --user\n",
            option_name(option));
    return false;
  }
  if (!secret_option(option, argument, &secret))
    return false;
  if (option == 't' || option == 'T') {
    (*account)->token = secret;
    (*account)->has_token = true;
  } else {
    (*account)->password_sha1 = sha1_hex(secret);
    (*account)->has_password = true;
  }
  return true;
}

/* --auth-key, --auth-key-file and --redact; false after saying why. */
bool request_option(int option, const char *argument, Config *config) {
  if (option == 'D' && *argument == '\0') {
    fputs("velmora-devserver: --redact takes a name\n", stderr);
    return false;
  }
  if (option == 'D') {
    config->redacted.push_back(argument);
    return true;
  }
  config->require_auth_key = true;
  return secret_option(option, argument, &config->auth_key);
}

/* --upstream, --record and --replay; false after saying why. */
bool mode_option(int option, const char *argument, Config *config) {
  std::string why;
  if (option == 'U' && !set_upstream(argument, config, &why)) {
  } else if (option != 'U' && *argument == '\0') {
    why = "--record and --replay take a directory";
  } else {
    if (option != 'U')
      (option == 'R' ? config->record_dir : config->replay_dir) = argument;
    if (config->upstream.empty() || config->replay_dir.empty())
      return true;
    why = "--upstream and --replay exclude each other";
  }
  fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
  return false;
}

const option options[] = {{"port", required_argument, nullptr, 'p'},
                          {"user", required_argument, nullptr, 'u'},
                          {"password", required_argument, nullptr, 'w'},
                          {"token", required_argument, nullptr, 't'},
                          {"password-file", required_argument, nullptr, 'W'},
                          {"token-file", required_argument, nullptr, 'T'},
                          {"auth-key", required_argument, nullptr, 'k'},
                          {"auth-key-file", required_argument, nullptr, 'K'},
                          {"redact", required_argument, nullptr, 'D'},
                          {"clock-offset", required_argument, nullptr, 'c'},
                          {"items", required_argument, nullptr, 'i'},
                          {"route", required_argument, nullptr, 'r'},
                          {"fault", required_argument, nullptr, 'f'},
                          {"log", required_argument, nullptr, 'l'},
                          {"request-timeout", required_argument, nullptr, 'Q'},
                          {"upstream", required_argument, nullptr, 'U'},
                          {"record", required_argument, nullptr, 'R'},
                          {"replay", required_argument, nullptr, 'P'},
                          {"record-limit", required_argument, nullptr, 'L'},
                          {"help", no_argument, nullptr, 'h'},
                          {"version", no_argument, nullptr, 'V'},
                          {nullptr, 0, nullptr, 0}};

/* --auth-key-file and the variable keep the key out of the process list;
 * the options win over the variable. */
void key_from_environment(Config *config) {
  const char *key = getenv("VELMORA_DEVSERVER_AUTH_KEY");
  if (key != nullptr && *key != '\0') {
    config->auth_key = key;
    config->require_auth_key = true;
  }
}

/* --port, --clock-offset, --record-limit and --items; false after saying
 * why. */
bool number_option(int option, const char *argument, Config *config) {
  static const struct {
    int option;
    const char *what;
    long low, high;
  } numbers[] = {{'p', "port", 0, 65535},
                 {'c', "clock offset", -(1L << 40), 1L << 40},
                 {'L', "record limit", 0, 1L << 40},
                 {'i', "item count", 0, max_items}};
  long value = 0;
  for (const auto &number : numbers) {
    if (number.option != option)
      continue;
    if (!velmora_tools::parse_number(argument, number.low, number.high,
                                     &value)) {
      fprintf(stderr, "velmora-devserver: bad %s \"%s\"\n", number.what,
              argument);
      return false;
    }
  }
  if (option == 'p')
    config->port = static_cast<int>(value);
  else if (option == 'c')
    config->clock_offset = value;
  else if (option == 'L')
    config->record_limit = static_cast<size_t>(value);
  else
    config->items = value;
  return true;
}

/* --request-timeout; false after saying why. */
bool limit_option(const char *argument, Config *config) {
  if (velmora_tools::parse_number(argument, 1, 3600, &config->request_seconds))
    return true;
  fprintf(stderr,
          "velmora-devserver: --request-timeout takes seconds, 1 to 3600, "
          "not \"%s\"\n",
          argument);
  return false;
}

} // namespace

int parse_options(int argc, char **argv, Config *config) {
  Account *account = nullptr;
  int c;
  bool ok = true;
  key_from_environment(config);
  while (ok && (c = getopt_long(argc, argv, "", options, nullptr)) != -1) {
    if (c == 'p' || c == 'c' || c == 'L' || c == 'i') {
      ok = number_option(c, optarg, config);
    } else if (c == 'u' || c == 'w' || c == 't' || c == 'W' || c == 'T') {
      ok = account_option(c, optarg, config, &account);
    } else if (c == 'r' || c == 'f' || c == 'l') {
      ok = script_option(c, optarg, config);
    } else if (c == 'U' || c == 'R' || c == 'P') {
      ok = mode_option(c, optarg, config);
    } else if (c == 'k' || c == 'K' || c == 'D') {
      ok = request_option(c, optarg, config);
    } else if (c == 'Q') {
      ok = limit_option(optarg, config);
    } else if (c == 'h' || c == 'V') {
      if (c == 'h')
        usage(stdout);
      else
        printf("velmora-devserver %s\n", VELMORA_VERSION_STRING);
      return 0;
    } else {
      usage(stderr);
      return 2;
    }
  }
  if (ok && optind != argc) {
    fprintf(stderr, "velmora-devserver: unexpected argument \"%s\"\n",
            argv[optind]);
    ok = false;
  }
  return ok ? -1 : 2;
}

} // namespace devserver
