/* Recording (--record DIR): each exchange becomes one file, in the format
 * tools/common/recording.h tells. */
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "devserver.h"

namespace devserver {

namespace {

/* A file aside whose writer has stopped: no process has its id, or we do,
 * having written nothing yet. A process id, not an age, since a write may
 * take any time (a body of 64 MiB, a slow disk) while a running recorder's
 * id is sure on this host; recorders in other process namespaces or on
 * other hosts cannot share a directory. */
bool left_aside(const char *name) {
  long pid = velmora_tools::aside_pid(name);
  return pid != 0 && (pid == getpid() || (kill(pid, 0) != 0 && errno == ESRCH));
}

} // namespace

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
  long highest = 0, removed = 0;
  while (const dirent *entry = readdir(listing.get())) {
    highest = std::max(highest, velmora_tools::recording_number(entry->d_name));
    if (left_aside(entry->d_name) &&
        unlink((dir + "/" + entry->d_name).c_str()) == 0)
      removed++;
  }
  if (removed > 0)
    fprintf(stderr,
            "velmora-devserver: removed %ld unfinished %s stopped "
            "recorders left in %s\n",
            removed, removed == 1 ? "file" : "files", dir.c_str());
  state->next_recording = highest + 1;
  return true;
}

void record(const Config &config, State &state, long number, const Request &req,
            const std::string &body, const Response &res) {
  velmora_tools::Exchange exchange;
  exchange.method = req.method;
  exchange.path = req.target;
  for (const auto &header : req.headers)
    exchange.request_headers.push_back(header);
  exchange.request = body;
  exchange.status = res.status;
  exchange.has_date = res.has_header("Date");
  exchange.date = res.get_header_value("Date");
  exchange.reply = res.body;
  exchange.redacted = config.redacted;
  std::string why;
  if (!velmora_tools::write_recording(config.record_dir, &number, exchange,
                                      config.record_limit, &why))
    note.detail += "; not recorded: " + why;
  /* Numbers other recorders took are not tried again. */
  long next = state.next_recording;
  while (next <= number &&
         !state.next_recording.compare_exchange_weak(next, number + 1)) {
  }
}

} // namespace devserver
