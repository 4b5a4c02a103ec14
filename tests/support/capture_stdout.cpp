#include "capture_stdout.h"

#include <cstdio>
#include <iostream>
#include <memory>

std::string capture_output(int fd, const std::function<void()> &body) {
  const std::unique_ptr<FILE, int (*)(FILE *)> sink(tmpfile(), fclose);
  std::cout.flush();
  fflush(nullptr);
  const int saved = dup(fd);
  dup2(fileno(sink.get()), fd);
  body();
  std::cout.flush();
  fflush(nullptr);
  dup2(saved, fd);
  close(saved);
  fseek(sink.get(), 0, SEEK_END);
  std::string text(size_t(ftell(sink.get())), '\0');
  rewind(sink.get());
  text.resize(fread(&text[0], 1, text.size(), sink.get()));
  return text;
}
