#include "process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

int temporary_file() {
  FILE *file = tmpfile();
  if (file == nullptr)
    abort();
  int fd = dup(fileno(file));
  fclose(file);
  return fd;
}

/* pread leaves alone the file offset that a running child shares. */
std::string read_all(int fd) {
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = pread(fd, buffer, sizeof buffer, text.size())) > 0)
    text.append(buffer, n);
  return text;
}

/* Forks and execs `argv` with the given descriptors as 0, 1 and 2. */
pid_t spawn(const std::vector<std::string> &argv, int in, int out, int err) {
  std::vector<char *> args;
  for (const std::string &arg : argv)
    args.push_back(const_cast<char *>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    execv(args[0], args.data());
    _exit(127);
  }
  return pid;
}

/* Waits for `pid` up to `seconds`, then kills it. */
int wait_for(pid_t pid, int seconds) {
  auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Output run(const std::vector<std::string> &argv, const std::string &input) {
  int in = temporary_file(), out = temporary_file(), err = temporary_file();
  if (pwrite(in, input.data(), input.size(), 0) !=
      static_cast<ssize_t>(input.size()))
    abort();
  pid_t pid = spawn(argv, in, out, err);
  Output result{wait_for(pid, 60), read_all(out), read_all(err)};
  close(in);
  close(out);
  close(err);
  return result;
}

Devserver::Devserver(const std::vector<std::string> &options) {
  std::vector<std::string> argv = {VELMORA_DEVSERVER, "--port", "0"};
  argv.insert(argv.end(), options.begin(), options.end());
  int pipe_ends[2];
  if (pipe(pipe_ends) != 0)
    return;
  log_ = temporary_file();
  int null = open("/dev/null", O_RDONLY);
  pid_ = spawn(argv, null, pipe_ends[1], log_);
  close(null);
  close(pipe_ends[1]);
  stdout_ = pipe_ends[0];

  /* The first line is the port. */
  std::string line;
  char c;
  pollfd ready = {stdout_, POLLIN, 0};
  while (line.size() < 16 && poll(&ready, 1, 10000) == 1 &&
         read(stdout_, &c, 1) == 1 && c != '\n')
    line += c;
  port_ = atoi(line.c_str());
}

Devserver::~Devserver() {
  stop();
  if (stdout_ >= 0)
    close(stdout_);
  if (log_ >= 0)
    close(log_);
}

std::string Devserver::log() const {
  return read_all(log_);
}

int Devserver::stop() {
  if (pid_ >= 0) {
    kill(pid_, SIGTERM);
    status_ = wait_for(pid_, 30);
    pid_ = -1;
  }
  return status_;
}

int unused_port() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
  getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}
