// orv-lint: reports what is wrong with the templates and scripts of a device.

#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <list>

#include "rules.h"
#include "terminal.h"
#include "text.h"
#include "translations.h"

#ifndef ORV_VERSION
#define ORV_VERSION "unknown"
#endif

// A build that runs the program must tell a device with mistakes from one that
// nobody looked at; diff has the same three.
static constexpr int EXIT_FINDINGS = 1;
static constexpr int EXIT_TROUBLE = 2;

struct options {
  output_format format = FORMAT_TEXT;
  bool warnings_are_errors = false;
  bool run = false;
  bool shellcheck = true;
};

static void usage(FILE *to)
{
  fputs(
      "usage: orv-lint [--run] [--werror] [--no-shellcheck]\n"
      "                [--format=text|gcc|json] DIR...\n"
      "       orv-lint --explain RULE\n"
      "       orv-lint --rules | --version | --help\n"
      "\n"
      "Reports every mistake in a device folder, which holds templates/ and\n"
      "scripts/.  Silent, with status 0, when there is none; status 1 when\n"
      "there is one, 2 when it could not look.  Folders of one device in\n"
      "several languages are compared with each other.\n"
      "\n"
      "  --run            run the read and navigation scripts, too, in a\n"
      "                   copy of the folder\n"
      "  --werror         call warnings errors\n"
      "  --no-shellcheck  leave out what shellcheck says\n"
      "  --format=FORMAT  text (a terminal shows the source line), gcc or\n"
      "                   json\n"
      "  --explain RULE   a rule, why it is there, and how to do better\n"
      "  --rules          all rules\n"
      "\n"
      "The comment \"# orv-lint: off RULE\" in a line, or above it, switches\n"
      "a rule off for that line.\n",
      to);
}

// A folder, and what was found while it was read.
struct tree {
  device dev;
  findings found;
};

// Nothing of a folder is reported before all are read: translations are
// compared in pairs, and a finding belongs to the folder that was named later.
// Reads one folder; false when that cannot be read.
static bool read_tree(const std::string &dir, tree *t)
{
  if (!read_device(dir, &t->dev, &t->found)) {
    terminal_print(stderr,
                   "orv-lint: %s: no folder templates in it can be read\n",
                   dir.c_str());
    return false;
  }
  // With half a device read, the other half would be reported as missing.
  for (const std::string &path : t->dev.unread) {
    terminal_print(stderr, "orv-lint: %s: no permission to read it\n",
                   path.c_str());
  }
  return t->dev.unread.empty();
}

// The other tools begin first and are heard last: they take longer than all
// rules, and the rules run meanwhile.  Only what was found in this folder is
// written: the other trees are looked at for what this one lacks.
static void lint(tree *t, const std::list<tree> &all, const options &o,
                 finding_output *output)
{
  const device &dev = t->dev;
  other_tools tools = begin_tools(dev, o.shellcheck);
  // None of them depends on another, so their order shows nowhere: what they
  // find is sorted before it is written.
  for (device_check *const *check = all_checks; *check != nullptr; check++) {
    (*check)(dev, &t->found);
  }
  bool first = false; // once this one was met, the others come later
  for (const tree &other : all) {
    first |= &other == t;
    if (&other != t) {
      check_translation(dev, other.dev, first, &t->found);
    }
  }
  if (o.run) {
    run_scripts(dev, &t->found);
  }
  end_tools(dev, &tools, &t->found);
  write_findings(dev.files, &t->found, output);
}

// A name that is not known is trouble and no finding: whoever typed it gets no
// answer, and a script must not take that for a device without mistakes.
static int explain_rule(const char *name)
{
  const rule_text *rule = find_rule(name);
  if (rule == nullptr) {
    terminal_print(stderr, "orv-lint: no rule \"%s\"%s; --rules lists them\n",
                   name, did_you_mean(name, rule_names()).c_str());
    return EXIT_TROUBLE;
  }
  explain(*rule);
  return EXIT_SUCCESS;
}

// A format that is not known ends the program before any folder is read: what
// comes after would be read by a program that expects another one.
static bool take_format(const std::string &name, output_format *format)
{
  static const std::map<std::string, output_format> formats = {
      {"text", FORMAT_TEXT}, {"gcc", FORMAT_GCC}, {"json", FORMAT_JSON}};
  const auto row = formats.find(name);
  if (row == formats.end()) {
    terminal_print(stderr, "orv-lint: no format \"%s\"\n", name.c_str());
    return false;
  }
  *format = row->second;
  return true;
}

// A folder that cannot be read does not keep the others from being looked at,
// but the status says so whatever was found: EXIT_TROUBLE outranks
// EXIT_FINDINGS.  The array of JSON is opened and closed here, around all
// folders, so that the output is one value even where none could be read.
static int lint_all(char **dirs, const options &o)
{
  finding_output output = {o.format, o.warnings_are_errors, 0};
  std::list<tree> trees; // what is read points into itself, so none moves
  bool trouble = false;
  if (o.format == FORMAT_JSON) {
    printf("[");
  }
  for (; *dirs != nullptr; dirs++) {
    std::string dir = *dirs;
    // Paths in findings begin with the folder as it was typed: "device/", as
    // shells complete it, would give device//templates.  A lone "/" stays what
    // it is.
    while (dir.size() > 1 && dir.back() == '/') {
      dir.pop_back();
    }
    trees.emplace_back();
    if (!read_tree(dir, &trees.back())) {
      trees.pop_back();
      trouble = true;
    }
  }
  for (tree &t : trees) {
    lint(&t, trees, o, &output);
  }
  if (o.format == FORMAT_JSON) {
    printf("%s]\n", output.written > 0 ? "\n" : "");
  }
  // A full disk or a closed pipe shows only here: printf has mostly filled a
  // buffer.  Findings that did not get out must not end with a status of
  // success.
  if (fflush(stdout) != 0) {
    trouble = true;
  }
  // On standard error, so that a program that reads the findings does not meet
  // a line of another form among them.
  if (output.written > 0) {
    fprintf(stderr,
            "orv-lint: %zu finding%s; orv-lint --explain RULE explains one\n",
            output.written, output.written == 1 ? "" : "s");
  }
  if (trouble) {
    return EXIT_TROUBLE;
  }
  return output.written > 0 ? EXIT_FINDINGS : EXIT_SUCCESS;
}

int main(int argc, char **argv)
{
  enum { EXPLAIN = 256, FORMAT, RULES, VERSION, WERROR, RUN, NO_SHELLCHECK };
  static const option long_options[] = {
      {"explain", required_argument, nullptr, EXPLAIN},
      {"format", required_argument, nullptr, FORMAT},
      {"rules", no_argument, nullptr, RULES},
      {"version", no_argument, nullptr, VERSION},
      {"werror", no_argument, nullptr, WERROR},
      {"run", no_argument, nullptr, RUN},
      {"no-shellcheck", no_argument, nullptr, NO_SHELLCHECK},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0}};
  options o;
  int c;
  while ((c = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
    switch (c) {
    case EXPLAIN:
      return explain_rule(optarg);
    case FORMAT:
      if (!take_format(optarg, &o.format)) {
        return EXIT_TROUBLE;
      }
      break;
    case RULES:
      list_rules();
      return EXIT_SUCCESS;
    case VERSION:
      puts("orv-lint " ORV_VERSION);
      return EXIT_SUCCESS;
    case WERROR:
      o.warnings_are_errors = true;
      break;
    case RUN:
      o.run = true;
      break;
    case NO_SHELLCHECK:
      o.shellcheck = false;
      break;
    case 'h':
      usage(stdout);
      return EXIT_SUCCESS;
    default:
      usage(stderr);
      return EXIT_TROUBLE;
    }
  }
  if (optind == argc) {
    usage(stderr);
    return EXIT_TROUBLE;
  }
  // What the parser reports is printed here, and not logged.
  setlogmask(LOG_MASK(LOG_EMERG));
  // With `orv-lint device | head` a write fails then, which the status tells,
  // and the program ends by itself instead of by a signal.
  signal(SIGPIPE, SIG_IGN);
  return lint_all(argv + optind, o);
}
