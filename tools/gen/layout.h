/* Generated lines laid out as the project's clang-format lays them out
 * (80 columns), for the few shapes the writers emit. */
#ifndef VELMORA_GEN_LAYOUT_H
#define VELMORA_GEN_LAYOUT_H

#include <string>
#include <vector>

namespace velmora_gen {

/* `head`, the arguments joined by ", ", then `tail`, at `indent`, ending
 * with a line break. Too long for one line, the arguments are packed after
 * the parenthesis that ends `head`, or, when the first does not fit there,
 * on lines indented four more. */
std::string call(const std::string &indent, const std::string &head,
                 const std::vector<std::string> &arguments,
                 const std::string &tail);

/* A function declaration: `type` (a return type, "int" or "char *"),
 * then `name` with its open parenthesis, the parameters and `tail`. A
 * return type that keeps the parameters from fitting goes on its own
 * line. */
std::string declaration(const std::string &type, const std::string &name,
                        const std::vector<std::string> &parameters,
                        const std::string &tail);

/* `left = right;` with `right` (ending in ";") on the next line when the
 * whole does not fit. */
std::string assignment(const std::string &indent, const std::string &left,
                       const std::string &right);

// A block comment of `text`, words wrapped at 80 columns; a comment end
// in the text is broken. An `opener` of "/**" makes it documentation.
std::string comment(const std::string &indent, const std::string &text,
                    const char *opener = "/*");

} // namespace velmora_gen

#endif
