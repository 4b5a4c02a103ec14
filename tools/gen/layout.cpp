#include "layout.h"

#include <algorithm>
#include <sstream>

namespace velmora_gen {

namespace {

const size_t columns = 80;

/* The arguments packed from column `used` (the end of `text`), wrapped
 * lines starting with `pad`; all of them always, and false when some piece
 * does not fit (a name longer than a line still makes code). */
bool pack(std::string *text, size_t used, const std::string &pad,
          const std::vector<std::string> &arguments, const std::string &tail) {
  bool fits = true;
  for (size_t i = 0; i < arguments.size(); i++) {
    std::string piece = arguments[i] + (i + 1 < arguments.size() ? "," : tail);
    if (i > 0 && used + 1 + piece.size() > columns) {
      *text += "\n" + pad;
      used = pad.size();
    } else if (i > 0) {
      *text += " ";
      used++;
    }
    *text += piece;
    used += piece.size();
    fits = fits && used <= columns;
  }
  *text += "\n";
  return fits;
}

std::string one_line(const std::string &head,
                     const std::vector<std::string> &arguments,
                     const std::string &tail) {
  std::string text = head;
  for (size_t i = 0; i < arguments.size(); i++)
    text += (i == 0 ? "" : ", ") + arguments[i];
  return text + tail;
}

/* Packed after the parenthesis that ends `head`, when everything fits. */
bool aligned(std::string *text, const std::string &head,
             const std::vector<std::string> &arguments,
             const std::string &tail) {
  size_t line = head.find_last_of('\n');
  size_t column =
      line == std::string::npos ? head.size() : head.size() - line - 1;
  *text = head;
  return pack(text, column, std::string(column, ' '), arguments, tail);
}

std::string broken(const std::string &indent, const std::string &head,
                   const std::vector<std::string> &arguments,
                   const std::string &tail) {
  std::string text = head + "\n" + indent + "    ";
  pack(&text, indent.size() + 4, indent + "    ", arguments, tail);
  return text;
}

size_t lines(const std::string &text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

std::string call(const std::string &indent, const std::string &head,
                 const std::vector<std::string> &arguments,
                 const std::string &tail) {
  std::string text = one_line(indent + head, arguments, tail);
  if (text.size() <= columns || arguments.empty())
    return text + "\n";
  /* Within an if's parenthesis, wrapped arguments go four columns deeper. */
  std::string pad = indent + (head.compare(0, 4, "if (") == 0 ? "    " : "");
  std::string wrapped = broken(pad, indent + head, arguments, tail);
  // clang-format takes the layout of fewer lines, the aligned one on a tie.
  if (aligned(&text, indent + head, arguments, tail) &&
      lines(text) <= lines(wrapped))
    return text;
  return wrapped;
}

std::string declaration(const std::string &type, const std::string &name,
                        const std::vector<std::string> &parameters,
                        const std::string &tail) {
  std::string space = type.back() == '*' ? "" : " ";
  std::string text = one_line(type + space + name, parameters, tail);
  if (text.size() <= columns)
    return text + "\n";
  if (aligned(&text, type + space + name, parameters, tail) ||
      aligned(&text, type + "\n" + name, parameters, tail))
    return text;
  if (type.size() + space.size() + name.size() > columns)
    return broken("", type + "\n" + name, parameters, tail);
  return broken("", type + space + name, parameters, tail);
}

std::string assignment(const std::string &indent, const std::string &left,
                       const std::string &right) {
  if (indent.size() + left.size() + 3 + right.size() <= columns)
    return indent + left + " = " + right + "\n";
  return indent + left + " =\n" + indent + "    " + right + "\n";
}

std::string comment(const std::string &indent, const std::string &text,
                    const char *opener) {
  std::string safe = text;
  for (size_t at = safe.find("*/"); at != std::string::npos;
       at = safe.find("*/", at))
    safe.insert(at + 1, " ");
  std::istringstream words(safe);
  std::string word, line = indent + opener, out;
  while (words >> word) {
    if (line.size() + 1 + word.size() > columns && line != indent + opener) {
      out += line + "\n";
      line = indent + " *";
    }
    line += " " + word;
  }
  if (line.size() + 3 > columns) {
    out += line + "\n";
    line = indent;
  }
  return out + line + " */\n";
}

} // namespace velmora_gen
