/*
 * velmora-request: one call of send_request from the command line, the
 * way curl tries an HTTP request.
 */
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <string>
#include <unistd.h>

#include <json/json.h>
#include <velmora/velmora.h>

#include "common/input.h"
#include "common/json_text.h"
#include "request.h"

namespace velmora_request {
namespace {

void usage(FILE *stream) {
  fputs(
      "Usage: velmora-request [OPTION]... PATH [BODY | @FILE | -]\n"
      "       velmora-request [OPTION]... --paginate [--page-size N] PATH "
      "BODY\n"
      "\n"
      "POSTs BODY (empty when absent; @FILE reads a file, - standard input) "
      "to\n"
      "PATH on the service with send_request, signed when a user is given,\n"
      "and prints the reply body on standard output (with a line end added\n"
      "when it is a terminal and the body has none).\n"
      "\n"
      "  --host H            service host (default 127.0.0.1)\n"
      "  --port P            service port (default 8888)\n"
      "  --user U            account name; without it the request is unsigned\n"
      "  --password PW       sign with the password scheme\n"
      "  --password-file F   ... reading the password from the first line of\n"
      "                      file F (- for standard input), out of sight of\n"
      "                      other users' process lists\n"
      "  --password-hash HEX   ... given the password's SHA-1 as 40 hex "
      "digits\n"
      "  --token TK          sign with the token scheme\n"
      "  --token-file F      ... reading the token from the first line of F\n"
      "  --auth-key K        LOCAL_AUTH_KEY to send (default: the first line\n"
      "                      of /etc/local_auth.key, or NO KEY)\n"
      "  --auth-key-file F   the LOCAL_AUTH_KEY from the first line of F\n"
      "  --verbose           libcurl's trace on standard error; it shows the\n"
      "                      credentials\n"
      "  --pretty            print a JSON reply indented\n"
      "  --paginate          walk a whole collection: BODY holds a ListInfo\n"
      "                      member; page after page is asked for from its\n"
      "                      offset, and each element of each reply's\n"
      "                      ResultSet is printed as one line of JSON. The\n"
      "                      walk ends after an empty or short page, at the\n"
      "                      smallest total a page gave, or at a failed\n"
      "                      call, whose offset standard error names. On a\n"
      "                      terminal, standard error shows the progress\n"
      "  --page-size N       items per page (default 100; 0 asks for the\n"
      "                      rest in each page)\n"
      "  --help              this text\n"
      "  --version           print the version\n"
      "\n"
      "Exit status:\n"
      "   0  the service answered 200\n"
      "  22  it answered an HTTP status other than 200 and 401 (the body is\n"
      "      still printed), or the request could not be made\n"
      "   7  the transfer failed, or the server's date could not be read\n"
      "  67  the service refused the request (401): unsigned (no --user), no\n"
      "      secret given, the credentials (auth_error 2: the date passed),\n"
      "      or the credentials or the date (auth_error 1 or none); the\n"
      "      message says which\n"
      "   8  a page's reply held no ResultSet (--paginate)\n"
      "   2  bad command line, or the body or a secret could not be read;\n"
      "      nothing was sent\n"
      "With --paginate, 0 says the walk reached the collection's end; the\n"
      "others, that a call failed as above (its body is not printed).\n"
      "A 401 that refuses only the request's date is handled by the library:\n"
      "it corrects its clock from the server's and sends again.\n",
      stream);
}

/* BODY, @FILE or "-", as the command line gives it. */
bool read_body(const char *argument, std::string *body, std::string *why) {
  if (strcmp(argument, "-") != 0 && argument[0] != '@') {
    *body = argument;
    return true;
  }
  return velmora_tools::read_input(argument[0] == '@' ? argument + 1 : argument,
                                   body, why);
}

/* The first line of file `name` ("-": standard input), without its end;
 * an empty one is refused. */
bool read_secret(const char *option, const char *name,
                 std::optional<std::string> *secret) {
  std::string text, why;
  if (!velmora_tools::read_secret(name, &text, &why)) {
    fprintf(stderr, "velmora-request: %s: %s\n", option, why.c_str());
    return false;
  }
  *secret = text;
  return true;
}

bool is_password_hash(const std::string &text) {
  return text.size() == 40 &&
         text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

/* Indented JSON when the text is JSON, else the text unchanged. */
std::string pretty(const std::string &text) {
  Json::Value value;
  if (!velmora_tools::parse_json(text, velmora_tools::Strictness::lenient,
                                 &value))
    return text;
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  return Json::writeString(writer, value) + "\n";
}

/* A whole decimal number in [0, high]; false after saying why not. */
bool number(const char *what, const char *text, long high, long *value) {
  if (velmora_tools::parse_number(text, 0, high, value))
    return true;
  fprintf(stderr, "velmora-request: bad %s \"%s\"\n", what, text);
  return false;
}

/* Fills `o` from the command line; -1 to go on, else an exit code. */
int parse_options(int argc, char **argv, Options *o) {
  static const option options[] = {
      {"host", required_argument, nullptr, 'H'},
      {"port", required_argument, nullptr, 'P'},
      {"user", required_argument, nullptr, 'u'},
      {"password", required_argument, nullptr, 'w'},
      {"password-hash", required_argument, nullptr, 'x'},
      {"token", required_argument, nullptr, 't'},
      {"auth-key", required_argument, nullptr, 'k'},
      {"password-file", required_argument, nullptr, 'W'},
      {"token-file", required_argument, nullptr, 'T'},
      {"auth-key-file", required_argument, nullptr, 'K'},
      {"verbose", no_argument, nullptr, 'v'},
      {"pretty", no_argument, nullptr, 'p'},
      {"paginate", no_argument, nullptr, 'g'},
      {"page-size", required_argument, nullptr, 'z'},
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {nullptr, 0, nullptr, 0}};
  int secrets = 0;
  int stdin_readers = 0;
  bool page_size_given = false;
  int c;
  /* "+": options end at PATH, so that a body may start with "-". */
  while ((c = getopt_long(argc, argv, "+", options, nullptr)) != -1) {
    switch (c) {
    case 'H':
      o->host = optarg;
      break;
    case 'P':
    case 'z':
      page_size_given = page_size_given || c == 'z';
      if (!number(c == 'P' ? "port" : "page size", optarg,
                  c == 'P' ? 65535 : INT32_MAX,
                  c == 'P' ? &o->port : &o->page_size))
        return exit_usage;
      break;
    case 'u':
      o->user = optarg;
      break;
    case 'w':
      o->password = optarg;
      secrets++;
      break;
    case 'x':
      if (!is_password_hash(optarg)) {
        fprintf(stderr,
                "velmora-request: --password-hash takes 40 hex digits\n");
        return exit_usage;
      }
      o->password_hash = optarg;
      for (char &digit : o->password_hash)
        digit = static_cast<char>(tolower(static_cast<unsigned char>(digit)));
      secrets++;
      break;
    case 't':
      o->token = optarg;
      secrets++;
      break;
    case 'k':
      o->auth_key = optarg;
      break;
    case 'W':
    case 'T':
    case 'K':
      if (!read_secret(c == 'W'   ? "--password-file"
                       : c == 'T' ? "--token-file"
                                  : "--auth-key-file",
                       optarg,
                       c == 'W'   ? &o->password
                       : c == 'T' ? &o->token
                                  : &o->auth_key))
        return exit_usage;
      secrets += c != 'K';
      stdin_readers += strcmp(optarg, "-") == 0;
      break;
    case 'v':
      o->verbose = true;
      break;
    case 'p':
      o->pretty = true;
      break;
    case 'g':
      o->paginate = true;
      break;
    case 'h':
      usage(stdout);
      return exit_ok;
    case 'V':
      printf("velmora-request %s\n", VELMORA_VERSION_STRING);
      return exit_ok;
    default:
      fprintf(stderr, "Try 'velmora-request --help'.\n");
      return exit_usage;
    }
  }
  if (secrets > 1) {
    fprintf(stderr, "velmora-request: give one of --password, "
                    "--password-hash and --token\n");
    return exit_usage;
  }
  if (o->paginate ? o->pretty : page_size_given) {
    fprintf(stderr, "velmora-request: %s\n",
            o->paginate ? "--paginate prints one element per line, not --pretty"
                        : "--page-size goes with --paginate");
    return exit_usage;
  }
  if (optind >= argc || argc - optind > 2) {
    fprintf(stderr, "velmora-request: give a PATH and at most one BODY; "
                    "try 'velmora-request --help'\n");
    return exit_usage;
  }
  o->path = argv[optind];
  if (o->path.empty() || o->path[0] != '/') {
    fprintf(stderr, "velmora-request: PATH must start with \"/\"\n");
    return exit_usage;
  }
  if (optind + 1 < argc && strcmp(argv[optind + 1], "-") == 0)
    stdin_readers++;
  if (stdin_readers > 1) {
    fprintf(stderr, "velmora-request: standard input can give only one of "
                    "the body and the secrets\n");
    return exit_usage;
  }
  std::string why;
  if (optind + 1 < argc && !read_body(argv[optind + 1], &o->body, &why)) {
    fprintf(stderr,
            "velmora-request: cannot read the body from %s: %s; nothing "
            "was sent\n",
            argv[optind + 1], why.c_str());
    return exit_usage;
  }
  return -1;
}

/* The connection and credentials the options give. */
client_context_s *context_for(const Options &o) {
  client_context_s *context = client_context_new();
  if (o.host != nullptr)
    client_context_set_host(context, o.host);
  if (o.port >= 0)
    client_context_set_port(context, static_cast<int>(o.port));
  if (o.user != nullptr)
    client_context_set_user(context, o.user);
  if (o.password)
    client_context_set_password(context, o.password->c_str());
  if (!o.password_hash.empty())
    client_context_set_password_hash(context, o.password_hash.c_str());
  if (o.token)
    client_context_set_token(context, o.token->c_str());
  if (o.auth_key)
    client_context_set_auth_key(context, o.auth_key->c_str());
  context->verbose = o.verbose;
  return context;
}

/* One call, its reply on standard output; the exit status. */
int call_once(client_context_s *context, const Options &o,
              const std::string &url) {
  std::string reply, printed;
  int result = send_quietly(context, o.path, o.body, &reply, &printed);
  if (result == 0 || result == -1) {
    std::string text = o.pretty ? pretty(reply) : reply;
    fwrite(text.data(), 1, text.size(), stdout);
    /* Keeps the shell's prompt off the last line; pipes get the body as is. */
    if (isatty(STDOUT_FILENO) && !text.empty() && text.back() != '\n')
      fputc('\n', stdout);
    fflush(stdout);
  }
  return report(result, o, url, printed);
}

} // namespace
} // namespace velmora_request

int main(int argc, char **argv) {
  using namespace velmora_request;
  Options o;
  int status = parse_options(argc, argv, &o);
  if (status >= 0)
    return status;
  client_context_s *context = context_for(o);
  if (o.verbose)
    fprintf(stderr, "velmora-request: the trace below shows the credentials "
                    "(AUTHENTICATION and LOCAL_AUTH_KEY lines)\n");
  std::string url =
      "http://" + *context->host + ":" + std::to_string(context->port) + o.path;
  status = o.paginate ? paginate(context, o, url) : call_once(context, o, url);
  client_context_free(context);
  return status;
}
