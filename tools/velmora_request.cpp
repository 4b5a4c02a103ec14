/*
 * velmora-request: one call of send_request from the command line, the
 * way curl tries an HTTP request.
 */
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <dlfcn.h>
#include <getopt.h>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

#include <json/json.h>
#include <velmora/velmora.h>

#include "common/input.h"

/*
 * send_request makes up to three attempts and tells only how the last one
 * ended. This program defines libcurl's curl_easy_perform, and the link
 * exports it to the library, so that the attempts can be counted: a date
 * still refused after a re-synchronisation then tells itself apart from
 * refused credentials. Each attempt goes on to libcurl's own function.
 */
static int attempts = 0;
/* The last reply's "auth_error:" value, "" when it had none: a refusal's
 * cause, as far as the service tells it. */
static std::string auth_error;

extern "C" __attribute__((visibility("default"))) CURLcode
curl_easy_perform(CURL *curl) {
  using Perform = CURLcode (*)(CURL *);
  static const Perform perform =
      reinterpret_cast<Perform>(dlsym(RTLD_NEXT, "curl_easy_perform"));
  attempts++;
  CURLcode code = perform == nullptr ? CURLE_FAILED_INIT : perform(curl);
  curl_header *header = nullptr;
  auth_error.clear();
  if (curl_easy_header(curl, "auth_error", 0, CURLH_HEADER, -1, &header) ==
      CURLHE_OK)
    auth_error = header->value;
  return code;
}

namespace {

/* Exit codes, after curl's for the same failures. */
enum Exit {
  exit_ok = 0,
  exit_usage = 2,
  exit_http_error = 22,
  exit_transfer = 7,
  exit_refused = 67,
};

void usage(FILE *stream) {
  fputs(
      "Usage: velmora-request [OPTION]... PATH [BODY | @FILE | -]\n"
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
      "  --help              this text\n"
      "  --version           print the version\n"
      "\n"
      "Exit status:\n"
      "   0  the service answered 200\n"
      "  22  it answered an HTTP status other than 200 and 401 (the body is\n"
      "      still printed), or the request could not be made\n"
      "   7  the transfer failed, or the server's date could not be read\n"
      "  67  the service refused the credentials or the date (401)\n"
      "   2  bad command line, or the body or a secret could not be read;\n"
      "      nothing was sent\n"
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

/* The first line of file `name` ("-": standard input), without its end. */
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

/* The library refuses to send such a header value. */
bool breaks_line(const std::optional<std::string> &text) {
  return text && text->find_first_of("\r\n") != std::string::npos;
}

/* Indented JSON when the text is JSON, else the text unchanged. */
std::string pretty(const std::string &text) {
  Json::Value value;
  std::string error;
  std::unique_ptr<Json::CharReader> reader(
      Json::CharReaderBuilder().newCharReader());
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &error))
      return text;
  } catch (const std::exception &) {
    return text;
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  return Json::writeString(writer, value) + "\n";
}

/*
 * send_request, with what the library prints on standard output for a
 * failed transfer kept apart, so that standard output holds only the
 * reply body.
 */
int send_quietly(client_context_s *context, const std::string &path,
                 const std::string &body, std::string *reply,
                 std::string *printed) {
  fflush(stdout);
  FILE *sink = tmpfile();
  int saved = sink != nullptr ? dup(STDOUT_FILENO) : -1;
  if (saved < 0) {
    if (sink != nullptr)
      fclose(sink);
    return send_request(context, path, body, reply);
  }
  dup2(fileno(sink), STDOUT_FILENO);
  int result = send_request(context, path, body, reply);
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  rewind(sink);
  char buffer[512];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, sink)) > 0)
    printed->append(buffer, n);
  fclose(sink);
  return result;
}

struct Options {
  const char *host = nullptr;
  long port = -1;
  const char *user = nullptr;
  std::optional<std::string> password;
  std::string password_hash;
  std::optional<std::string> token;
  std::optional<std::string> auth_key;
  bool verbose = false;
  bool pretty = false;
  std::string path;
  std::string body;
};

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
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {nullptr, 0, nullptr, 0}};
  int secrets = 0;
  int stdin_readers = 0;
  int c;
  /* "+": options end at PATH, so that a body may start with "-". */
  while ((c = getopt_long(argc, argv, "+", options, nullptr)) != -1) {
    char *end;
    switch (c) {
    case 'H':
      o->host = optarg;
      break;
    case 'P':
      errno = 0;
      o->port = strtol(optarg, &end, 10);
      if (errno != 0 || end == optarg || *end != '\0' || o->port < 0 ||
          o->port > 65535) {
        fprintf(stderr, "velmora-request: bad port \"%s\"\n", optarg);
        return exit_usage;
      }
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

/* One line on standard error for a failed call; the exit status. */
/* A 401 by what can be known of its cause: who signed, whether the date
 * passed, and the service's auth_error. */
void report_refusal(const Options &o, const char *where, bool resynchronised) {
  if (resynchronised)
    fprintf(stderr,
            "velmora-request: %s refused the request (401) even after the "
            "clock was re-synchronised from its Date:; a proxy that puts "
            "its own Date: in place of the service's is a likely cause\n",
            where);
  else if (o.user == nullptr || *o.user == '\0')
    fprintf(stderr,
            "velmora-request: %s refused the request (401): it was not "
            "signed; give --user with --password or --token\n",
            where);
  else if (!auth_error.empty() && auth_error != "1")
    fprintf(stderr,
            "velmora-request: %s refused the credentials (401, auth_error "
            "%s): the date was not the cause; check --user, the password or "
            "token, and the auth key\n",
            where, auth_error.c_str());
  else
    fprintf(stderr,
            "velmora-request: %s refused the credentials or the date "
            "(401)\n",
            where);
}

int report(int result, const Options &o, const std::string &url,
           const std::string &printed, bool resynchronised) {
  const char *where = url.c_str();
  switch (result) {
  case 0:
    return exit_ok;
  case -1:
    if (breaks_line(o.token) || breaks_line(o.auth_key))
      fprintf(stderr, "velmora-request: the token or the auth key holds a "
                      "line break; nothing was sent\n");
    else
      fprintf(stderr,
              "velmora-request: %s answered an HTTP error other than 200 "
              "and 401, or the request could not be made\n",
              where);
    return exit_http_error;
  case -2:
    if (printed.empty())
      fprintf(stderr, "velmora-request: %s sent a Date that cannot be read\n",
              where);
    else
      fprintf(stderr, "velmora-request: transfer to %s failed: %s\n", where,
              printed.c_str());
    return exit_transfer;
  default:
    report_refusal(o, where, resynchronised);
    return exit_refused;
  }
}

} // namespace

int main(int argc, char **argv) {
  Options o;
  int status = parse_options(argc, argv, &o);
  if (status >= 0)
    return status;

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
  if (o.verbose)
    fprintf(stderr, "velmora-request: the trace below shows the credentials "
                    "(AUTHENTICATION and LOCAL_AUTH_KEY lines)\n");

  std::string reply, printed;
  int result = send_quietly(context, o.path, o.body, &reply, &printed);
  std::string url =
      "http://" + *context->host + ":" + std::to_string(context->port) + o.path;
  bool resynchronised = attempts > 1;
  client_context_free(context);

  if (result == 0 || result == -1) {
    std::string text = o.pretty ? pretty(reply) : reply;
    fwrite(text.data(), 1, text.size(), stdout);
    /* Keeps the shell's prompt off the last line; pipes get the body as is. */
    if (isatty(STDOUT_FILENO) && !text.empty() && text.back() != '\n')
      fputc('\n', stdout);
    fflush(stdout);
  }
  return report(result, o, url, printed, resynchronised);
}
