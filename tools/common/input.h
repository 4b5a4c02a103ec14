/* What the tools' command lines name to read: a file, or standard input
 * as "-", whole or its first line (a secret kept out of the process
 * list); and the numbers they give. */
#ifndef VELMORA_TOOLS_INPUT_H
#define VELMORA_TOOLS_INPUT_H

#include <string>

namespace velmora_tools {

/* All of file `name` appended to `text`; false with the reason
 * (strerror's, or "it is a directory") in `why`. */
bool read_file(const std::string &name, std::string *text, std::string *why);

/* read_file, or all of standard input for "-". A closed standard input is
 * refused rather than read as empty. */
bool read_input(const char *name, std::string *text, std::string *why);

/* The first line of file `name` ("-": standard input), without its end;
 * false with "cannot read \"NAME\": reason" in `why`, or when that line
 * is empty. */
bool read_secret(const char *name, std::string *secret, std::string *why);

/* A decimal number in [low, high]: the whole of `text`, or its start with
 * what follows in `rest` when that is given. */
bool parse_number(const std::string &text, long low, long high, long *value,
                  std::string *rest = nullptr);

} // namespace velmora_tools

#endif
