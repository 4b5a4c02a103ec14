#include "common/recording.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <json/writer.h>

#include "common/input.h"
#include "common/json_text.h"
#include "common/redaction.h"

namespace velmora_tools {
namespace {

/* The file's members; a body's name takes a suffix when it is no JSON or
 * was too large. */
namespace member {
const char *const marker = "recording";
const char *const method = "method";
const char *const path = "path";
const char *const request_headers = "request_headers";
const char *const request = "request";
const char *const status = "status";
const char *const date = "date";
const char *const reply = "reply";
const char *const text = "_text";
const char *const omitted = "_omitted";
} // namespace member

/* Lines of one name are joined, as HTTP reads them. */
Json::Value headers_value(const Exchange &exchange) {
  Json::Value headers(Json::objectValue);
  for (const auto &header : exchange.request_headers) {
    const std::string &name = header.first;
    std::string value =
        redacted_name(name, exchange.redacted) ? removed : header.second;
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

/* A member of the top object, as a line of its own but for the comma. */
std::string line(const std::string &name, const std::string &value) {
  return "  \"" + name + "\": " + value;
}

/* One member for a body: its JSON as sent (its members' order, its
 * numbers' digits), its text, or its size when too large. */
std::string body_member(const std::string &name, std::string_view body,
                        size_t limit) {
  if (body.size() > limit)
    return line(name + member::omitted, std::to_string(body.size()));
  Json::Value value;
  if (parse_json(body, Strictness::strict_any_root, &value))
    return line(name, std::string(body));
  return line(name + member::text,
              member_text(Json::Value(body.data(), body.data() + body.size())));
}

std::string recording_text(const Exchange &exchange, size_t limit) {
  std::string text = "{\n" + line(member::marker, "1") + ",\n";
  text += line(member::method, member_text(exchange.method)) + ",\n";
  text += line(member::path,
               member_text(redacted_path(exchange.path, exchange.redacted))) +
          ",\n";
  text += line(member::request_headers, member_text(headers_value(exchange))) +
          ",\n";
  text += body_member(member::request, exchange.request, limit) + ",\n";
  text += line(member::status, std::to_string(exchange.status)) + ",\n";
  if (exchange.has_date)
    text += line(member::date, member_text(exchange.date)) + ",\n";
  return text + body_member(member::reply, exchange.reply, limit) + "\n}\n";
}

/* Synced before it is linked, so that a crash never leaves a name on an
 * empty or partial file. */
bool write_synced(const std::string &name, const std::string &text) {
  FILE *file = fopen(name.c_str(), "wb");
  if (file == nullptr)
    return false;
  bool ok = fwrite(text.data(), 1, text.size(), file) == text.size() &&
            fflush(file) == 0 && fsync(fileno(file)) == 0;
  return fclose(file) == 0 && ok;
}

/* Gives `aside` the name `whole` unless a file holds it (EEXIST), where
 * rename() would replace that file: each number goes to one exchange.
 * link() where the filesystem has hard links; else (vfat, exfat) a rename
 * that never replaces, as atomic. */
int place(const char *aside, const char *whole) {
  if (link(aside, whole) == 0)
    return 0;
  if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS)
    return -1;
  if (renameat2(AT_FDCWD, aside, AT_FDCWD, whole, RENAME_NOREPLACE) == 0)
    return 0;
  if (errno == EINVAL) /* the filesystem has no such rename either */
    errno = EOPNOTSUPP;
  return -1;
}

bool claim(const std::string &dir, const std::string &aside, long *number,
           std::string *why) {
  for (; *number <= last_recording; ++*number) {
    std::string whole = dir + "/" + recording_name(*number);
    if (place(aside.c_str(), whole.c_str()) == 0)
      return true;
    if (errno != EEXIST) {
      *why = "cannot name " + whole + ": " + strerror(errno);
      return false;
    }
  }
  *why = dir + " is full";
  return false;
}

/* The new name lasts through a crash only once its directory is synced. */
bool sync_directory(const std::string &dir) {
  int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return false;
  bool ok = fsync(fd) == 0;
  close(fd);
  return ok;
}

/* The digits at the start of `text`, at most 10, their count in `*count`. */
long leading_number(const char *text, size_t *count) {
  long value = 0;
  for (*count = 0;
       *count < 10 && isdigit(static_cast<unsigned char>(text[*count]));
       ++*count)
    value = value * 10 + (text[*count] - '0');
  return value;
}

/* The body `name` of a recording; a JSON body's bytes from `text`. */
Body read_body(const Json::Value &file, std::string_view text,
               const std::string &name) {
  Body body;
  const Json::Value &text_member = file[name + member::text];
  if (file.isMember(name)) {
    const Json::Value &value = file[name];
    body.form = Body::Form::json;
    body.json = value;
    size_t start = value.getOffsetStart(), end = value.getOffsetLimit();
    if (start <= end && end <= text.size())
      body.text = text.substr(start, end - start);
  } else if (text_member.isString()) {
    body.form = Body::Form::text;
    body.text = text_member.asString();
  } else if (file.isMember(name + member::omitted)) {
    body.form = Body::Form::omitted;
  }
  return body;
}

/* An HTTP status is three digits; anything else recorded there is no
 * status, told apart from none. */
int read_status(const Json::Value &status) {
  if (status.isNull())
    return 0;
  bool digits =
      status.isInt() && status.asInt() >= 100 && status.asInt() <= 999;
  return digits ? status.asInt() : -1;
}

/* Why a parsed file is no recording, for read_recorded's false. */
std::string not_recorded(const Json::Value &file) {
  if (!file.isObject() || !file[member::marker].isNumeric())
    return "no recording (an object marked \"recording\")";
  return file[member::path].isNull() ? "no path" : "its path is no string";
}

} // namespace

std::string recording_name(long number) {
  char name[32];
  snprintf(name, sizeof name, "%06ld.json", number);
  return name;
}

long recording_number(const char *name) {
  size_t count;
  long number = leading_number(name, &count);
  return count == 6 && strcmp(name + 6, ".json") == 0 ? number : 0;
}

std::string aside_name(long number, long pid) {
  char name[48];
  snprintf(name, sizeof name, ".%06ld-%ld.json.tmp", number, pid);
  return name;
}

long aside_pid(const char *name) {
  size_t count = 0;
  if (name[0] == '.')
    leading_number(name + 1, &count);
  if (count != 6 || name[7] != '-')
    return 0;
  long pid = leading_number(name + 8, &count);
  return count > 0 && strcmp(name + 8 + count, ".json.tmp") == 0 ? pid : 0;
}

bool write_recording(const std::string &dir, long *number,
                     const Exchange &exchange, size_t limit, std::string *why) {
  std::string aside = dir + "/" + aside_name(*number, getpid());
  if (!write_synced(aside, recording_text(exchange, limit))) {
    *why = strerror(errno);
    unlink(aside.c_str());
    return false;
  }
  bool claimed = claim(dir, aside, number, why);
  unlink(aside.c_str());
  if (claimed && !sync_directory(dir)) {
    *why = "cannot sync " + dir + ": " + strerror(errno);
    return false;
  }
  return claimed;
}

bool read_recorded(const Json::Value &file, std::string_view text,
                   Recorded *recorded) {
  if (!file.isObject() || !file[member::marker].isNumeric() ||
      !file[member::path].isString())
    return false;
  recorded->path = file[member::path].asString();
  recorded->request = read_body(file, text, member::request);
  recorded->status = read_status(file[member::status]);
  recorded->reply = read_body(file, text, member::reply);
  return true;
}

bool read_recording(const std::string &name, Recorded *recorded,
                    std::string *why) {
  std::string text;
  Json::Value file;
  if (!read_file(name, &text, why))
    return false;
  if (text.empty()) {
    *why = "empty";
    return false;
  }
  if (!parse_json(text, Strictness::strict_any_root, &file, why)) {
    *why = "not JSON: " + *why;
    return false;
  }
  if (read_recorded(file, text, recorded))
    return true;
  *why = not_recorded(file);
  return false;
}

} // namespace velmora_tools
