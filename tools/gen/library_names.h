/* Names the library and the system headers already declare: generated
 * names must differ. */
#ifndef VELMORA_GEN_LIBRARY_NAMES_H
#define VELMORA_GEN_LIBRARY_NAMES_H

#include <string>

namespace velmora_gen {

/* True for the library's own type, function and structure names, which a
 * generated name must not take. */
bool library_name(const std::string &name);
/* True for a macro of the headers generated code includes. */
bool system_macro(const std::string &name);
/* True for a file-scope name of the C library (a function, type or
 * variable) those headers declare. */
bool system_global(const std::string &name);

} // namespace velmora_gen

#endif
