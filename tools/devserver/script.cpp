/* Scripted routes and faults: reading --route and --fault, and playing a
 * fault when its request comes. */
#include "script.h"

#include <chrono>
#include <climits>
#include <sstream>
#include <thread>

#include "common/input.h"
#include "devserver.h"

namespace devserver {
namespace {

/* One item of a FAULT into `fault`. */
bool fault_item(const std::string &item, Fault *fault) {
  std::string rest;
  long value;
  if (item == "close" || item == "hang") {
    fault->kind = item == "close" ? Fault::Kind::close : Fault::Kind::hang;
    return true;
  }
  if (item.rfind("status=", 0) == 0) {
    fault->kind = Fault::Kind::status;
    if (!velmora_tools::parse_number(item.substr(7), 100, 599, &value))
      return false;
    fault->status = static_cast<int>(value);
    return true;
  }
  if (item == "auth-error=1") {
    fault->kind = Fault::Kind::auth_error;
    return true;
  }
  if (item.rfind("delay=", 0) == 0) {
    fault->kind = Fault::Kind::delay;
    if (!velmora_tools::parse_number(item.substr(6), 0, 3600000, &value, &rest))
      return false;
    fault->delay_ms = rest == "ms" ? value : value * 1000;
    return rest == "s" || rest == "ms";
  }
  if (item.rfind("first=", 0) == 0)
    return velmora_tools::parse_number(item.substr(6), 1, LONG_MAX,
                                       &fault->first);
  if (item.rfind("after=", 0) == 0)
    return velmora_tools::parse_number(item.substr(6), 1, LONG_MAX,
                                       &fault->after);
  return false;
}

} // namespace

bool add_route(Script &script, const std::string &argument, std::string *why) {
  size_t equals = argument.find('=');
  if (argument.empty() || argument[0] != '/' || equals == std::string::npos) {
    *why = "--route takes PATH=FILE, PATH starting with \"/\"";
    return false;
  }
  std::string name = argument.substr(equals + 1), text, reason;
  Json::Value value;
  if (!velmora_tools::read_file(name, &text, &reason)) {
    *why = "cannot read \"" + name + "\": " + reason;
    return false;
  }
  if (!velmora_tools::parse_json(text, velmora_tools::Strictness::lenient,
                                 &value)) {
    *why = "\"" + name + "\" holds no JSON";
    return false;
  }
  script.routes[argument.substr(0, equals)] = text;
  return true;
}

bool add_fault(Script &script, const std::string &argument, std::string *why) {
  size_t colon = argument.find(':');
  Fault fault;
  fault.kind = Fault::Kind::status;
  bool ok = !argument.empty() && argument[0] == '/' &&
            colon != std::string::npos && colon + 1 < argument.size();
  int actions = 0;
  std::istringstream items(ok ? argument.substr(colon + 1) : "");
  for (std::string item; ok && std::getline(items, item, ',');) {
    ok = fault_item(item, &fault);
    actions += item.rfind("first=", 0) != 0 && item.rfind("after=", 0) != 0;
  }
  if (!ok || actions != 1) {
    *why = "bad fault \"" + argument + "\" (PATH:FAULT[,after=N][,first=N])";
    return false;
  }
  script.faults[argument.substr(0, colon)] = fault;
  return true;
}

void count_faults(const Script &script, FaultCounts *counts) {
  for (const auto &fault : script.faults)
    counts->try_emplace(fault.first, 0);
}

const Fault *due_fault(const Script &script, FaultCounts &counts,
                       const std::string &path) {
  auto found = script.faults.find(path);
  if (found == script.faults.end())
    return nullptr;
  const Fault &fault = found->second;
  long seen = counts.at(path)++;
  if (seen < fault.after)
    return nullptr;
  return fault.first == 0 || seen - fault.after < fault.first ? &fault
                                                              : nullptr;
}

void pause(const std::atomic<bool> &stopping, long ms) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!stopping && (ms < 0 || std::chrono::steady_clock::now() < end))
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

bool inject(const Config &config, State &state, const Fault &fault,
            Response &res) {
  switch (fault.kind) {
  case Fault::Kind::status:
    answer_error(res, fault.status, "injected fault");
    return true;
  case Fault::Kind::auth_error:
    note.detail = "injected date refusal";
    refuse(config, 1, res);
    return true;
  case Fault::Kind::delay:
    pause(state.stopping, fault.delay_ms);
    return false;
  case Fault::Kind::close:
    /* The connection closes in the middle of the body. */
    res.set_content("{\"cut\": ", "application/json");
    res.cut = true;
    note.detail = "injected cut reply";
    note.recordable = false;
    return true;
  case Fault::Kind::hang:
    pause(state.stopping, -1);
    res.silent = true;
    note.detail = "injected hang";
    note.recordable = false;
    return true;
  }
  return false;
}

/* A route's text is lent to the reply rather than copied into it, so a
 * large page costs the server no fresh memory per request; the recorder
 * reads the reply's body, so it gets a copy. */
bool answer_route(const Config &config, const std::string &path,
                  Response &res) {
  auto route = config.script.routes.find(path);
  if (route == config.script.routes.end())
    return false;
  const std::string &text = route->second;
  note.detail = "ok, route";
  if (!config.record_dir.empty()) {
    res.set_content(text, "application/json");
    return true;
  }
  res.set_content("", "application/json");
  res.lent = &text;
  return true;
}

} // namespace devserver
