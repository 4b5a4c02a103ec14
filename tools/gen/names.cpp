/* Wire name -> C name: the one rule. */
#include "names.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <set>

#include "library_names.h"
#include "reserved_names.h"
#include "types.h"

namespace velmora_gen {

const char *const naming_rule =
    "Names: a schema's keys are wire names, sent and read exactly as\n"
    "written. Each record, field and argument gets a C name from its wire\n"
    "name: (1) every byte outside [A-Za-z0-9_] becomes '_', a run of '_'\n"
    "becomes one and a leading or trailing '_' is dropped (\"x-request-id\"\n"
    "-> x_request_id, \"__meta\" -> meta, \"naïve\" -> na_ve; nothing left\n"
    "gives x); (2) a leading digit gets 'n' before it (\"2fa\" -> n2fa);\n"
    "(3) a C++ keyword, a name of the library, a macro of the system\n"
    "headers (errno, EOF, unix, ...), or a name the generated code uses\n"
    "there (for a field, a record's C name or unknown_members; for a\n"
    "record or an argument also the call's own context, result, body,\n"
    "reply, request and code, and value, self, record, ...; for a record\n"
    "also the C library's names, such as time, and its readers' name, c,\n"
    "json, ...) gets '_' after it, a record \"_type\" (\"class\" -> class_,\n"
    "class_type);\n"
    "(4) a name taken by one before it in schema order gets _2, _3, ...\n"
    "(records compared ignoring case, fields ignoring the case of their\n"
    "first letter, as their accessors are). A field or argument written as\n"
    "{\"type\": T, \"c_name\": N, \"doc\": D}, or a record written as\n"
    "{\"fields\": {...}, \"c_name\": N, \"doc\": D}, takes N as it is, which\n"
    "must be a free identifier. --infer names an operation after its path\n"
    "by steps 1 to 3 (\"/items/list\" -> items_list).\n";

namespace {

bool ascii_word(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') || c == '_';
}

/* Steps 1 and 2 of the rule. */
std::string derived(const std::string &wire) {
  std::string name;
  for (char c : wire) {
    char out = ascii_word(c) ? c : '_';
    if (out != '_' || (!name.empty() && name.back() != '_'))
      name += out;
  }
  if (!name.empty() && name.back() == '_')
    name.pop_back();
  if (name.empty())
    return "x";
  return name[0] >= '0' && name[0] <= '9' ? "n" + name : name;
}

/* `name` for n = 1, else name_N (nameN after a trailing "_"), so that a
 * plain identifier stays one. */
std::string numbered(const std::string &name, int n) {
  if (n == 1)
    return name;
  return name + (name.back() == '_' ? "" : "_") + std::to_string(n);
}

std::string capitalized(std::string text) {
  if (text[0] >= 'a' && text[0] <= 'z')
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

std::string lower(std::string text) {
  for (char &c : text)
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

const char *const accessor_verbs[] = {"_get", "_set", "_new"};

/* Items whose schema gives their c_name first, so that the names derived
 * from wire names keep clear of them. */
template <typename Item, typename Name>
bool given_first(const std::vector<Item> &items, Name name) {
  for (int pass = 0; pass < 2; pass++)
    for (const Item &item : items)
      if (item.given_c_name.has_value() == (pass == 0) && !name(item))
        return false;
  return true;
}

class Namer {
public:
  Namer(Names *names, std::string *error) : names_(names), error_(error) {}
  bool run(const Schema &schema);
  bool name_all_but_operations(const Schema &schema);
  /* A free operation name from `base` (a plain identifier): it, or
   * base_2, base_3, ...; each refusal on the way is left in the error. */
  std::string free_operation_name(const std::string &base);

private:
  enum class Kind { record, field, argument };
  using Free = std::function<bool(const std::string &)>;
  bool reserved(Kind kind, const std::string &name) const;
  std::vector<std::string> record_functions(const std::string &c) const;
  bool record_free(const std::string &c) const;
  bool field_free(const std::string &record, const std::string &c) const;
  bool choose(Kind kind, const std::string &where, const std::string &wire,
              const std::optional<std::string> &given, const Free &free,
              std::string *c);
  bool name_record(const Record &record);
  bool name_fields(const Record &record);
  bool name_arguments(const Operation &op);
  bool check_operation(const std::string &name, const std::string &where);
  std::string c_text(const Type &type) const;
  void name_readers(const Type &type);
  bool refuse(const std::string &where, const std::string &what) {
    *error_ = where + ": " + what;
    return false;
  }

  Names *names_;
  std::string *error_;
  std::set<std::string> records_;   /* C names */
  std::set<std::string> prefixes_;  /* lower-cased record C names */
  std::set<std::string> functions_; /* every global name given so far */
  std::set<std::string> members_;   /* capitalized, in the current scope */
};

bool Namer::reserved(Kind kind, const std::string &name) const {
  if (kind == Kind::record && (system_global(name) || reader_local(name)))
    return true;
  if (keyword(name) || library_name(name) || system_macro(name) ||
      member_name(name) || records_.count(name) != 0)
    return true;
  return kind != Kind::field &&
         (helper_name(name) || functions_.count(name) != 0 || local_name(name));
}

/* Every name the generated code declares for record `c`, its compact table
 * included although only a record of scalars has one, so that a name stays
 * the same when a field is added. */
std::vector<std::string> Namer::record_functions(const std::string &c) const {
  return {c,
          c + "_new",
          c + "_deleter",
          c + "_deserialize",
          c + "_serialize",
          c + "_copier",
          c + "_read",
          c + "_fast",
          c + "_fields",
          c + "_compact",
          unknown_accessor(c)};
}

bool Namer::record_free(const std::string &c) const {
  if (reserved(Kind::record, c) || prefixes_.count(lower(c)) != 0)
    return false;
  for (const std::string &name : record_functions(c))
    if (functions_.count(name) != 0 || helper_name(name) ||
        !plain_identifier(name))
      return false;
  return true;
}

bool Namer::field_free(const std::string &record, const std::string &c) const {
  if (reserved(Kind::field, c) || members_.count(capitalized(c)) != 0)
    return false;
  for (const char *verb : accessor_verbs)
    if (functions_.count(accessor(record, verb, c)) != 0)
      return false;
  return true;
}

/* The schema's own c_name, which must be free; else one derived from the
 * wire name, marked when reserved and numbered until free. */
bool Namer::choose(Kind kind, const std::string &where, const std::string &wire,
                   const std::optional<std::string> &given, const Free &free,
                   std::string *c) {
  if (given.has_value()) {
    if (!plain_identifier(*given) || !free(*given))
      return refuse(where, "c_name \"" + *given + "\" is not free");
    *c = *given;
    return true;
  }
  std::string base = derived(wire);
  if (reserved(kind, base))
    /* A record's "_" would make "__" in its functions' names. */
    base += kind == Kind::record ? "_type" : "_";
  *c = first_free(base, [&](const std::string &name) { return !free(name); });
  return true;
}

bool Namer::name_record(const Record &record) {
  std::string &c = names_->records[record.name].c_name;
  if (!choose(
          Kind::record, "record " + record.name, record.name,
          record.given_c_name,
          [&](const std::string &name) { return record_free(name); }, &c))
    return false;
  records_.insert(c);
  prefixes_.insert(lower(c));
  for (const std::string &name : record_functions(c))
    functions_.insert(name);
  return true;
}

bool Namer::name_fields(const Record &record) {
  RecordNames &named = names_->records[record.name];
  members_.clear();
  return given_first(record.fields, [&](const Field &field) {
    std::string &c = named.fields[field.name];
    if (!choose(
            Kind::field, "record " + record.name + ", field " + field.name,
            field.name, field.given_c_name,
            [&](const std::string &name) {
              return field_free(named.c_name, name);
            },
            &c))
      return false;
    members_.insert(capitalized(c));
    for (const char *verb : accessor_verbs)
      functions_.insert(accessor(named.c_name, verb, c));
    return true;
  });
}

bool Namer::name_arguments(const Operation &op) {
  std::map<std::string, std::string> &named = names_->arguments[op.name];
  std::set<std::string> used;
  auto free = [&](const std::string &c) {
    return !reserved(Kind::argument, c) && used.count(c) == 0;
  };
  return given_first(op.arguments, [&](const Field &argument) {
    std::string &c = named[argument.name];
    if (!choose(Kind::argument,
                "operation " + op.name + ", argument " + argument.name,
                argument.name, argument.given_c_name, free, &c))
      return false;
    used.insert(c);
    return true;
  });
}

bool Namer::check_operation(const std::string &name, const std::string &where) {
  if (!plain_identifier(name))
    return refuse(where, "\"" + name + "\" is not a C identifier");
  if (library_name(name))
    return refuse(where, "\"" + name + "\" is a name of the library");
  if (system_macro(name) || system_global(name))
    return refuse(where,
                  "\"" + name + "\" is a name of the C library or a macro");
  if (helper_name(name) || member_name(name) || local_name(name))
    return refuse(where, "\"" + name + "\" is a name of the generated code");
  if (functions_.count(name) != 0)
    return refuse(where, "\"" + name + "\" is taken by a record or a call");
  functions_.insert(name);
  return true;
}

/* "ResultSet_Item" for ResultSet<Item>, from the records' C names. */
std::string Namer::c_text(const Type &type) const {
  if (!type.element.empty())
    return type.name + "_" + c_text(type.element[0]);
  auto record = names_->records.find(type.name);
  return record != names_->records.end() ? record->second.c_name : type.name;
}

/* Container types get R_read-like text readers: "List_Long_read". */
void Namer::name_readers(const Type &type) {
  if (type.element.empty())
    return;
  name_readers(type.element[0]);
  std::string &reader = names_->readers[type_text(type)];
  if (!reader.empty())
    return;
  reader = first_free(c_text(type) + "_read", [&](const std::string &name) {
    return functions_.count(name) != 0 || library_name(name);
  });
  functions_.insert(reader);
}

bool Namer::name_all_but_operations(const Schema &schema) {
  if (!given_first(schema.records,
                   [&](const Record &record) { return name_record(record); }))
    return false;
  for (const Record &record : schema.records)
    if (!name_fields(record))
      return false;
  for (const Operation &op : schema.operations)
    if (!name_arguments(op))
      return false;
  for (const Type &type : used_types(schema))
    name_readers(type);
  return true;
}

bool Namer::run(const Schema &schema) {
  if (!name_all_but_operations(schema))
    return false;
  for (const Operation &op : schema.operations)
    if (!check_operation(op.name, "operation " + op.name))
      return false;
  for (const Operation &op : schema.operations)
    if (page_argument(op) != nullptr &&
        !check_operation(op.name + "_each",
                         "operation " + op.name + ", its walk of pages"))
      return false;
  return true;
}

std::string Namer::free_operation_name(const std::string &base) {
  return first_free(base, [&](const std::string &name) {
    return !check_operation(name, "operation " + name);
  });
}

} // namespace

bool plain_identifier(const std::string &name) {
  if (name.empty() || name[0] == '_' || (name[0] >= '0' && name[0] <= '9') ||
      name.find("__") != std::string::npos || keyword(name))
    return false;
  return std::all_of(name.begin(), name.end(), ascii_word);
}

std::string accessor(const std::string &record, const char *verb,
                     const std::string &field) {
  return lower(record) + verb + capitalized(field);
}

std::string unknown_accessor(const std::string &record) {
  return lower(record) + "_unknownMembers";
}

std::string first_free(const std::string &base,
                       const std::function<bool(const std::string &)> &taken) {
  for (int n = 1;; n++)
    if (!taken(numbered(base, n)))
      return numbered(base, n);
}

const std::string &Names::record(const Record &record) const {
  return records.at(record.name).c_name;
}

const std::string &Names::field(const Record &record,
                                const Field &field) const {
  return records.at(record.name).fields.at(field.name);
}

const std::string &Names::argument(const Operation &op,
                                   const Field &argument) const {
  return arguments.at(op.name).at(argument.name);
}

const std::string &Names::reader(const Type &container) const {
  return readers.at(type_text(container));
}

bool name_schema(const Schema &schema, Names *names, std::string *error) {
  return Namer(names, error).run(schema);
}

std::vector<std::string> free_operation_names(const Schema &schema) {
  Names names;
  std::string refusals; /* the names passed over */
  Namer namer(&names, &refusals);
  namer.name_all_but_operations(schema);
  std::vector<std::string> free;
  for (const Operation &op : schema.operations)
    free.push_back(namer.free_operation_name(op.name));
  return free;
}

std::string operation_name(const std::string &path) {
  std::string name = derived(path);
  bool taken = keyword(name) || library_name(name) || system_macro(name) ||
               system_global(name) || helper_name(name) || member_name(name) ||
               local_name(name);
  return taken ? name + "_" : name;
}

} // namespace velmora_gen
