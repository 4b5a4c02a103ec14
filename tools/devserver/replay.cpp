/* Replaying (--replay DIR): answers from a recording, the exchange whose
 * body matches first, else the latest answer recorded for the path, paths
 * compared with their credentials redacted. */
#include <algorithm>
#include <cstring>
#include <dirent.h>

#include "devserver.h"

namespace devserver {
namespace {

using Form = velmora_tools::Body::Form;

/* Why an exchange is not replayed; empty when it is. A file lacking a
 * member is told from one too large to record, so a hand-edited fixture
 * is named for what it misses. Only answers are replayed: a refusal
 * belongs to the date and signature of its time, and this server checks
 * those itself. */
std::string unplayable(const velmora_tools::Recorded &file) {
  if (file.status == 0)
    return "no status";
  if (file.status < 0)
    return "its status is no number from 100 to 999";
  if (file.request.form == Form::missing)
    return "no request";
  if (file.reply.form == Form::missing)
    return "no reply";
  if (file.status != 200)
    return "status " + std::to_string(file.status) +
           ": only 200 answers are replayed";
  if (file.request.form == Form::omitted)
    return "its request was too large to record";
  if (file.reply.form == Form::omitted)
    return "its reply was too large to record";
  return "";
}

bool load_one(const Config &config, const std::string &name, long number,
              Recording *recording) {
  velmora_tools::Recorded file;
  std::string why;
  if (velmora_tools::read_recording(name, &file, &why))
    why = unplayable(file);
  if (!why.empty()) {
    fprintf(stderr, "velmora-devserver: %s skipped: %s\n", name.c_str(),
            why.c_str());
    return false;
  }
  Replayed entry;
  entry.number = number;
  entry.request = std::move(file.request);
  entry.reply = std::move(file.reply.text);
  entry.reply_type =
      file.reply.form == Form::json ? "application/json" : "text/plain";
  /* Redacted again, as requests are, so that a path recorded under other
   * --redact names still matches. */
  (*recording)[velmora_tools::redacted_path(file.path, config.redacted)]
      .push_back(std::move(entry));
  return true;
}

bool same_body(const Replayed &entry, bool json, const Json::Value &value,
               const std::string &body) {
  const velmora_tools::Body &request = entry.request;
  return (request.form == Form::json) == json &&
         (json ? request.json == value : request.text == body);
}

} // namespace

bool load_replay(const Config &config, State *state, std::string *why) {
  const std::string &dir = config.replay_dir;
  std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(dir.c_str()), closedir);
  if (listing == nullptr) {
    *why = "cannot read \"" + dir + "\": " + strerror(errno);
    return false;
  }
  std::vector<long> numbers;
  while (const dirent *entry = readdir(listing.get()))
    if (long number = velmora_tools::recording_number(entry->d_name))
      numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  size_t loaded = 0;
  for (long number : numbers)
    loaded +=
        load_one(config, dir + "/" + velmora_tools::recording_name(number),
                 number, &state->replayed);
  fprintf(stderr, "velmora-devserver: replaying %zu of %zu exchanges in %s\n",
          loaded, numbers.size(), dir.c_str());
  if (loaded == 0)
    fprintf(stderr,
            "velmora-devserver: warning: nothing to replay in %s (files "
            "named NNNNNN.json): every call will get 404\n",
            dir.c_str());
  return true;
}

void replay(const Config &config, const Recording &replayed, const Request &req,
            const std::string &body, Response &res) {
  /* Recorded paths hold no credential, so the request's is left out too,
   * and the log line is spared it. */
  std::string path = velmora_tools::redacted_path(req.target, config.redacted);
  auto found = replayed.find(path);
  if (found == replayed.end())
    return answer_error(res, 404, "no recorded answer for \"" + path + "\"");
  const std::vector<Replayed> &entries = found->second;
  Json::Value value;
  bool json = velmora_tools::parse_json(
      body, velmora_tools::Strictness::strict_any_root, &value);
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
