/* Names no generated identifier may take besides the library's and the
 * system's: the language's keywords and the generated code's own. */
#ifndef VELMORA_GEN_RESERVED_NAMES_H
#define VELMORA_GEN_RESERVED_NAMES_H

#include <string>

namespace velmora_gen {

/* True for a C++ keyword. */
bool keyword(const std::string &name);

/* True for a name a generated struct member must not take: the types its
 * members and accessors are declared with, and the member of unknown
 * members. */
bool member_name(const std::string &name);

/* True for one of the generated code's own parameters and locals, where a
 * record's type or an argument is in scope. */
bool local_name(const std::string &name);

/* True for one of the generated readers' parameters and locals, where a
 * record's type is in scope. */
bool reader_local(const std::string &name);

} // namespace velmora_gen

#endif
