/* Forwarding (--upstream): each request goes on to another service with
 * the header lines the client wrote, and its answer comes back as that
 * service gave it. libcurl sends only the lines it is given. */
#include <cctype>
#include <strings.h>

#include <curl/curl.h>

#include "common/input.h"
#include "devserver.h"

namespace devserver {
namespace {

/* Long enough for a slow upstream (a delay fault) to still be answered. */
const long upstream_seconds = 120;

/* What the client reads of a reply besides its status and body: the type,
 * and the date and refusal reason that a date re-synchronisation needs. */
const char *const passed_back[] = {"Content-Type", "Date", "auth_error",
                                   "Location"};

struct Reply {
  std::string body;
  bool too_large = false;
  Headers headers; /* of the last response, after redirects */
};

bool one_of(const std::string &name, std::initializer_list<const char *> set) {
  for (const char *member : set)
    if (strcasecmp(name.c_str(), member) == 0)
      return true;
  return false;
}

/* Lines about this connection rather than the request are libcurl's own
 * business. */
bool hop_by_hop(const std::string &name) {
  return one_of(name, {"Host", "Content-Length", "Connection", "Keep-Alive",
                       "Transfer-Encoding", "TE", "Trailer", "Upgrade",
                       "Expect", "Proxy-Connection"});
}

/* A reply is held whole before it is passed on; past max_held_body it is
 * refused rather than allowed to exhaust memory. */
size_t take_body(char *data, size_t size, size_t count, void *sink) {
  Reply *reply = static_cast<Reply *>(sink);
  reply->too_large = reply->body.size() + size * count > max_held_body;
  if (reply->too_large)
    return 0;
  reply->body.append(data, size * count);
  return size * count;
}

size_t take_header(char *data, size_t size, size_t count, void *sink) {
  Reply *reply = static_cast<Reply *>(sink);
  std::string line(data, size * count);
  size_t colon = line.find(':');
  if (line.rfind("HTTP/", 0) == 0)
    reply->headers.clear();
  else if (colon != std::string::npos) {
    size_t start = line.find_first_not_of(' ', colon + 1);
    size_t end = line.find_last_not_of("\r\n");
    reply->headers.emplace(line.substr(0, colon),
                           start > end ? ""
                                       : line.substr(start, end - start + 1));
  }
  return size * count;
}

/* The client's lines, and empty ones that stop libcurl adding its own
 * Accept, Content-Type and Expect where the client sent none. */
curl_slist *request_lines(const Request &req) {
  curl_slist *lines = curl_slist_append(nullptr, "Expect:");
  for (const char *name : {"Accept", "Content-Type"})
    if (!req.has_header(name))
      lines = curl_slist_append(lines, (std::string(name) + ":").c_str());
  for (const auto &header : req.headers)
    if (!hop_by_hop(header.first))
      /* "Name;" is how libcurl is told to send a line with no value. */
      lines = curl_slist_append(
          lines,
          (header.first + (header.second.empty() ? ";" : ": ") + header.second)
              .c_str());
  return lines;
}

/* Why the upstream gave no reply to pass back. */
std::string unanswered(const Config &config, const Reply &reply,
                       CURLcode code) {
  std::string why =
      reply.too_large
          ? "sent a reply over " + std::to_string(max_held_body >> 20) + " MiB"
          : std::string("cannot be reached: ") + curl_easy_strerror(code);
  return "upstream " + config.upstream + " " + why;
}

} // namespace

bool set_upstream(const std::string &argument, Config *config,
                  std::string *why) {
  size_t colon = argument.rfind(':');
  long port;
  /* Digits only: no sign, no space. */
  if (colon == std::string::npos || colon == 0 ||
      !isdigit(static_cast<unsigned char>(argument[colon + 1])) ||
      !velmora_tools::parse_number(argument.substr(colon + 1), 1, 65535,
                                   &port)) {
    *why = "--upstream takes HOST:PORT, not \"" + argument + "\"";
    return false;
  }
  config->upstream = argument;
  return true;
}

void forward(const Config &config, const Request &req, const std::string &body,
             Response &res) {
  std::unique_ptr<CURL, void (*)(CURL *)> curl(curl_easy_init(),
                                               curl_easy_cleanup);
  std::unique_ptr<curl_slist, void (*)(curl_slist *)> lines(
      request_lines(req), curl_slist_free_all);
  if (curl == nullptr || lines == nullptr)
    return answer_error(res, 500, "out of memory");
  std::string url = "http://" + config.upstream + req.target;
  Reply reply;
  CURL *handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, lines.get());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                   static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, take_body);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, take_header);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &reply);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 5L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, upstream_seconds);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  CURLcode code = curl_easy_perform(handle);
  if (code != CURLE_OK)
    return answer_error(res, 502, unanswered(config, reply, code));
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  res.status = static_cast<int>(status);
  res.body = reply.body;
  for (const char *name : passed_back)
    if (reply.headers.find(name) != reply.headers.end())
      res.set_header(name, reply.headers.find(name)->second);
  note.detail = "forwarded, " + std::to_string(status);
}

} // namespace devserver
