/* A velmora-devserver of this build, started with the given options on a
 * free port for the life of the object, for tests and benchmarks that call
 * it as users do. Its log goes to /dev/null. */
#ifndef VELMORA_TEST_DEVSERVER_PROCESS_H
#define VELMORA_TEST_DEVSERVER_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

class DevserverProcess {
public:
  DevserverProcess(const std::string &program,
                   const std::vector<std::string> &options);
  ~DevserverProcess();
  DevserverProcess(const DevserverProcess &) = delete;
  DevserverProcess &operator=(const DevserverProcess &) = delete;

  /* The port it listens on; 0 when it did not start. */
  int port() const {
    return port_;
  }

private:
  pid_t pid_ = -1;
  int port_ = 0;
};

#endif
