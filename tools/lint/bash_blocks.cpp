// Compound commands of bash: where each begins and ends, and its arms.

#include "bash_reader.h"

namespace bash_reading
{

// Ends the current command. An empty one (between ";" and a line end) leaves
// the state for the next: "!" or "if" may be followed by a line end. What
// decides on the command, and how it is joined, was noted before its first word
// came.
void finish(reader &r, list &l)
{
  bash_command &command = l.current;
  if (!command.words.empty() || !command.assignments.empty() ||
      !command.redirects.empty() || command.kind != BASH_SIMPLE) {
    command.function = r.function;
    command.substitution = r.substitution;
    command.condition |= l.condition;
    command.piped_in |= l.piped_in;
    command.branch = r.branch;
    command.negated = l.negated;
    command.join = l.join;
    command.previous = l.previous;
    for (const bash_redirect &redirect : command.redirects) {
      command.redirected_in |= redirect.op[0] == '<';
      command.redirected_out |= redirect.op.find('>') != std::string::npos;
    }
    r.out.commands.push_back(command);
    l.condition = false;
    l.piped_in = false;
    l.negated = false;
    l.join.clear();
    l.previous = -1;
  }
  l.current = bash_command();
}

// Redirections and a pipe after a compound command apply to all commands in it.
// A "|" or a "<FILE" behind `done` comes when the commands of the loop have
// long been read, so they are marked afterwards. `||` is no pipe.
static void finish_block(reader &r, list &l, const block &closed)
{
  bash_command &tail = l.current;
  tail.kind = BASH_BLOCK;
  tail.line = r.line;
  tail.column = column(r);
  l.join = closed.join;
  l.previous = closed.previous;
  do {
    skip_blanks(r);
  } while (read_redirect(r, l));
  const bool piped = peek(r) == '|' && peek(r, 1) != '|';
  bool in = closed.piped_in;
  bool out = false;
  for (const bash_redirect &redirect : tail.redirects) {
    in |= redirect.op[0] == '<';
    out |= redirect.op.find('>') != std::string::npos;
  }
  for (size_t i = closed.begin; i < r.out.commands.size(); i++) {
    r.out.commands[i].redirected_in |= in;
    r.out.commands[i].redirected_out |= out;
    r.out.commands[i].piped |= piped;
  }
}

int last_command(const reader &r)
{
  return static_cast<int>(r.out.commands.size()) - 1;
}

void open_branch(reader &r, const bash_branch &branch)
{
  r.out.branches.push_back(branch);
  r.branch = static_cast<int>(r.out.branches.size()) - 1;
}

// Each arm knows the one before it: it runs only where that one did not.
void open_arm(reader &r, block &open, bash_branch branch)
{
  branch.before = open.last_arm;
  open_branch(r, branch);
  open.last_arm = r.branch;
}

// A function's name applies to the block that follows it. Its commands run when
// it is called, so they are in no branch of the place where it is defined.
// Behind && or || the block as a whole is a branch that may not run. What joins
// it is taken from its first command, which it does not concern.
void open_block(reader &r, list &l, const std::string &kind)
{
  const block open = {kind,
                      r.out.commands.size(),
                      r.function,
                      l.piped_in,
                      kind == "case",
                      r.line,
                      r.branch,
                      r.groups++,
                      r.out.commands.size(),
                      l.join,
                      l.previous};
  l.blocks.push_back(open);
  l.piped_in = false;
  l.join.clear();
  l.previous = -1;
  if ((kind == "{" || kind == "(") && !r.next_function.empty()) {
    r.function = r.next_function;
    r.next_function.clear();
    r.branch = -1;
  } else if (!open.join.empty()) {
    open_branch(r, {r.branch, r.groups++, open.join, open.previous, false, ""});
  }
  if (kind == "(") { // a branch, so that an exit in it ends only the subshell
    open_branch(r, {r.branch, open.group, kind, -1, false, ""});
  }
}

// The branch that contains the block itself. While an arm is open, the current
// branch is that arm, and all arms of a block have its group.
int outer_branch(const reader &r, const block &open)
{
  const size_t arm = static_cast<size_t>(r.branch);
  return r.branch >= 0 && r.out.branches[arm].group == open.group
             ? r.out.branches[arm].parent
             : r.branch;
}

// then, do, elif and else begin or end an arm of the innermost block.  The last
// command before "then" decides; a "for" has no such command.
void read_arm(reader &r, list &l, const std::string &word)
{
  if (l.blocks.empty()) {
    return;
  }
  block &open = l.blocks.back();
  const int outer = outer_branch(r, open);
  if (word == "elif") {
    r.branch = outer;
    open.tests = r.out.commands.size();
  } else if (word == "else") {
    open_arm(r, open, {outer, open.group, open.kind, -1, true, ""});
  } else if (word == "then" || word == "do") {
    // `while` without a command in front of `do`, in a script that is being
    // written, has nothing that decides.
    const bool tested = r.out.commands.size() > open.tests;
    open_arm(r, open,
             {outer, open.group, open.kind,
              tested && open.kind != "for" ? last_command(r) : -1, false, ""});
  }
}

// A "fi" or "}" that closes nothing is passed over; bash -n says that it is
// wrong.
void close_block(reader &r, list &l)
{
  finish(r, l);
  if (l.blocks.empty()) {
    return;
  }
  const block closed = l.blocks.back();
  l.blocks.pop_back();
  r.function = closed.function_before;
  r.branch = closed.branch_before;
  finish_block(r, l, closed);
}

} // namespace bash_reading
