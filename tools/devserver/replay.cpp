/* Replaying (--replay DIR): answers from a recording, the exchange whose
 * body matches first, else the latest answer recorded for the path. */
#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <sstream>

#include <velmora/detail/walk.h>

#include "devserver.h"

namespace devserver {
namespace {

bool read_file(const std::string &name, std::string *text, Json::Value *value) {
  std::ifstream file(name, std::ios::binary);
  std::ostringstream content;
  if (!file || !(content << file.rdbuf()))
    return false;
  *text = content.str();
  return body_json(*text, value) && value->isObject();
}

/* The text of the recording's member `name` as the file holds it, so that
 * a reply is replayed byte for byte; empty when it is not there. */
std::string recorded_text(const std::string &file, std::string_view name) {
  using velmora::detail::Read;
  velmora::detail::Cursor c{file.data(), file.data() + file.size(), 0};
  std::string text;
  velmora::detail::members(
      c, [&](velmora::detail::Cursor &c, std::string_view key) {
        velmora::detail::skip_space(c);
        const char *begin = c.at;
        if (!velmora::detail::skip_value(c))
          return Read::broken;
        if (key == name)
          text.assign(begin, c.at);
        return Read::done;
      });
  return text;
}

/* The recording's body named `member` (as JSON or as text) into `entry`'s
 * JSON and text; false when neither is there (it was too large). */
bool recorded_body(const Json::Value &recording, const std::string &member,
                   bool *json, Json::Value *value, std::string *text) {
  *json = recording.isMember(member);
  if (*json)
    *value = recording[member];
  else if (recording[member + "_text"].isString())
    *text = recording[member + "_text"].asString();
  else
    return false;
  return true;
}

/* Only answers are replayed: a refusal belongs to the date and signature
 * of its time, and this server checks those itself. */
bool load_one(const std::string &name, long number, Recording *recording) {
  std::string text;
  Json::Value file;
  if (!read_file(name, &text, &file)) {
    fprintf(stderr, "velmora-devserver: %s is no recording; skipped\n",
            name.c_str());
    return false;
  }
  Replayed entry;
  entry.number = number;
  Json::Value reply;
  bool reply_json;
  if (!file["path"].isString() || !file["status"].isInt() ||
      file["status"].asInt() != 200 ||
      !recorded_body(file, "request", &entry.json, &entry.request,
                     &entry.request_text) ||
      !recorded_body(file, "reply", &reply_json, &reply, &entry.reply))
    return false;
  entry.reply_type = reply_json ? "application/json" : "text/plain";
  if (reply_json)
    entry.reply = recorded_text(text, "reply");
  (*recording)[file["path"].asString()].push_back(std::move(entry));
  return true;
}

bool same_body(const Replayed &entry, bool json, const Json::Value &value,
               const std::string &body) {
  return entry.json == json &&
         (json ? entry.request == value : entry.request_text == body);
}

} // namespace

bool load_replay(Config *config, std::string *why) {
  const std::string &dir = config->replay_dir;
  std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(dir.c_str()), closedir);
  if (listing == nullptr) {
    *why = "cannot read \"" + dir + "\": " + strerror(errno);
    return false;
  }
  std::vector<long> numbers;
  while (const dirent *entry = readdir(listing.get()))
    if (long number = recording_number(entry->d_name, false))
      numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  size_t loaded = 0;
  for (long number : numbers) {
    char name[32];
    snprintf(name, sizeof name, "/%06ld.json", number);
    loaded += load_one(dir + name, number, &config->replayed);
  }
  fprintf(stderr, "velmora-devserver: replaying %zu of %zu exchanges in %s\n",
          loaded, numbers.size(), dir.c_str());
  return true;
}

void replay(const Config &config, const httplib::Request &req,
            const std::string &body, httplib::Response &res) {
  auto found = config.replayed.find(req.target);
  if (found == config.replayed.end())
    return answer_error(res, 404,
                        "no recorded answer for \"" + req.target + "\"");
  const std::vector<Replayed> &entries = found->second;
  Json::Value value;
  bool json = body_json(body, &value);
  auto match = std::find_if(entries.rbegin(), entries.rend(),
                            [&](const Replayed &entry) {
                              return same_body(entry, json, value, body);
                            });
  bool exact = match != entries.rend();
  const Replayed &entry = exact ? *match : entries.back();
  res.set_content(entry.reply, entry.reply_type);
  char number[16];
  snprintf(number, sizeof number, "%06ld", entry.number);
  note.detail = std::string("ok, replayed ") + number +
                (exact ? " (same body)" : " (latest for the path)");
}

} // namespace devserver
