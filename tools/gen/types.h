/* How each schema type appears in generated code. */
#ifndef VELMORA_GEN_TYPES_H
#define VELMORA_GEN_TYPES_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "schema.h"

namespace velmora_gen {

struct Names;

/* How accessors pass a field: scalars by value (a presence result and an
 * out-parameter), texts as `const char *`, everything else as a lent
 * handle. */
enum class Access { scalar, text, cell_text, handle };

/* A type of the library, named in a schema as it stands ("Long"). */
struct BaseType {
  const char *name;
  /* The name the library writes it under ("__type__", "__sub_type__"). */
  const char *wire;
  Access access;
  const char *scalar; /* the value's C type, for Access::scalar */
  /* Its readers of JSON text are velmora::detail::fast_<reader> and
   * compact_<reader>; "" where the fast road leaves it to its deserializer. */
  const char *reader;
  /* Written as JSON's own string, number or boolean, not in an envelope. */
  bool native;
};

/* The library's base type `name`; null for any other name. */
const BaseType *base_type(const std::string &name);

/* What to write instead of the unknown type `text`, for its message: the
 * whole type with its innermost name replaced by the nearest of the base
 * types and `records` (a name of another language's schemas, another case,
 * or a slip of a letter or two), or else, as for a text that is no type,
 * the list of every type. */
std::string type_hint(const std::string &text,
                      const std::set<std::string> &records);

struct TypeInfo {
  std::string c_type; /* the member is a `c_type *` */
  std::string deleter, copier, serializer, reader;
  std::string scalar; /* the scalar's C type, for Access::scalar */
  std::string fast;   /* its reader of JSON text (velmora::detail::FastRead) */
  std::string wire;   /* the name written as "__sub_type__", as it stands */
  Access access;
};

/* The container types a schema uses, each with its own maker and reader
 * in the generated source, inner types first. */
class Catalog {
public:
  Catalog(const Schema &schema, const Names &names);
  /* The containers of `types` alone, as one source file of several holds
   * them; the info of another container names no helper of this file. */
  Catalog(const std::vector<Type> &types, const Names &names);
  TypeInfo info(const Type &type) const;
  /* The four element operations a container of `element` is made with. */
  std::vector<std::string> element_ops(const Type &element) const;
  const std::vector<Type> &containers() const {
    return containers_;
  }
  /* "make_c<N>", the generated maker of a container type. */
  std::string maker(const Type &container) const;

private:
  void add(const Type &type);
  std::vector<Type> containers_;
  std::map<std::string, size_t> ids_;
  const Names &names_; /* the records' C names */
};

/* True for the names a generated source takes for itself, which a record
 * or a call must not take: its container functions (make_cN, read_cN,
 * copy_cN, fast_cN) and the runtime's namespace. */
bool helper_name(const std::string &name);

/* The text of `type` as a schema writes it: "List<Dict<Long>>". */
std::string type_text(const Type &type);

/* Parses a type text: "List<T>", "Dict<T>", "ResultSet<T>" or else a
 * name as it stands; false when it is not well formed. Names are not
 * checked here. */
bool parse_type(const std::string &text, Type *type);

/* The library's function `verb` of a container type: "list_new". */
std::string container_function(const Type &type, const char *verb);

} // namespace velmora_gen

#endif
