/* Recording (--record DIR): each exchange becomes one JSON file, written
 * aside and renamed so that no reader, and no crash, ever sees half of one. */
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "devserver.h"

namespace devserver {
namespace {

const char *const removed = "(removed)";

/* A captured signature could be replayed while its date is fresh, so no
 * credential reaches the disk. */
bool secret_header(const std::string &name) {
  for (const char *secret : {"AUTHENTICATION", "LOCAL_AUTH_KEY",
                             "Authorization", "Proxy-Authorization", "Cookie"})
    if (strcasecmp(name.c_str(), secret) == 0)
      return true;
  return false;
}

/* The request's header lines by the name the client wrote; httplib's own
 * peer-address entries are not the client's. */
Json::Value request_headers(const httplib::Request &req) {
  Json::Value headers(Json::objectValue);
  for (const auto &header : req.headers) {
    const std::string &name = header.first;
    if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" ||
        name == "LOCAL_ADDR" || name == "LOCAL_PORT")
      continue;
    std::string value = secret_header(name) ? removed : header.second;
    Json::Value &slot = headers[name];
    slot = slot.isString() ? slot.asString() + ", " + value : value;
  }
  return headers;
}

/* Pretty JSON of `value`, indented to sit as a member of the top object. */
std::string member_text(const Json::Value &value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  std::string text = Json::writeString(builder, value), out;
  out.reserve(text.size());
  for (char c : text) {
    out += c;
    if (c == '\n')
      out += "  ";
  }
  return out;
}

/* One member for a body: its JSON as sent (its members' order, its
 * numbers' digits), its text, or its size when too large. */
std::string body_member(const char *name, const std::string &body,
                        size_t limit) {
  if (body.size() > limit)
    return std::string("\"") + name +
           "_omitted\": " + std::to_string(body.size());
  Json::Value value;
  if (body_json(body, &value))
    return std::string("\"") + name + "\": " + body;
  return std::string("\"") + name +
         "_text\": " + member_text(Json::Value(body));
}

std::string recording_text(const httplib::Request &req, const std::string &body,
                           const httplib::Response &res, size_t limit) {
  std::string text = "{\n  \"recording\": 1,\n";
  text += "  \"method\": " + member_text(req.method) + ",\n";
  text += "  \"path\": " + member_text(req.target) + ",\n";
  text += "  \"request_headers\": " + member_text(request_headers(req)) + ",\n";
  text += "  " + body_member("request", body, limit) + ",\n";
  /* httplib makes a status left unset 200 once the handler returns. */
  text += "  \"status\": " + std::to_string(res.status < 0 ? 200 : res.status) +
          ",\n";
  if (res.has_header("Date"))
    text += "  \"date\": " + member_text(res.get_header_value("Date")) + ",\n";
  return text + "  " + body_member("reply", res.body, limit) + "\n}\n";
}

bool write_whole(const std::string &name, const std::string &text) {
  FILE *file = fopen(name.c_str(), "wb");
  if (file == nullptr)
    return false;
  bool ok = fwrite(text.data(), 1, text.size(), file) == text.size();
  return fclose(file) == 0 && ok;
}

} // namespace

/* Strict, so that what is kept as JSON means what the text meant (a key
 * held twice stays text) and can stand inside a recording as it is (no
 * byte-order mark); any value may be the root. */
bool body_json(const std::string &body, Json::Value *value) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  builder["skipBom"] = false;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string why;
  try {
    return reader->parse(body.data(), body.data() + body.size(), value, &why);
  } catch (const std::exception &) {
    return false;
  }
}

/* NNNNNN of "NNNNNN.json" (or of ".NNNNNN.json.tmp"); 0 for other names. */
long recording_number(const char *name, bool aside) {
  const char *digits = aside ? name + 1 : name;
  const char *tail = aside ? ".json.tmp" : ".json";
  if ((aside && name[0] != '.') || strlen(digits) != 6 + strlen(tail) ||
      strcmp(digits + 6, tail) != 0)
    return 0;
  for (int i = 0; i < 6; i++)
    if (!isdigit(static_cast<unsigned char>(digits[i])))
      return 0;
  return strtol(std::string(digits, 6).c_str(), nullptr, 10);
}

bool open_recording(Config *config, std::string *why) {
  const std::string &dir = config->record_dir;
  if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
    *why = "cannot make \"" + dir + "\": " + strerror(errno);
    return false;
  }
  std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(dir.c_str()), closedir);
  if (listing == nullptr) {
    *why = "cannot read \"" + dir + "\": " + strerror(errno);
    return false;
  }
  long highest = 0;
  while (const dirent *entry = readdir(listing.get())) {
    highest = std::max(highest, recording_number(entry->d_name, false));
    /* Left by a recorder that was stopped while writing. */
    if (recording_number(entry->d_name, true) != 0)
      unlink((dir + "/" + entry->d_name).c_str());
  }
  config->next_recording = highest + 1;
  return true;
}

void record(const Config &config, long number, const httplib::Request &req,
            const std::string &body, const httplib::Response &res) {
  if (number > 999999) {
    note.detail += "; not recorded: " + config.record_dir + " is full";
    return;
  }
  char name[32];
  snprintf(name, sizeof name, "%06ld.json", number);
  std::string whole = config.record_dir + "/" + name;
  std::string aside = config.record_dir + "/." + name + ".tmp";
  if (!write_whole(aside,
                   recording_text(req, body, res, config.record_limit)) ||
      rename(aside.c_str(), whole.c_str()) != 0) {
    note.detail += std::string("; not recorded: ") + strerror(errno);
    unlink(aside.c_str());
  }
}

} // namespace devserver
