// A device's folder as orv-lint has read it: its templates as forms, its
// scripts as commands.  It is read once and then looked at alone.

#ifndef LINT_DEVICE_H
#define LINT_DEVICE_H

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "bash.h"
#include "findings.h"
#include "orv_parser.h"

// --- forms -------------------------------------------------------------------

// The script lines of a header, in the order of their run.
enum script_task { TASK_READ, TASK_CHECK, TASK_WRITE, TASK_NAVBAR, TASKS };

// A form's script line; a default one has the line number 0.
struct script_line {
  std::string keyword;
  std::string text;
  int line;
  int column;
  std::string script; // the file's name below scripts/; "" when elsewhere
};

// A condition that an item stands in, and whether it must hold.
struct condition {
  std::string text;
  bool holds;
  int line; // of the if or ifnot
};

// A keyword line, or a line that goes on the text of the one before it.
struct form_line {
  int number;
  bool header;
  std::string keyword; // in small letters; that of the line it continues
  bool continues;
  std::string text; // the parameter, without its comment
  int column;       // where it begins
  int item;         // index of the item that it makes or describes, or -1
  std::vector<condition> conditions; // what it stands in
};

struct form_item {
  pt_type type;
  int line;
  std::string name;     // "" where it has none
  std::string selector; // of iselect and imenu
  bool input;           // has something to submit, or a value that is shown
  int columns;          // of a table
  int table;            // index of the table that it is a cell of, or -1
  std::vector<const form_line *> lines; // its own first
  std::vector<condition> conditions;
};

struct form {
  std::string name;
  const source_file *file;
  std::vector<form_line> lines;
  std::vector<form_item> items;
  std::vector<script_line> scripts; // by task, defaults filled in
  // The names of the files that its read, check and write scripts consist of.
  std::set<std::string> runs;
};

// --- scripts -----------------------------------------------------------------

struct script {
  std::string name; // below scripts/
  const source_file *file;
  bool executable;
  bash_script code;
  std::vector<std::string> sources; // names of the scripts that it sources
  std::set<std::string> words;      // of its code, comments left out
  std::unordered_map<std::string, int>
      counts;                  // how often each of them stands there
  std::set<std::string> stems; // words that an expansion goes on with
  // The commands of its functions by their names, "" outside of any.
  std::map<std::string, std::vector<const bash_command *>> functions;
  // What arrays are given, by name; NULL for one that is given it twice.
  std::map<std::string, const bash_assignment *> arrays;
  // The same of what it sources.
  std::map<std::string, const bash_assignment *> sourced_arrays;
  // Variables that hold the path of a folder beside the script.
  std::map<std::string, std::string> own_folders;
  std::set<std::string> settings; // files that it loads or stores
  std::set<std::string> loaded;   // those that it loads
};

// The command's place among those of the script, as branches and lists name it.
int index_of(const script &s, const bash_command &command);

// --- the device --------------------------------------------------------------

// A line of a form's header that runs a script.
struct form_task {
  const form *f;
  script_task task;
};

struct device {
  std::string dir;
  source_files files;
  std::map<std::string, form> forms;     // by name
  std::map<std::string, script> scripts; // by name
  // Those in other languages: no more than their words.
  std::map<std::string, script> others;
  // What root runs, by "actions/NAME" and "migrate/NAME".
  std::map<std::string, script> programs;
  std::set<std::string> settings; // files of defaults/ and state/
  std::set<std::string> library;  // what its functions are called
  std::set<std::string> library_variables;
  std::set<std::string> odd;        // what in scripts/ is no file
  std::set<std::string> keepers;    // links there to orv-store, by name
  const source_file *bar = nullptr; // the lines that those print; NULL: none
  std::map<std::string, const source_file *> defaults; // by name
  // The forms whose header lines run a script, or one that sources it.
  std::map<std::string, std::vector<const form *>> forms_of;
  // The header lines that run a script itself, those of bars among them.
  std::map<std::string, std::vector<form_task>> tasks_of;
  bool has_system_type = false;
  std::set<std::string> system_names; // of the system-type file
  std::vector<std::string> unread;    // for lack of permission
};

// Reads a whole folder.  False when it holds no templates/.
bool read_device(const std::string &dir, device *dev, findings *found);

// Reads and parses one template; reports all that the parser refuses.
void read_form(const source_file &file, const std::string &name, form *into,
               findings *found);

// Fills in what the library has, those of the folder's own among `names` first.
void read_library(device *dev, const std::vector<std::string> &names);

// Fills in which scripts the form runs.
void find_scripts(const device &dev, form *f);

// Whether the item has a value that a user enters.
bool is_editable(const form_item &item);
bool is_input(const form_item &item);
// The item's line of that keyword, NULL when it has none.
const form_line *attribute(const form_item &item, const char *keyword);

// The rows of the table of a cell if their number is fixed, 0 of any other
// table: without a number in its line it ends at the first blank row.
long fixed_rows(const form &f, const form_item &cell);
// The value of a line that is a choice.
std::string choice_value(const form &f, const form_line &line);
std::set<std::string> choices_of(const form &f, const form_item &item);
// Whether the script of the line is due in the folder and not there.
bool lacks_script(const device &dev, const script_line &line);
// Whether the form has no script: orv-store keeps its settings.
bool keeps_itself(const device &dev, const form &f);
// The number of the argument that is the sub-item, 0 when none is.
size_t subitem_argument(const script_line &line);
// Whether the form's own lines use the sub-item.
bool uses_subitem(const form &f);
// Whether a Submit of the form could run its check and write scripts.
bool can_save(const form &f);
// The four forms that the system itself shows.
extern const std::vector<std::string> special_forms;
bool is_special(const std::string &form);

// The files of the library: what they do is known, and not judged here.
std::vector<std::string> library_names(void);
bool is_library(const std::string &name);
// A file without an interpreter and without the right to be executed is one
// that others source.
bool is_sourced_only(const script &s);
// Whether a path begins with the folder of the script that names it.
bool is_own_path(const std::string &word);
// The word, with the value of a variable that it begins with and that holds the
// path of such a folder.
std::string with_own_folder(const script &s, const std::string &word);
// The name below scripts/ of a file that the script `from` sources as `word`,
// "" when it lies elsewhere.
std::string sourced_name(const std::string &from, const std::string &word);
// Whether the bar that the script prints leads to a change that waits to be
// kept, while there is one.
bool leads_to_pending(const device &dev, const std::string &bar);
// The script and all that it sources, the library left out.
std::set<std::string> with_sources(const device &dev, const std::string &name);
const std::vector<const form *> &forms_of(const device &dev,
                                          const std::string &name);

// A finding at a line of a form, `offset` characters into its text.
void report(findings *found, const form &f, const form_line &line,
            size_t offset, const char *rule, const std::string &text,
            const std::vector<note> &notes = {});

#endif
