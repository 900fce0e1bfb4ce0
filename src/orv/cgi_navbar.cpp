// The navigation bar: a form's navigation-bar script becomes a list of links.
//
// The list and its texts are static and made anew by every call, so that a
// caller may keep the pointer until the page is written.  Diagnostics belong
// into the page's source; those met before the page has begun are counted until
// it has.  A script that cannot be started leaves the page without a bar.

#include "cgi_navbar.h"

#include <errno.h>
#include <fcntl.h>
#include <initializer_list>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "cgi.h"
#include "html.h"
#include "orv_guard.h"
#include "orv_limits.h"
#include "orv_parser.h"
#include "orv_scripts.h"

constexpr size_t HREF_SIZE = ORV_ADDRESS_MAX + 1;
constexpr size_t LABEL_SIZE = ORV_BAR_LABEL_MAX + 1;
// What a full bar still reads, so that an ordinary script ends in peace.
constexpr size_t DRAIN_MAX = 64UL * 1024;

static html_navbar_entry ents[ORV_BAR_MAX + 1];
static char hrefs[ORV_BAR_MAX][HREF_SIZE];
static char labels[ORV_BAR_MAX][LABEL_SIZE];

struct diagnostic {
  const char *text;
  int held; // times met before the page had begun
};

static diagnostic premature_end = {"navbar: Premature end of line", 0};
static diagnostic missing_label = {"navbar: Missing a label", 0};
static bool page_begun; // set by cgi_navbar_comments, never reset

static void comment(diagnostic *met)
{
  if (page_begun) {
    html_comment("%s", met->text);
  } else {
    met->held++;
  }
}

void cgi_navbar_comments(void)
{
  page_begun = true;
  for (diagnostic *met : {&premature_end, &missing_label}) {
    for (; met->held > 0; met->held--) {
      html_comment("%s", met->text);
    }
  }
}

static bool is_blank(char c)
{
  return c == ' ' || c == '\t';
}

// Takes off the blanks around the line and returns its start.
static char *strip_line(char *line)
{
  size_t length = strlen(line);
  while (length > 0 &&
         (is_blank(line[length - 1]) || line[length - 1] == '\n')) {
    length--;
  }
  line[length] = '\0';
  return line + strspn(line, " \t");
}

// The taken-apart line of a script: a form word and the label behind it.
struct entry_line {
  const char *form;
  const char *subitem; // NULL: none
  const char *label;   // NULL: the line is a single word
};

// Takes `line`, not empty, apart in place.
static entry_line split_line(char *line)
{
  entry_line entry = {line, nullptr, nullptr};
  char *c = line + 1;
  for (; *c != '\0' && !is_blank(*c); c++) {
    if (*c == '/' && entry.subitem == nullptr) {
      *c = '\0';
      entry.subitem = c + 1;
    }
  }
  if (*c != '\0') {
    *c = '\0';
    entry.label = c + 1;
  }
  return entry;
}

// Writes the link to a form, with its sub-item where that is not NULL.
static void write_href(char (&href)[HREF_SIZE], const char *form,
                       const char *subitem)
{
  if (subitem != nullptr) {
    snprintf(href, sizeof href, "%s?form=%s&subitem=%s", cgiScriptName, form,
             subitem);
  } else {
    snprintf(href, sizeof href, "%s?form=%s", cgiScriptName, form);
  }
}

// Stores the entry at its place.
static void store_entry(int place, const entry_line *entry)
{
  snprintf(labels[place], LABEL_SIZE, "%s", entry->label);
  ents[place] = {labels[place], nullptr};
  if (entry->subitem != nullptr || strcmp(entry->form, "-") != 0) {
    write_href(hrefs[place], entry->form, entry->subitem);
    ents[place].url = hrefs[place];
  }
}

void cgi_navbar_mark(struct html_navbar_entry *list, const char *form,
                     const char *subitem)
{
  char href[HREF_SIZE];
  write_href(href, form, subitem);
  for (; list->label != nullptr; list++) {
    list->current = list->url != nullptr && strcmp(list->url, href) == 0;
  }
}

// The list as it grows.
struct bar {
  int place;    // the next free one
  bool settled; // an entry or "--" has decided on the fixed entry
};

// Acts on one stripped line.
static void take_line(bar *list, char *line)
{
  if (line[0] == '\0') {
    return;
  }
  if (strcmp(line, "--") == 0 && !list->settled) {
    list->place = 0;
    list->settled = true;
    return;
  }
  const entry_line entry = split_line(line);
  if (entry.label == nullptr) {
    comment(&premature_end);
  } else if (entry.label[0] == '\0') {
    comment(&missing_label);
  } else {
    store_entry(list->place, &entry);
    list->place++;
    list->settled = true;
  }
}

static void drain(FILE *output)
{
  char buf[ORV_LINE_MAX + 1];
  size_t dropped = 0;
  size_t got;
  do {
    got = fread(buf, 1, sizeof buf, output);
    dropped += got;
  } while (got > 0 && dropped < DRAIN_MAX);
}

// Reads the script's output, or the file in its place; the number of entries.
// The entry of the form `confirm` is shown only while a change is pending.
static int read_entries(FILE *output, bool is_file)
{
  char buf[ORV_LINE_MAX + 1];
  bar list = {1, false};
  while (list.place < ORV_BAR_MAX &&
         fgets(buf, sizeof buf, output) != nullptr) {
    if (!is_file || strncmp(buf, "confirm ", strlen("confirm ")) != 0) {
      take_line(&list, strip_line(buf));
    }
  }
  if (list.place == ORV_BAR_MAX) {
    drain(output);
  }
  return list.place;
}

// --- a bar without a script --------------------------------------------------

static bool lacks(int folder, const char *name)
{
  return faccessat(folder, name, F_OK, 0) != 0 && errno == ENOENT;
}

// Whether no change is pending in the settings, or about to be.  They lie
// beside the folder of the scripts unless the environment says otherwise.
static bool is_settled(int scripts)
{
  const char *given = getenv("ORV_STATE");
  const bool elsewhere = given != nullptr && given[0] != '\0';
  const int state = openat(elsewhere ? AT_FDCWD : scripts,
                           elsewhere ? given : "../state", O_PATH | O_CLOEXEC);
  if (state < 0) {
    return errno == ENOENT;
  }
  const bool settled = lacks(state, ".pending") && lacks(state, ".commit");
  close(state);
  return settled;
}

// The navigation bar of forms without a script is a file, which orv-store
// prints unchanged while no change is pending: then it is read here, which
// saves a process.  NULL when orv-store has to decide.
static FILE *open_bar(const char *command)
{
  const owned_text folder(orv_script_bar_link(command));
  if (folder == nullptr || getenv("ORV_TEMPLATES") != nullptr) {
    return nullptr;
  }
  *strrchr(folder.get(), '/') = '\0';
  const int scripts = open(folder.get(), O_PATH | O_CLOEXEC);
  int bar = -1;
  if (scripts >= 0 && is_settled(scripts)) {
    bar = openat(scripts, "../templates/navbar", O_RDONLY | O_CLOEXEC);
    if (bar < 0) {
      bar = openat(scripts, "navbar", O_RDONLY | O_CLOEXEC);
    }
  }
  close(scripts);
  return bar >= 0 ? fdopen(bar, "r") : nullptr;
}

constexpr int NO_BAR = -1;

// The number of entries, or NO_BAR.
static int read_script(const char *command)
{
  pid_t pid;
  owned_stream output(orv_script_exchange(command, nullptr, 0, &pid));
  if (output == nullptr) {
    return NO_BAR;
  }
  const int count = read_entries(output.get(), false);
  output.reset();
  orv_script_wait(pid);
  return count;
}

void cgi_get_navbar(struct pt_header *hdr,
                    struct html_navbar_entry **navbar_ents)
{
  const owned_stream file(open_bar(hdr->navbar_script));
  ents[0] = {"Configuration", cgiScriptName}; // leads to the menu
  const int count = file != nullptr ? read_entries(file.get(), true)
                                    : read_script(hdr->navbar_script);
  if (count != NO_BAR) {
    ents[count].label = nullptr;
    *navbar_ents = ents;
  }
}
