/* What users script into velmora-devserver for their own tests: fixed
 * answers for paths (--route) and faults injected on paths (--fault).
 */
#ifndef VELMORA_DEVSERVER_SCRIPT_H
#define VELMORA_DEVSERVER_SCRIPT_H

#include <atomic>
#include <map>
#include <string>

namespace devserver {

struct Fault {
  enum class Kind { status, auth_error, delay, close, hang } kind;
  int status = 0;
  long delay_ms = 0;
  long after = 0; /* the fault spares the first `after` requests */
  long first = 0; /* then hits the next `first` requests; 0: all */
};

struct Script {
  std::map<std::string, std::string> routes; /* path to a JSON text */
  std::map<std::string, Fault> faults;
};

/* The requests each fault's path has had: made before serving with every
 * path at 0, only counted after. */
using FaultCounts = std::map<std::string, std::atomic<long>>;

/* PATH=FILE: FILE must hold JSON. False with the reason in `why`. */
bool add_route(Script &script, const std::string &argument, std::string *why);
/* PATH:FAULT[,after=N][,first=N]; FAULT is status=N, auth-error=1,
 * delay=Ns (or Nms), close or hang. False with the reason in `why`. */
bool add_fault(Script &script, const std::string &argument, std::string *why);
/* Every fault's path into `counts`, at 0. */
void count_faults(const Script &script, FaultCounts *counts);
/* The fault due for this request to `path`, counted; null when none. */
const Fault *due_fault(const Script &script, FaultCounts &counts,
                       const std::string &path);
/* Sleeps `ms` milliseconds (forever when negative), or until `stopping`. */
void pause(const std::atomic<bool> &stopping, long ms);

} // namespace devserver

#endif
