#include "devserver_process.h"

#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

/* The devserver prints its port on its first line. */
DevserverProcess::DevserverProcess(const std::string &program,
                                   const std::vector<std::string> &options) {
  int out[2];
  if (pipe(out) != 0)
    return;
  std::vector<char *> argv{const_cast<char *>(program.c_str())};
  std::vector<std::string> all{"--port", "0"};
  all.insert(all.end(), options.begin(), options.end());
  for (std::string &option : all)
    argv.push_back(option.data());
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(out[1], STDOUT_FILENO);
    if (freopen("/dev/null", "w", stderr) == nullptr)
      _exit(126);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(out[1]);
  FILE *lines = fdopen(out[0], "r");
  if (lines == nullptr || fscanf(lines, "%d", &port_) != 1)
    port_ = 0;
  if (lines != nullptr)
    fclose(lines);
}

DevserverProcess::~DevserverProcess() {
  if (pid_ <= 0)
    return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}
