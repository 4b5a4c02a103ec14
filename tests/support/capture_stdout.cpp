#include "capture_stdout.h"

#include <cstdio>
#include <iostream>
#include <memory>

namespace {

void flush_all() {
  std::cout.flush();
  std::cerr.flush();
  fflush(nullptr);
}

} // namespace

std::string capture_output(int fd, const std::function<void()> &body) {
  const std::unique_ptr<FILE, int (*)(FILE *)> sink(tmpfile(), fclose);
  flush_all();
  const int saved = dup(fd);
  dup2(fileno(sink.get()), fd);
  body();
  flush_all();
  dup2(saved, fd);
  close(saved);
  rewind(sink.get());
  std::string text;
  for (int c; (c = fgetc(sink.get())) != EOF;)
    text += char(c);
  return text;
}
