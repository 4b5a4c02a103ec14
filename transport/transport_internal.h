/* Internals of the transport shared by its sources and white-box tests. */
#ifndef VELMORA_TRANSPORT_INTERNAL_H
#define VELMORA_TRANSPORT_INTERNAL_H

#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <string>

namespace velmora {

/*
 * Process-wide record of libcurl's one-time global initialisation. The
 * mutex is statically initialised, so records made from other libraries'
 * static constructors find it ready whatever the order of construction.
 */
struct Init {
  constexpr Init() noexcept
      : initialized(0), mutex(PTHREAD_MUTEX_INITIALIZER) {}
  ~Init();
  Init(const Init &) = delete;
  Init &operator=(const Init &) = delete;
  Init(Init &&) = delete;
  Init &operator=(Init &&) = delete;

  uint8_t initialized;
  pthread_mutex_t mutex;
};

extern Init global_init;

/* The key file reader behind getLocalAuthKey, on any path. */
std::string read_local_auth_key(const char *path);

/*
 * Seconds from `stamp` to `server`, field by field, both read as times of
 * one zone: whole days between the years' starts plus the day-of-year
 * difference (day of year taken from month and day), then hours, minutes
 * and seconds.
 */
int64_t clock_difference(const struct tm &stamp, const struct tm &server);

} // namespace velmora

#endif
