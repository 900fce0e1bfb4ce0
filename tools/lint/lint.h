// orv-lint: what its files share.
//
// A device folder is read once into plain records: its templates as forms, its
// scripts as commands.  Every rule is a function that looks at the records and
// adds findings; none changes them, and none depends on another having run.

#ifndef LINT_H
#define LINT_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "bash.h"
#include "orv_parser.h"

// --- findings ----------------------------------------------------------------

// A file as it is shown in findings and as it was read.
struct source_file {
  std::string path;
  std::string text;
  std::vector<std::string> lines; // without their line ends
};

// A place in a file; line and column count from 1.
struct place {
  std::string path;
  int line;
  int column;
};

struct note {
  place at;
  std::string text;
};

struct finding {
  place at;
  std::string rule; // a name of the rule table
  std::string text;
  std::vector<note> notes;
};

typedef std::vector<finding> findings;

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
  std::set<std::string> stems;      // words that an expansion goes on with
};

// --- the device --------------------------------------------------------------

struct device {
  std::string dir;
  std::map<std::string, source_file> files; // by path
  std::map<std::string, form> forms;        // by name
  std::map<std::string, script> scripts;    // by name
  std::set<std::string> settings;           // files of defaults/ and state/
  std::vector<std::string> unread;          // for lack of permission
};

// Reads a whole folder.  False when it holds no templates/.
bool read_device(const std::string &dir, device *dev, findings *found);

// Reads and parses one template; tells all that the parser refuses.
void read_form(const source_file &file, const std::string &name, form *into,
               findings *found);

// Whether the item has a value that a user enters.
bool is_editable(const form_item &item);
bool is_input(const form_item &item);
// The item's line of that keyword, NULL when it has none.
const form_line *attribute(const form_item &item, const char *keyword);
// Whether a Submit of the form could run its check and write scripts.
bool can_save(const form &f);
// The four forms that the system itself shows.
extern const std::vector<std::string> special_forms;
bool is_special(const std::string &form);

// orv.bash and its other half: what they do is known, and not judged here.
bool is_library(const std::string &name);
// What the library's functions are called: those of the file at hand, too.
extern std::set<std::string> library_functions;
// The script and all that it sources, the library left out.
std::set<std::string> with_sources(const device &dev, const std::string &name);
// The forms whose header lines run the script, or one that sources it.
std::vector<const form *> forms_of(const device &dev, const std::string &name);

// --- telling -----------------------------------------------------------------

void tell(findings *found, const source_file &file, int line, int column,
          const char *rule, const std::string &text,
          const std::vector<note> &notes = {});
// The same at a line of a form, `offset` characters into its text.
void tell(findings *found, const form &f, const form_line &line, size_t offset,
          const char *rule, const std::string &text,
          const std::vector<note> &notes = {});

enum output_format { FORMAT_TEXT, FORMAT_GCC, FORMAT_JSON };

// Drops what comments switch off, sorts, and writes to standard output.  The
// number of findings.
size_t write_findings(const device &dev, findings *found, output_format format,
                      bool warnings_are_errors);

// --- rules -------------------------------------------------------------------

struct rule_text {
  const char *name;
  const char *text; // the level, a summary, an explanation and examples
};

// All rules, by name; ended by a row without a name.
extern const rule_text rule_texts[];

const rule_text *find_rule(const std::string &name);
bool is_error(const std::string &rule);
void explain(const rule_text &rule);
void list_rules(void);

void check_texts(const device &dev, findings *found);
void check_conditions(const device &dev, findings *found);
void check_names(const device &dev, findings *found);
void check_items(const device &dev, findings *found);
void check_modes(const device &dev, findings *found);
void check_checks(const device &dev, findings *found);
void check_links(const device &dev, findings *found);
void check_headers(const device &dev, findings *found);
void check_exchange(const device &dev, findings *found);
void check_scripts(const device &dev, findings *found);
void check_input(const device &dev, findings *found);

// What bash and shellcheck say; begun early, since they take the longest.
struct other_tools {
  int shellcheck; // the stream of its findings, or -1
  int pid;
};
other_tools begin_tools(const device &dev, bool shellcheck);
void end_tools(const device &dev, other_tools *tools, findings *found);

// Runs the read and navigation scripts in a copy of the folder.
void run_scripts(const device &dev, findings *found);

// What some editors put in front of a file.
constexpr char BYTE_ORDER_MARK[] = "\xef\xbb\xbf";

// --- text --------------------------------------------------------------------

std::vector<std::string> split_lines(const std::string &text);
std::vector<std::string> split_words(const std::string &text);
std::string lower(std::string text);
bool starts_with(const std::string &text, const std::string &start);
bool ends_with(const std::string &text, const std::string &end);
bool is_name_char(char c);
std::string in_quotes(const std::string &text);
// The one of `words` that `word` was most likely meant to be, or "".
std::string nearest(const std::string &word,
                    const std::set<std::string> &words);
// ` (did you mean "x"?)`, or "" when nothing is near.
std::string did_you_mean(const std::string &word,
                         const std::set<std::string> &words);
// Whether a name is that of a secret.
bool is_secret(const std::string &name);

#endif
