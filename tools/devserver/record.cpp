/* Recording (--record DIR): each exchange becomes one file, in the format
 * tools/common/recording.h tells. */
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "devserver.h"

namespace devserver {

bool open_recording(const Config &config, State *state, std::string *why) {
  const std::string &dir = config.record_dir;
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
    highest = std::max(highest,
                       velmora_tools::recording_number(entry->d_name, false));
    /* Left by a recorder that was stopped while writing. */
    if (velmora_tools::recording_number(entry->d_name, true) != 0)
      unlink((dir + "/" + entry->d_name).c_str());
  }
  state->next_recording = highest + 1;
  return true;
}

void record(const Config &config, long number, const httplib::Request &req,
            const std::string &body, const httplib::Response &res) {
  velmora_tools::Exchange exchange;
  exchange.method = req.method;
  exchange.path = req.target;
  for (const auto &header : req.headers)
    if (!peer_header(header.first))
      exchange.request_headers.push_back(header);
  exchange.request = body;
  /* httplib makes a status left unset 200 once the handler returns. */
  exchange.status = res.status < 0 ? 200 : res.status;
  exchange.has_date = res.has_header("Date");
  exchange.date = res.get_header_value("Date");
  exchange.reply = res.body;
  exchange.redacted = config.redacted;
  std::string why;
  if (!velmora_tools::write_recording(config.record_dir, number, exchange,
                                      config.record_limit, &why))
    note.detail += "; not recorded: " + why;
}

} // namespace devserver
