#include "reserved_names.h"

#include <algorithm>
#include <iterator>

namespace velmora_gen {

namespace {

/* Sorted, for binary search; C++20's too, for users who build with it. */
const char *const keywords[] = {
    "alignas",       "alignof",     "and",
    "and_eq",        "asm",         "auto",
    "bitand",        "bitor",       "bool",
    "break",         "case",        "catch",
    "char",          "char16_t",    "char32_t",
    "char8_t",       "class",       "co_await",
    "co_return",     "co_yield",    "compl",
    "concept",       "const",       "const_cast",
    "consteval",     "constexpr",   "constinit",
    "continue",      "decltype",    "default",
    "delete",        "do",          "double",
    "dynamic_cast",  "else",        "enum",
    "explicit",      "export",      "extern",
    "false",         "float",       "for",
    "friend",        "goto",        "if",
    "inline",        "int",         "long",
    "mutable",       "namespace",   "new",
    "noexcept",      "not",         "not_eq",
    "nullptr",       "operator",    "or",
    "or_eq",         "private",     "protected",
    "public",        "register",    "reinterpret_cast",
    "requires",      "return",      "short",
    "signed",        "sizeof",      "static",
    "static_assert", "static_cast", "struct",
    "switch",        "template",    "this",
    "thread_local",  "throw",       "true",
    "try",           "typedef",     "typeid",
    "typename",      "union",       "unsigned",
    "using",         "virtual",     "void",
    "volatile",      "wchar_t",     "while",
    "xor",           "xor_eq"};

const char *const member_names[] = {"int32_t", "int64_t", "uint64_t",
                                    "unknown_members"};

const char *const local_names[] = {"body",       "calloc", "code",  "context",
                                   "copy",       "free",   "in",    "out",
                                   "properties", "record", "reply", "request",
                                   "result",     "self",   "slot",  "value"};

const char *const reader_locals[] = {
    "c",      "cell",    "copier", "deleter", "dict",    "document",
    "end",    "entries", "entry",  "field",   "found",   "from",
    "json",   "length",  "list",   "member",  "members", "name",
    "object", "parser",  "read",   "set",     "text",    "writer"};

bool listed(const char *const *begin, const char *const *end,
            const std::string &name) {
  return std::find(begin, end, name) != end;
}

} // namespace

bool keyword(const std::string &name) {
  return std::binary_search(
      std::begin(keywords), std::end(keywords), name,
      [](const std::string &a, const std::string &b) { return a < b; });
}

bool member_name(const std::string &name) {
  return listed(std::begin(member_names), std::end(member_names), name);
}

bool local_name(const std::string &name) {
  return listed(std::begin(local_names), std::end(local_names), name);
}

bool reader_local(const std::string &name) {
  return listed(std::begin(reader_locals), std::end(reader_locals), name);
}

} // namespace velmora_gen
