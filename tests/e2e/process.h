/* Child processes for the end-to-end tests: run a tool to completion, or
 * keep a devserver running for the length of a test. */
#ifndef VELMORA_TEST_PROCESS_H
#define VELMORA_TEST_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

struct Output {
  int status; /* exit code, or 128 + signal number */
  std::string out;
  std::string err;
};

/* Runs `argv` with `input` on its standard input, waits up to 60 s (then
 * kills it), and returns what it printed. */
Output run(const std::vector<std::string> &argv, const std::string &input = "");

/* velmora-devserver on a free port; stopped (SIGTERM) when destroyed. */
class Devserver {
public:
  explicit Devserver(const std::vector<std::string> &options);
  ~Devserver();
  Devserver(const Devserver &) = delete;
  Devserver &operator=(const Devserver &) = delete;

  /* The port it listens on; 0 when it did not start. */
  int port() const {
    return port_;
  }
  /* What it wrote on standard error so far: its request log. */
  std::string log() const;
  /* Sends SIGTERM and waits, once; the exit status as Output::status has it.
   * Every request's log line is written by then. */
  int stop();

private:
  pid_t pid_ = -1;
  int status_ = -1;
  int port_ = 0;
  int stdout_ = -1;
  int log_ = -1;
};

/* A loopback port that nothing listens on (as far as can be known). */
int unused_port();

#endif
