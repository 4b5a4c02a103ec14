#include "capture_stdout.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

std::string capture_stdout(const std::function<void()> &body) {
  std::cout.flush();
  fflush(stdout);
  FILE *sink = tmpfile();
  if (sink == nullptr)
    throw std::runtime_error("tmpfile failed");
  int saved = dup(STDOUT_FILENO);
  dup2(fileno(sink), STDOUT_FILENO);
  try {
    body();
  } catch (...) {
    std::cout.flush();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    fclose(sink);
    throw;
  }
  std::cout.flush();
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);

  std::string text;
  rewind(sink);
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, sink)) > 0)
    text.append(buffer, n);
  fclose(sink);
  return text;
}
