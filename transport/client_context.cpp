#include "transport_internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <curl/curl.h>

#include "velmora/transport.h"
#include "velmora/values.h"

namespace velmora {

Init global_init;

Init::~Init() {
  pthread_mutex_destroy(&mutex);
}

} // namespace velmora

using velmora::global_init;

namespace {

const char default_host[] = "127.0.0.1";
const int default_port = 8888;
const char no_key[] = "NO KEY";

/*
 * Replaces an optional text; null and, when `empty_is_absent`, "" leave the
 * field absent. The copy is made first so that a caller may pass back the
 * text a getter lent.
 */
void replace_text(std::string *&field, const char *text, bool empty_is_absent) {
  std::string *copy = nullptr;
  if (text != nullptr && !(empty_is_absent && *text == '\0'))
    copy = new std::string(text);
  delete field;
  field = copy;
}

void drop_password_sha1(client_context_s *context) {
  safe_free(reinterpret_cast<void **>(&context->password_sha1));
}

void initialize_curl_once() {
  pthread_mutex_lock(&global_init.mutex);
  if (global_init.initialized == 0) {
    /* A failure is not retried: later transfers report it themselves. */
    curl_global_init(CURL_GLOBAL_ALL);
    global_init.initialized = 1;
  }
  pthread_mutex_unlock(&global_init.mutex);
}

} // namespace

namespace velmora {

std::string read_local_auth_key(const char *path) {
  FILE *file = path == nullptr ? nullptr : fopen(path, "rt");
  if (file == nullptr)
    return no_key;
  char line[80];
  char *read = fgets(line, sizeof line, file);
  fclose(file);
  if (read == nullptr || line[0] == '\0')
    return no_key;
  size_t length = strlen(line);
  while (length > 0 && (line[length - 1] == '\r' || line[length - 1] == '\n'))
    --length;
  return std::string(line, length);
}

} // namespace velmora

std::string getLocalAuthKey() {
  return velmora::read_local_auth_key("/etc/local_auth.key");
}

extern "C" {

client_context_s *client_context_new(void) {
  auto *context =
      static_cast<client_context_s *>(calloc(1, sizeof(client_context_s)));
  if (context != nullptr)
    client_context_init(context);
  return context;
}

void client_context_init(client_context_s *context) {
  initialize_curl_once();
  if (context == nullptr)
    return;
  context->clock_offset = 0;
  context->user = nullptr;
  context->password = nullptr;
  context->password_sha1 = nullptr;
  context->host = new std::string(default_host);
  context->port = default_port;
  context->token = nullptr;
  context->auth_key = nullptr;
  context->verbose = 0;
  client_context_set_auth_key(context, getLocalAuthKey().c_str());
}

void client_context_clean(client_context_s *context) {
  if (context == nullptr)
    return;
  drop_password_sha1(context);
  /* Nulling the slots makes a second clean harmless. */
  for (std::string **field :
       {&context->user, &context->password, &context->token, &context->auth_key,
        &context->host}) {
    delete *field;
    *field = nullptr;
  }
}

void client_context_free(client_context_s *context) {
  client_context_clean(context);
  free(context);
}

int client_context_set_user(client_context_s *context, const char *user) {
  if (context != nullptr)
    replace_text(context->user, user, true);
  return 0;
}

int client_context_set_password(client_context_s *context,
                                const char *password) {
  if (context != nullptr) {
    drop_password_sha1(context);
    replace_text(context->password, password, true);
  }
  return 0;
}

int client_context_set_password_hash(client_context_s *context,
                                     const char *hex) {
  if (context != nullptr) {
    char *copy = hex == nullptr ? nullptr : strdup(hex);
    replace_text(context->password, nullptr, true);
    drop_password_sha1(context);
    context->password_sha1 = copy;
  }
  return 0;
}

const char *client_context_get_user(client_context_s *context) {
  if (context == nullptr || context->user == nullptr)
    return nullptr;
  return context->user->c_str();
}

char *client_context_get_password_sha1(client_context_s *context) {
  return context == nullptr ? nullptr : context->password_sha1;
}

int client_context_set_token(client_context_s *context, const char *token) {
  if (context != nullptr)
    replace_text(context->token, token, false);
  return 0;
}

int client_context_invalidate_token(client_context_s *context) {
  if (context != nullptr)
    replace_text(context->token, nullptr, false);
  return 0;
}

int client_context_set_host(client_context_s *context, const char *host) {
  if (context != nullptr)
    replace_text(context->host, host == nullptr ? "" : host, false);
  return 0;
}

int client_context_set_port(client_context_s *context, int port) {
  if (context != nullptr)
    context->port = port;
  return 0;
}

int client_context_set_auth_key(client_context_s *context, const char *key) {
  if (context != nullptr)
    replace_text(context->auth_key, key, false);
  return 0;
}

} /* extern "C" */
