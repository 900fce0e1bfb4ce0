// A page's posted values, as its script reads them.

#include <set>
#include <sstream>

#include "intake.h"
#include "store.h"

// What "a b# c1 orv_stamp" asks for.
static bool is_wanted(const std::string &name)
{
  const std::string row = name.substr(0, 1) == "b" ? name.substr(1) : "";
  const bool is_row = !row.empty() && row.size() <= 2 &&
                      row.find_first_not_of("0123456789") == row.npos;
  return is_row || name == "a" || name == "c1" || name == "orv_stamp";
}

void fuzz(std::string_view input)
{
  dup2(fuzz_file(input), STDIN_FILENO);
  fuzz_folder();
  char *text = nullptr;
  size_t length = 0;
  FILE *out = open_memstream(&text, &length);
  const bool taken = intake_read("none") && intake_write(out);
  fclose(out);
  assert(taken != fuzz_fault());
  // Each line is a plain name once and a bounded value, so bash can take it.
  std::string last;
  for (char *line = text; taken && *line != '\0';) {
    char *end = strchr(line, '\n');
    char *equals = strchr(line, '=');
    assert(end != nullptr && equals != nullptr && equals < end);
    const std::string name(line, equals);
    assert(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") ==
               name.npos &&
           name > last && name.size() <= 52 && end - equals <= 1000);
    last = name;
    line = end + 1;
  }
  free(text);
  // A script gets only the names that it asks for, each at most once.
  char names[] = "a b# c1 orv_stamp";
  out = open_memstream(&text, &length);
  const bool wrote = intake_is_clear() && intake_write_wanted(out, names);
  fclose(out);
  assert(wrote != fuzz_fault());
  std::set<std::string> seen;
  int head = wrote ? 2 : 0; // lines of names alone
  std::istringstream lines(wrote ? text : "");
  for (std::string line; std::getline(lines, line); head--) {
    const std::string name = line.substr(0, line.find('='));
    assert(head > 0 || (seen.insert(name).second && is_wanted(name)));
  }
  free(text);
  intake_forget();
}
