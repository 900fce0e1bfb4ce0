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

// False also for a word that bash would expand once more, as mtu* or {a,b}.
bool add_literals(const script &s, const bash_word &word,
                  std::vector<literal_name> *names)
{
  if (word.expansions.empty()) {
    names->push_back({word.plain, word.line, word.column});
    return word.plain.find_first_of("*?{[`") == std::string::npos;
  }
  // The script's own array hides one of that name in a file that it sources.
  const bash_assignment *own = array_of(s.arrays, word.expansions[0]);
  const bash_assignment *array =
      own != nullptr ? own : array_of(s.sourced_arrays, word.expansions[0]);
  if (array == nullptr || word.expansions.size() != 1) {
    return false;
  }
  bool all = true;
  for (const bash_word &element : array->elements) {
    // A finding has to stand in the file of this script, and elements of a
    // sourced array do not.
    const bash_word &place = own != nullptr ? element : word;
    all &= element.expansions.empty() &&
           element.plain.find_first_of("*?{[`") == std::string::npos;
    if (element.expansions.empty()) {
      // bash takes NAMES=(mtu, queue) for the name "mtu,". Without the comma
      // the rules after this one see what was meant, and one mistake is one
      // finding.
      const bool comma =
          element.plain.size() > 1 && element.plain.back() == ',';
      names->push_back({comma
                            ? element.plain.substr(0, element.plain.size() - 1)
                            : element.plain, // reported by itself
                        place.line, place.column});
    }
  }
  return all;
}

bool is_value_array(const std::string &name)
{
  return name == "orv" || name == "cfg" || name == "orv_was";
}
