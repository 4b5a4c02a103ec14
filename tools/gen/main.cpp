/* velmora-gen: a service's record types and calls, generated from a
 * schema; or a schema inferred from a recorded reply. */
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <velmora/version.h>

#include "common/input.h"
#include "infer.h"
#include "names.h"
#include "parts.h"
#include "schema.h"
#include "types.h"
#include "writers.h"

namespace {

/* The usage, with the weights a file of several holds by default. */
std::string usage_text() {
  using velmora_gen::operation_weight, velmora_gen::record_weight;
  return "usage: velmora-gen [--output-dir DIR] [--name BASE] [--parts N] "
         "SCHEMA.json\n"
         "       velmora-gen --infer FILE|DIR...\n"
         "       velmora-gen --help | --version\n"
         "Writes BASE.h and BASE.cpp (BASE: the schema file's name) into DIR\n"
         "(default: ., made when missing). A big schema gets its source as\n"
         "several files, BASE.cpp, BASE_2.cpp, ... BASE_N.cpp, to compile\n"
         "together, in parallel and each in bounded memory, with the one "
         "BASE.h:\na file per " +
         std::to_string(velmora_gen::part_weight) +
         " of weight (a record weighs " + std::to_string(record_weight) +
         ", a field 1, an operation\n" + std::to_string(operation_weight) +
         ": about 30 records of 20 fields with an operation each), at most "
         "one\nper record and operation. Each record and operation goes to "
         "the file\nits name's hash picks, so a file weighs up to about half "
         "again the\naverage, and a change to one rewrites its file and "
         "BASE.h (a change to\nthe count deals them all again). --parts N "
         "asks for N files (1: one\nfile, however big; files about as "
         "many as the records and operations\nleave some empty). A file "
         "whose text is unchanged is not written again;\nfiles of a larger "
         "count before are removed; a source file not written\nfrom BASE is "
         "left as it is (exit 1). "
         "A field's type is one of Long, ULong,\n"
         "Double, Time, Date, Integer, Boolean, Unicode, IP, Ciphered, Blob,\n"
         "Ordering, ListInfo, List<T>, Dict<T>, ResultSet<T> or a record of "
         "the\n"
         "schema; an unknown one is refused with the nearest name, or this "
         "list.\n"
         "Each operation OP gives OP(), one call; one that takes exactly one\n"
         "ListInfo and gives a ResultSet<T> also gives OP_each, a walk of the\n"
         "whole collection page by page. A schema in which OP_each would take\n"
         "a name already given (another operation, a record's function) or\n"
         "a reserved one (the library's, the C library's, the generated\n"
         "code's) is refused.\n"
         "--infer prints a schema inferred from\n"
         "typed envelopes: records from replies, and operations too from\n"
         "velmora-devserver --record files (a directory stands for its .json\n"
         "files): the name from the path, the arguments from the request's\n"
         "members, the result from a 200 reply's only member, else its "
         "\"result\",\n"
         "else its first member of a known type. Two types seen for one "
         "field,\n"
         "argument or result, and a bare number that is no 32-bit integer, "
         "are\n"
         "reported, one line each (exit 2). A file that is not JSON, or holds "
         "no\n"
         "recording and no typed value, is skipped with a warning.\n";
}

struct Options {
  std::string output_dir = ".", name;
  size_t parts = 0; /* 0: by the schema's size */
  bool infer = false;
  std::vector<std::string> inputs;
};

/* A count of 1 to 10,000, in decimal. */
bool parse_count(const char *text, size_t *value) {
  char *end = nullptr;
  errno = 0;
  unsigned long n = strtoul(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || text[0] == '-' || n < 1 ||
      n > 10000)
    return false;
  *value = n;
  return true;
}

bool parse_options(int argc, char **argv, Options *options) {
  for (int i = 1; i < argc; i++) {
    std::string arg = argv[i];
    bool has_value = i + 1 < argc;
    if (arg == "--output-dir" && has_value)
      options->output_dir = argv[++i];
    else if (arg == "--name" && has_value)
      options->name = argv[++i];
    else if (arg == "--parts" && has_value) {
      if (!parse_count(argv[++i], &options->parts))
        return false;
    } else if (arg == "--infer")
      options->infer = true;
    else if (arg.empty() || arg[0] == '-')
      return false;
    else
      options->inputs.push_back(arg);
  }
  return options->infer ? !options->inputs.empty()
                        : options->inputs.size() == 1;
}

std::string base_name(const std::string &path) {
  size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

bool make_directory(const std::string &path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error)
    return true;
  fprintf(stderr, "velmora-gen: cannot make %s: %s\n", path.c_str(),
          error.message().c_str());
  return false;
}

/* Written only when its text changed, so that the file keeps its time
 * and builds do not compile it again. */
bool write_file(const std::string &path, const std::string &text) {
  std::string was, why;
  if (velmora_tools::read_file(path, &was, &why) && was == text)
    return true;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (out)
    return true;
  fprintf(stderr, "velmora-gen: cannot write %s\n", path.c_str());
  return false;
}

/* Refuses to write over a source file velmora-gen did not write for
 * `base`: a file of several is another schema's only one when their names
 * meet (api.json's api_2.cpp, api_2.json's api_2.cpp). */
bool sources_free(const std::string &dir, const std::string &base,
                  size_t count) {
  for (size_t i = 0; i < count; i++) {
    std::string path = dir + velmora_gen::part_file(base, i), text, why;
    if (!velmora_tools::read_file(path, &text, &why) ||
        velmora_gen::source_of(text, base))
      continue;
    fprintf(stderr,
            "velmora-gen: %s was not written from %s.json, so it stays: "
            "give one of the schemas another --name\n",
            path.c_str(), base.c_str());
    return false;
  }
  return true;
}

/* Removes the files of several past `count` that an earlier run wrote
 * for `base`: left, they would be built with the new ones and define
 * their records twice. Only velmora-gen's own go. */
bool remove_stale(const std::string &dir, const std::string &base,
                  size_t count) {
  std::error_code error;
  std::vector<std::string> stale;
  for (const auto &entry : std::filesystem::directory_iterator(dir, error)) {
    std::string name = entry.path().filename().string(), text, why;
    if (velmora_gen::part_number(name, base) > count &&
        velmora_tools::read_file(dir + name, &text, &why) &&
        velmora_gen::source_of(text, base))
      stale.push_back(dir + name);
  }
  for (const std::string &path : stale) {
    std::filesystem::remove(path, error);
    if (error) {
      fprintf(stderr, "velmora-gen: cannot remove %s: %s\n", path.c_str(),
              error.message().c_str());
      return false;
    }
  }
  return true;
}

/* The schema in `file`, read, checked and named; false with one line
 * naming the file in `error`. */
bool read_named(const std::string &file, velmora_gen::Schema *schema,
                velmora_gen::Names *names, std::string *error) {
  if (!velmora_gen::read_schema(file, schema, error))
    return false;
  if (velmora_gen::name_schema(*schema, names, error))
    return true;
  *error = file + ": " + *error;
  return false;
}

int generate(const Options &options) {
  velmora_gen::Schema schema;
  velmora_gen::Names names;
  std::string error;
  const std::string &file = options.inputs[0];
  if (!read_named(file, &schema, &names, &error)) {
    fprintf(stderr, "velmora-gen: %s\n", error.c_str());
    return 2;
  }
  std::string base = options.name.empty() ? base_name(file) : options.name;
  velmora_gen::Catalog catalog(schema, names);
  if (!make_directory(options.output_dir))
    return 1;
  std::string dir = options.output_dir + "/";
  size_t parts =
      options.parts != 0 ? options.parts : velmora_gen::default_parts(schema);
  std::vector<std::string> sources =
      velmora_gen::source_texts(schema, names, catalog, base, parts);
  if (!sources_free(dir, base, parts) ||
      !write_file(dir + base + ".h",
                  velmora_gen::header_text(schema, names, catalog, base)))
    return 1;
  for (size_t i = 0; i < sources.size(); i++)
    if (!write_file(dir + velmora_gen::part_file(base, i), sources[i]))
      return 1;
  return remove_stale(dir, base, parts) ? 0 : 1;
}

/* Each line of `lines` on standard error, after the program's name. */
void print_lines(const std::string &lines) {
  for (size_t at = 0; at < lines.size();) {
    size_t end = lines.find('\n', at);
    end = end == std::string::npos ? lines.size() : end + 1;
    fprintf(stderr, "velmora-gen: %s", lines.substr(at, end - at).c_str());
    at = end;
  }
}

} // namespace

int main(int argc, char **argv) {
  Options options;
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    printf("%s\n%s", usage_text().c_str(), velmora_gen::naming_rule);
    return 0;
  }
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    puts("velmora-gen " VELMORA_VERSION_STRING);
    return 0;
  }
  if (!parse_options(argc, argv, &options)) {
    fputs(usage_text().c_str(), stderr);
    return 2;
  }
  if (!options.infer)
    return generate(options);
  std::string schema, error, warnings;
  bool inferred =
      velmora_gen::infer_schema(options.inputs, &schema, &error, &warnings);
  print_lines(warnings);
  if (!inferred) {
    print_lines(error);
    return 2;
  }
  fputs(schema.c_str(), stdout);
  return 0;
}
