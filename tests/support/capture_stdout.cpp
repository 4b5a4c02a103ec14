#include "capture_stdout.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace {

void flush_all() {
  std::cout.flush();
  std::cerr.flush();
  fflush(nullptr);
}

} // namespace

std::string capture_output(int fd, const std::function<void()> &body) {
  FILE *sink = tmpfile();
  if (sink == nullptr)
    throw std::runtime_error("tmpfile failed");
  flush_all();
  const int saved = dup(fd);
  dup2(fileno(sink), fd);
  const auto restore = [&] {
    flush_all();
    dup2(saved, fd);
    close(saved);
  };
  try {
    body();
  } catch (...) {
    restore();
    fclose(sink);
    throw;
  }
  restore();
  std::string text;
  rewind(sink);
  for (int c; (c = fgetc(sink)) != EOF;)
    text += static_cast<char>(c);
  fclose(sink);
  return text;
}
