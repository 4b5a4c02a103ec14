#include "capture_stdout.h"

#include <cstdio>
#include <memory>

/* std::cout shares stdio's buffer (sync_with_stdio), so fflush covers it. */
std::string capture_output(int fd, const std::function<void()> &body) {
  const std::unique_ptr<FILE, int (*)(FILE *)> sink(tmpfile(), fclose);
  fflush(nullptr);
  const int saved = dup(fd);
  dup2(fileno(sink.get()), fd);
  body();
  fflush(nullptr);
  dup2(saved, fd);
  close(saved);
  std::string text(size_t(lseek(fileno(sink.get()), 0, SEEK_END)), '\0');
  text.resize(size_t(pread(fileno(sink.get()), &text[0], text.size(), 0)));
  return text;
}
