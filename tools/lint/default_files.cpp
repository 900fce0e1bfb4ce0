// Files of defaults/ that nothing loads, and which were mostly meant.

#include "default_files.h"

#include <algorithm>

#include "flow.h"
#include "text.h"

// Whether a script has the file's name as a word, or as the end of a path, or a
// beginning of it that an expansion goes on with. A script that reads its files
// itself names them in a path or a redirection, so all words count.
static bool names_file(const script &s, const std::string &name)
{
  const auto same = [&](const bash_word &word) {
    const size_t made = word.plain.find('$');
    return word.plain == name || ends_with(word.plain, "/" + name) ||
           (made != std::string::npos && made > 1 &&
            starts_with(name, word.plain.substr(0, made)));
  };
  return std::any_of(
      s.code.commands.begin(), s.code.commands.end(),
      [&](const bash_command &command) {
        return std::any_of(command.words.begin(), command.words.end(), same) ||
               std::any_of(command.assignments.begin(),
                           command.assignments.end(),
                           [&](const bash_assignment &assignment) {
                             return same(assignment.value);
                           }) ||
               std::any_of(command.redirects.begin(), command.redirects.end(),
                           [&](const bash_redirect &redirect) {
                             return same(redirect.target);
                           });
      });
}

// Values of variables that the library loads files by: orv_load "$FILE". Any
// text counts: which of them is a file's name is not known, and one too many
// only means silence.
static void add_constants(const script &s, std::set<std::string> *values)
{
  for (const bash_command &command : s.code.commands) {
    for (const bash_assignment &assignment : command.assignments) {
      if (assignment.value.expansions.empty() && assignment.elements.empty()) {
        values->insert(assignment.value.plain);
      }
    }
  }
}

// The form without a script that the file was mostly meant for: its sub-items
// have files NAME@SUBITEM. "" without one. clock.lan1 or clock-lan1 was meant
// to be clock@lan1.
static std::string form_of_subitem(const device &dev, const std::string &name)
{
  const size_t mark = name.find_first_of(".-_:~+#");
  const auto f = dev.forms.find(name.substr(0, mark));
  return mark != std::string::npos && f != dev.forms.end() &&
                 keeps_itself(dev, f->second)
             ? f->first
             : "";
}

// Whether any script names the file.
static bool is_named(const device &dev, const std::string &name)
{
  return std::any_of(
      dev.scripts.begin(), dev.scripts.end(),
      [&](const auto &entry) { return names_file(entry.second, name); });
}

// What scripts and forms load.
static std::set<std::string> used_files(const device &dev)
{
  std::set<std::string> used;
  for (const auto &entry : dev.scripts) {
    used.insert(entry.second.settings.begin(), entry.second.settings.end());
    add_constants(entry.second, &used);
  }
  for (const auto &entry : dev.forms) {
    if (keeps_itself(dev, entry.second)) {
      used.insert(entry.first);
    }
  }
  return used;
}

// A file that nothing loads may be for a program of the device. It counts as a
// mistake where its name is nearly that of a file that is loaded and that
// defaults/ lacks.
void check_unused_file(const device &dev, const source_file &file,
                       const std::string &name, findings *found)
{
  const std::string of = form_of_subitem(dev, name);
  if (!of.empty() && !is_named(dev, name)) {
    report(found, file, 1, 1, "default-name",
           "nothing loads the file " + in_quotes(name) +
               ": the settings of a sub-item are in " +
               in_quotes(of + "@" + name.substr(of.size() + 1)));
    return;
  }
  const std::set<std::string> used = used_files(dev);
  const std::string near = nearest(name.substr(0, name.find('@')), used);
  if (!near.empty() && dev.defaults.count(near) == 0 && !is_named(dev, name)) {
    report(found, file, 1, 1, "default-name",
           "nothing loads the file " + in_quotes(name) +
               did_you_mean(name, used));
  }
}
