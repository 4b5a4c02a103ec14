#include "parts.h"

#include <map>
#include <set>

namespace velmora_gen {

const size_t records_per_part = 30;

namespace {

/* FNV-1a, then mixed so that names a letter apart land far apart: the
 * same part for a name on every machine and every run. */
size_t part_of(const std::string &name, size_t count) {
  uint32_t hash = 2166136261u;
  for (unsigned char byte : name)
    hash = (hash ^ byte) * 16777619u;
  hash = (hash ^ (hash >> 16)) * 0x85ebca6bu;
  hash = (hash ^ (hash >> 13)) * 0xc2b2ae35u;
  hash ^= hash >> 16;
  return static_cast<size_t>((uint64_t{hash} * count) >> 32);
}

/* `type` and every type within it, inner ones last. */
void named_types(const Type &type, std::vector<const Type *> *out) {
  out->push_back(&type);
  for (const Type &element : type.element)
    named_types(element, out);
}

/* The types a part names: its fields', arguments' and results'. */
std::vector<const Type *> part_types(const Schema &part) {
  std::vector<const Type *> types;
  for (const Record &record : part.records)
    for (const Field &field : record.fields)
      named_types(field.type, &types);
  for (const Operation &op : part.operations) {
    for (const Field &argument : op.arguments)
      named_types(argument.type, &types);
    for (const Type &result : op.result)
      named_types(result, &types);
  }
  return types;
}

/* The `records` that `part` names but does not hold, in the order
 * named. */
std::vector<std::string> called_records(const std::set<std::string> &records,
                                        const Schema &part) {
  std::set<std::string> seen;
  for (const Record &record : part.records)
    seen.insert(record.name);
  std::vector<std::string> called;
  for (const Type *type : part_types(part))
    if (records.count(type->name) != 0 && seen.insert(type->name).second)
      called.push_back(type->name);
  return called;
}

} // namespace

size_t default_parts(const Schema &schema) {
  size_t records = schema.records.size();
  return records == 0 ? 1 : (records + records_per_part - 1) / records_per_part;
}

std::vector<Part> split_schema(const Schema &schema, const Catalog &catalog,
                               size_t count) {
  std::vector<Part> parts(count);
  for (const Record &record : schema.records)
    parts[part_of(record.name, count)].schema.records.push_back(record);
  for (const Operation &op : schema.operations)
    parts[part_of(op.name, count)].schema.operations.push_back(op);
  std::map<std::string, size_t> owner;
  // From the last part back, so that the first part naming a type keeps it.
  for (size_t i = count; i-- > 0;)
    for (const Type *type : part_types(parts[i].schema))
      owner[type_text(*type)] = i;
  for (const Type &type : catalog.containers())
    parts[owner.at(type_text(type))].owned.push_back(type);
  std::set<std::string> records;
  for (const Record &record : schema.records)
    records.insert(record.name);
  for (Part &part : parts)
    part.called = called_records(records, part.schema);
  return parts;
}

std::string part_file(const std::string &base, size_t index) {
  if (index == 0)
    return base + ".cpp";
  return base + "_" + std::to_string(index + 1) + ".cpp";
}

} // namespace velmora_gen
