// Bash as far as orv-lint must understand it: the commands of a script with
// their words, what is expanded in each word and how it stands there.
//
// A reader, not a parser: it follows quotes, substitutions, blocks and here-
// documents closely enough that a word is distinguished from a comment, and it
// takes anything that bash would refuse without complaint.

#ifndef LINT_BASH_H
#define LINT_BASH_H

#include <set>
#include <string>
#include <vector>

struct bash_expansion {
  std::string name;      // of a variable or parameter
  std::string subscript; // between [ and ], "" without
  std::string rest;      // operator and word of ${name...}
  bool quoted = false;
  bool indirect = false;   // ${!name}
  bool length = false;     // ${#name}
  bool arithmetic = false; // evaluated as a number
  bool based = false;      // behind 10# or 0x: its first digits have this base
  int line = 0;
  int column = 0;
};

struct bash_word {
  std::string text;  // as written
  std::string plain; // without the quotes
  int line = 0;
  int column = 0;
  std::vector<bash_expansion> expansions;
};

struct bash_redirect {
  std::string op;
  bash_word target;
};

struct bash_assignment {
  std::string name;
  bool appends = false; // NAME+=VALUE
  std::string subscript;
  bash_word value;
  std::vector<bash_word> elements; // of NAME=(...)
};

enum bash_kind {
  BASH_SIMPLE,
  BASH_TEST,       // [[ ]]
  BASH_ARITHMETIC, // (( ))
  BASH_FOR,        // words: the variable, then the list
  BASH_CASE,       // words: the subject
  BASH_BLOCK,      // the end of a compound command, with its redirections
};

// A part of a compound command that may not run, or that runs in a subshell.
struct bash_branch {
  int parent;          // the branch that contains it, -1: none
  int group;           // the same for all arms of one if or case
  std::string kind;    // "if", "while", "until", "for", "case", "&&", "||", "("
  int test;            // the command that decides: of a case, its subject
  bool otherwise;      // after else
  std::string pattern; // of a case's arm
  int before = -1;     // the arm before it
  int line = 0;        // of the pattern
  int column = 0;
};

struct bash_command {
  bash_kind kind = BASH_SIMPLE;
  std::vector<bash_assignment> assignments;
  std::vector<bash_word> words;
  std::vector<bash_redirect> redirects;
  std::vector<std::string> patterns; // of a case, as written
  std::string function;              // that contains it, "" outside of any
  int substitution = 0;              // the number of $( ) around it
  int branch = -1;                   // that contains it
  int previous = -1;                 // whose status decides, with `join`
  std::string join;                  // "&&", "||", or ""
  bool negated = false;              // after !
  bool condition = false;            // its status decides on something
  bool decides = false;              // a branch or a later command names it
  bool background = false;           // ended by &
  bool piped = false;                // its output goes into a pipe
  bool piped_in = false;             // its input comes from one
  bool redirected_in = false; // the same for a file, or for a block around it
  bool redirected_out = false;
  int line = 0;
  int column = 0;
};

// A compound command that is still open at the end of the text.
struct bash_open {
  std::string word; // that opened it
  int line;
};

struct bash_script {
  std::vector<bash_command> commands; // in the order of their ends
  std::vector<bash_branch> branches;
  std::set<std::string> functions;
  std::vector<bash_open> open;
  std::vector<std::vector<bash_word>> documents; // here-documents, by lines
  std::string code; // the text, comments replaced by blanks
};

bash_script read_bash(const std::string &text);

// Whether a number as it is written says its base: 10#7, 0x7, or the start of
// one.
bool has_base(const std::string &number);

#endif
