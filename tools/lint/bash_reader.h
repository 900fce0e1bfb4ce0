// What the parts of the reader of bash share; nothing for its users.
//
// The text is read once, from its start to its end.  A function named read_...
// begins at `at` and leaves it behind what it has taken; none fails, since all
// that bash would refuse is taken as it stands.

#ifndef LINT_BASH_READER_H
#define LINT_BASH_READER_H

#include <stddef.h>

#include "bash.h"

namespace bash_reading
{

struct block {
  std::string kind; // the word that opened it
  size_t begin;     // of its commands
  std::string function_before;
  bool piped_in;
  bool patterns; // of a case: a pattern comes next
  int line;
  int branch_before;
  int group;
  size_t tests;     // where its tests begin, of the arm being read
  std::string join; // with what stands before it
  int previous;
  int last_arm = -1;
};

struct here_document {
  std::string end;
  bool strip_tabs;
};

struct reader {
  const std::string &in;
  bash_script &out;
  size_t at = 0;
  int line = 1;
  size_t line_start = 0;
  std::string function = {};
  std::string next_function = {}; // whose block comes next
  int substitution = 0;
  int branch = -1;
  int groups = 0; // compound commands so far
  int depth = 0;  // of what is opened by "$", "<(" and ">("
  std::vector<here_document> documents = {};
};

// Nobody writes deeper than this; a file that does must not use up the stack.
constexpr int DEPTH_MAX = 200;

// The list of commands being read.
struct list {
  std::vector<block> blocks;
  bash_command current;
  bool condition = false; // the next command decides on something
  bool piped_in = false;
  bool negated = false;
  std::string join; // of the next command with the one before it
  int previous = -1;
  char closer; // ends the list, '\0': the end of the text does
};

// --- the text ----------------------------------------------------------------

bool done(const reader &r);
// The character there, '\0' behind the end.
char peek(const reader &r, size_t ahead = 0);
bool looking_at(const reader &r, const char *text);
// All reading goes through here, so that lines are counted once.
void step(reader &r, size_t count = 1);
int column(const reader &r);
void skip_comment(reader &r);
void skip_blanks(reader &r);
// Blanks, line ends and comments.
void skip_space(reader &r);
// The text of here-documents is data, whatever it looks like.
void skip_documents(reader &r);

// --- words -------------------------------------------------------------------

bool is_word_char(char c);
bool is_name(const std::string &text);
// Whether the character, or the end of the text, ends a word.
bool ends_word(char c);
// One word, empty when none comes.  Inside of [[ ]] fewer characters end it.
bash_word read_word(reader &r, bool in_test);
// '...' and "...", which come next; expansions in the second are quoted.
void read_single(reader &r, bash_word &word);
void read_double(reader &r, bash_word &word);
// `...`, read as a script of its own: a backslash means less in there.
void read_backticks(reader &r);
// A process or command substitution whose "(" comes next.
void read_substitution(reader &r);
// What begins with "$".
void read_dollar(reader &r, bash_word &word, bool quoted, bool arithmetic);
// Text of any kind up to an unquoted `end`; what is opened in it is closed.
void read_nested(reader &r, bash_word &word, char open, char end, bool quoted,
                 bool arithmetic);
// Arithmetic up to the unquoted `end` (")" or "]"), which is left.
void read_arithmetic(reader &r, bash_word &word, char end);

// --- blocks ------------------------------------------------------------------

// The end of the current command.
void finish(reader &r, list &l);
// The number of the last one, -1 before the first.
int last_command(const reader &r);
void open_block(reader &r, list &l, const std::string &kind);
void close_block(reader &r, list &l);
void open_branch(reader &r, const bash_branch &branch);
// The same for one more arm of the block.
void open_arm(reader &r, block &open, bash_branch branch);
// The branch that the block itself stands in.
int outer_branch(const reader &r, const block &open);
// then, do, elif and else begin or end an arm of the innermost block.
void read_arm(reader &r, list &l, const std::string &word);

// --- commands ----------------------------------------------------------------

// Takes NAME=..., NAME+=... or NAME[...]=... where one comes.
bool read_assignment(reader &r, list &l);
// Behind another word NAME=VALUE is an argument.
bool takes_assignments(const bash_command &command);
// Reads a redirection where one comes.
bool read_redirect(reader &r, list &l);
// Commands up to `closer`, '\0': up to the end of the text.
void read_list(reader &r, char closer);

} // namespace bash_reading

#endif
