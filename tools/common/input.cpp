#include "common/input.h"

#include <cerrno>
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

} // namespace

bool read_input(const char *name, std::string *text, std::string *why) {
  bool is_stdin = strcmp(name, "-") == 0;
  int fd = is_stdin ? STDIN_FILENO : open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0 || (is_stdin && fcntl(fd, F_GETFD) < 0)) {
    *why = is_stdin ? "standard input is closed" : strerror(errno);
    return false;
  }
  std::unique_ptr<int, FileCloser> guard(is_stdin ? nullptr : &fd);
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

bool read_secret(const char *name, std::string *secret, std::string *why) {
  std::string text;
  if (!read_input(name, &text, why)) {
    *why = "cannot read \"" + std::string(name) + "\": " + *why;
    return false;
  }
  *secret = text.substr(0, text.find_first_of("\r\n"));
  return true;
}

} // namespace velmora_tools
