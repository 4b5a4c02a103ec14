/* A recording: one JSON file per exchange with the service, as
 * velmora-devserver --record writes it and --replay answers from it, and as
 * velmora-gen --infer reads it. The file's members, in order: "recording"
 * (1), "method", "path", "request_headers", the request body, "status",
 * "date" when the reply had one, and the reply body. A body is "request"
 * (or "reply") holding its JSON byte for byte as sent, "request_text" when
 * it is no JSON, or "request_omitted" with its size when over the limit. */
#ifndef VELMORA_TOOLS_RECORDING_H
#define VELMORA_TOOLS_RECORDING_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <json/value.h>

namespace velmora_tools {

/* Files are numbered from 1 in arrival order, six digits: NNNNNN.json. */
const long last_recording = 999999;
std::string recording_name(long number);
/* NNNNNN of a name recording_name gives; 0 for any other name. */
long recording_number(const char *name);
/* A file is written aside first as .NNNNNN-PID.json.tmp: the number its
 * writer started from and the writer's process, so that no two writers,
 * whatever the recorders on one directory, share one. */
std::string aside_name(long number, long pid);
/* PID of a name aside_name gives; 0 for any other name. */
long aside_pid(const char *name);

/* An exchange as it passed through the recorder. */
struct Exchange {
  std::string method;
  std::string path; /* the request's target, query included */
  std::vector<std::pair<std::string, std::string>> request_headers;
  std::string_view request;
  int status = 200;
  bool has_date = false;
  std::string date; /* the reply's */
  std::string_view reply;
  /* header and query parameter names redacted besides the defaults */
  std::vector<std::string> redacted;
};

/* Writes `exchange` into `dir` whole or not at all, and synced, as the
 * first number from `*number` on that no file holds, which `*number` is
 * set to; credentials are redacted (common/redaction.h), and bodies over
 * `limit` bytes noted by their size. False with the reason in `why`. */
bool write_recording(const std::string &dir, long *number,
                     const Exchange &exchange, size_t limit, std::string *why);

/* A body as a recording holds it. */
struct Body {
  /* missing: no member for it; omitted: over the limit, its size alone
   * is there */
  enum class Form { missing, omitted, json, text } form = Form::missing;
  Json::Value json; /* json: the body; null otherwise */
  /* text: the body; json: its bytes as the file holds them, when the
   * file's text was given */
  std::string text;
};

/* What a recording tells of its exchange; the request's header lines and
 * the date are not read back. */
struct Recorded {
  std::string path;
  Body request;
  /* 0 when there is none (or null); -1 when it is no status, such as a
   * string "200" */
  int status = 0;
  Body reply;
};

/* False when `file` is no recording (an object marked "recording", with a
 * path), such as a plain reply. `text`, the file's text, gives the bytes
 * of JSON bodies; empty, they are not taken. */
bool read_recorded(const Json::Value &file, std::string_view text,
                   Recorded *recorded);
/* The recording in the file `name`; false, with the reason in `why`, when
 * it cannot be read or holds none. */
bool read_recording(const std::string &name, Recorded *recorded,
                    std::string *why);

} // namespace velmora_tools

#endif
