// Names of values as they stand in scripts.

#include "script_names.h"

#include "text.h"

std::string without_digits(const std::string &name)
{
  return name.substr(0, name.find_last_not_of("0123456789") + 1);
}

static const std::string &key_of(const std::string &name)
{
  return name;
}

static const std::string &
key_of(const std::pair<const std::string, std::string> &value)
{
  return value.first;
}

// The rows' numbers make no order of their own (port10 stands before port2),
// and between the cells can stand other names, as port0_on.
template <class names>
static bool has_row(const names &all, const std::string &column)
{
  auto at = all.lower_bound(column + "0");
  while (at != all.end() && starts_with(key_of(*at), column)) {
    if (key_of(*at).find_first_not_of("0123456789", column.size()) ==
        std::string::npos) {
      return true;
    }
    ++at;
  }
  return false;
}

bool has_cell(const std::set<std::string> &names, const std::string &column)
{
  return has_row(names, column);
}

bool has_cell(const std::map<std::string, std::string> &values,
              const std::string &column)
{
  return has_row(values, column);
}

// "$name" of an array that is given its elements once.
// An array that is given them twice stands there as NULL: which elements it has
// depends on what ran. Slices and the like (${NAMES[@]:1}) are other elements.
static const bash_assignment *
array_of(const std::map<std::string, const bash_assignment *> &arrays,
         const bash_expansion &expansion)
{
  const auto array = arrays.find(expansion.name);
  return array != arrays.end() && expansion.subscript == "@" &&
                 expansion.rest.empty()
             ? array->second
             : nullptr;
}

// --- braces ------------------------------------------------------------------

// Nobody writes a longer list as {0..N} for names of values.
static constexpr int BRACED_MAX = 200;

// The numbers of "0..3"; none where it is something else, as 01..03.
static std::vector<std::string> counted(const std::string &inside)
{
  std::vector<std::string> numbers;
  const size_t dots = inside.find("..");
  const std::string first = inside.substr(0, dots);
  const std::string last =
      dots == std::string::npos ? "" : inside.substr(dots + 2);
  const bool plain =
      !last.empty() && !first.empty() && last.size() < 5 &&
      (first + last).find_first_not_of("0123456789") == std::string::npos &&
      (first == "0" || first[0] != '0');
  for (int i = plain ? std::stoi(first) : 1, end = plain ? std::stoi(last) : 0;
       i <= end; i++) {
    numbers.push_back(std::to_string(i));
  }
  return numbers;
}

// The parts of "a,b" or "0..3"; one where it is neither.
static std::vector<std::string> braced_parts(const std::string &inside)
{
  std::vector<std::string> parts = counted(inside);
  if (!parts.empty()) {
    return parts;
  }
  parts = {""};
  int depth = 0;
  for (const char c : inside) {
    depth += c == '{' ? 1 : c == '}' ? -1 : 0;
    if (c == ',' && depth == 0) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

// in_{on,text}{0..1} as bash expands it: the words in the order of their
// braces.  A "{" that begins no list stays, and is left to the caller.
static std::vector<std::string> expand_braces(const std::string &text)
{
  std::vector<std::string> done;
  std::vector<std::string> open = {text};
  while (!open.empty() && open.size() + done.size() < BRACED_MAX) {
    const std::string word = open.back();
    open.pop_back();
    const size_t begin = word.find('{');
    size_t end = begin;
    for (int depth = 0; end < word.size(); end++) {
      depth += word[end] == '{' ? 1 : word[end] == '}' ? -1 : 0;
      if (depth == 0) {
        break;
      }
    }
    const std::vector<std::string> parts =
        end < word.size()
            ? braced_parts(word.substr(begin + 1, end - begin - 1))
            : std::vector<std::string>();
    if (parts.size() < 2) {
      done.push_back(word);
      continue;
    }
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
      open.push_back(word.substr(0, begin) + *part + word.substr(end + 1));
    }
  }
  return open.empty() ? done : std::vector<std::string>{text};
}

// --- words -------------------------------------------------------------------

// The names that a word without expansions stands for; false also for one that
// bash would expand once more, as mtu*.
static bool add_word(const bash_word &word, const bash_word &place,
                     std::vector<literal_name> *names)
{
  if (word.plain.find('{') == std::string::npos) {
    names->push_back({word.plain, place.line, place.column});
    return word.plain.find_first_of("*?[`$") == std::string::npos;
  }
  const bool quoted = word.text.find_first_of("\"'\\") != std::string::npos;
  bool all = true;
  for (const std::string &name : quoted ? std::vector<std::string>{word.plain}
                                        : expand_braces(word.plain)) {
    names->push_back({name, place.line, place.column});
    all &= name.find_first_of("*?{[`$") == std::string::npos;
  }
  return all;
}

bool add_literals(const script &s, const bash_word &word,
                  std::vector<literal_name> *names)
{
  if (word.expansions.empty()) {
    return add_word(word, word, names);
  }
  // The script's own array hides one of that name in a file that it sources.
  const bash_assignment *own = array_of(s.arrays, word.expansions[0]);
  const bash_assignment *array =
      own != nullptr ? own : array_of(s.sourced_arrays, word.expansions[0]);
  if (array == nullptr || word.expansions.size() != 1) {
    return false;
  }
  bool all = true;
  for (bash_word element : array->elements) {
    if (!element.expansions.empty()) {
      all = false;
      continue;
    }
    // bash takes NAMES=(mtu, queue) for the name "mtu,". Without the comma the
    // rules after this one see what was meant, and one mistake is one finding,
    // which is reported by itself.
    if (element.plain.size() > 1 && element.plain.back() == ',') {
      element.plain.pop_back();
    }
    // A finding has to stand in the file of this script, and elements of a
    // sourced array do not.
    all &= add_word(element, own != nullptr ? element : word, names);
  }
  return all;
}

bool is_value_array(const std::string &name)
{
  return name == "orv" || name == "cfg" || name == "orv_was";
}
