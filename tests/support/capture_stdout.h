/* Runs a function with the process's standard output sent to a buffer. */
#ifndef VELMORA_TEST_CAPTURE_STDOUT_H
#define VELMORA_TEST_CAPTURE_STDOUT_H

#include <functional>
#include <string>

/* Everything `body` writes to standard output (std::cout or stdio). */
std::string capture_stdout(const std::function<void()> &body);

#endif
