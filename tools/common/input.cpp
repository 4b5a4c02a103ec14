#include "common/input.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace velmora_tools {
namespace {

struct FileCloser {
  void operator()(int *fd) const {
    close(*fd);
  }
};

bool read_all(int fd, std::string *text, std::string *why) {
  struct stat status;
  if (fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    *why = "it is a directory";
    return false;
  }
  char buffer[65536];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0)
    text->append(buffer, static_cast<size_t>(n));
  if (n < 0)
    *why = strerror(errno);
  return n == 0;
}

} // namespace

bool read_file(const std::string &name, std::string *text, std::string *why) {
  int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *why = strerror(errno);
    return false;
  }
  std::unique_ptr<int, FileCloser> guard(&fd);
  return read_all(fd, text, why);
}

bool read_input(const char *name, std::string *text, std::string *why) {
  if (strcmp(name, "-") != 0)
    return read_file(name, text, why);
  if (fcntl(STDIN_FILENO, F_GETFD) < 0) {
    *why = "standard input is closed";
    return false;
  }
  return read_all(STDIN_FILENO, text, why);
}

bool read_secret(const char *name, std::string *secret, std::string *why) {
  std::string text;
  if (!read_input(name, &text, why)) {
    *why = "cannot read \"" + std::string(name) + "\": " + *why;
    return false;
  }
  *secret = text.substr(0, text.find_first_of("\r\n"));
  /* An empty secret would sign, or accept, with the empty password. */
  if (secret->empty())
    *why = "the first line of \"" + std::string(name) + "\" is empty";
  return !secret->empty();
}

bool parse_number(const std::string &text, long low, long high, long *value,
                  std::string *rest) {
  char *end;
  errno = 0;
  long v = strtol(text.c_str(), &end, 10);
  if (errno != 0 || end == text.c_str() || (rest == nullptr && *end != '\0') ||
      v < low || v > high)
    return false;
  *value = v;
  if (rest != nullptr)
    *rest = end;
  return true;
}

} // namespace velmora_tools
