// A script as orv-lint reads it: whatever it contains, each part found has a
// place in it.

#include "bash.h"
#include "fuzz.h"

void fuzz(std::string_view input)
{
  const std::string text(input);
  const bash_script script = read_bash(text);
  const int lines = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  assert(script.code.size() == text.size() && script.commands.size() <= text.size());
  for (const bash_command &command : script.commands) {
    assert(command.line >= 0 && command.line <= lines + 1 && command.substitution >= 0);
    for (const bash_word &word : command.words) {
      assert(word.line >= 1 && word.line <= lines + 1 && word.column >= 1);
      for (const bash_expansion &expansion : word.expansions) {
        assert(expansion.line >= word.line && expansion.line <= lines + 1);
      }
    }
  }
}
