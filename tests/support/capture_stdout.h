/* Runs a function with one of the process's output streams sent to a
 * buffer. */
#ifndef VELMORA_TEST_CAPTURE_STDOUT_H
#define VELMORA_TEST_CAPTURE_STDOUT_H

#include <functional>
#include <string>
#include <unistd.h>

/* Everything `body` writes to file descriptor `fd` (stdio and iostreams
 * are flushed around it). */
std::string capture_output(int fd, const std::function<void()> &body);

/* Everything `body` writes to standard output (std::cout or stdio). */
inline std::string capture_stdout(const std::function<void()> &body) {
  return capture_output(STDOUT_FILENO, body);
}

#endif
