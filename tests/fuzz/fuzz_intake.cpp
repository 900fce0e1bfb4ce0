// A page's posted values, as its script reads them.

#include <regex>
#include <set>
#include <sstream>

#include "intake.h"
#include "store.h"

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
    assert(head > 0 || (seen.insert(name).second &&
                        std::regex_match(name, std::regex("a|b[0-9]{1,2}|c1|"
                                                          "orv_stamp"))));
  }
  free(text);
  intake_forget();
}
