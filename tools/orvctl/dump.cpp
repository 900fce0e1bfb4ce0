// Backup of the device as plain text, and restoring it.
//
// Owns the dump that is being applied.  Every page is checked before the first
// script stores anything.  Then all are saved as one step, and each is checked
// once more: a page that another one makes invalid is refused when its turn
// comes, and nothing of the step is stored.  What a script stores in its own
// way stays stored, which is reported.

#include "dump.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "change.h"
#include "dump_file.h"
#include "fault.h"
#include "on_device.h"
#include "orv.h"
#include "orv_changes.h"
#include "orv_guard.h"
#include "orv_secret.h"
#include "orv_vars.h"
#include "pending.h"
#include "report.h"
#include "sitemap.h"
#include "suggest.h"
#include "terminal.h"

// --- writing -----------------------------------------------------------------

static FILE *dump_out; // borrowed: the dump goes there
static bool is_whole;  // names every secret that it leaves out

// What a page would post, but for marks to delete rows and the state that it
// carries.
static bool is_dumped(const page_field *field, bool secrets)
{
  switch (field->kind) {
  case FIELD_LIST:
    if (field->value == nullptr) { // of nothing: there is nothing to choose
      return false;
    }
    break;
  case FIELD_TEXT:
  case FIELD_BOX:
    break;
  default:
    return false;
  }
  return secrets || !page_is_secret(field->name);
}

// A secret that the read script does not show even here.
static bool is_kept(const page_field *field)
{
  return page_is_secret(field->name) &&
         orv_get_var(&cfg_vars, field->name, o_orig) == nullptr;
}

// The blank rows that a table offers are left out.  A table of a fixed size has
// no line for its rows, since it always has all of them.
static void dump_fields(bool secrets)
{
  const pt_body_item *table = nullptr;
  int rows = 0; // of that table
  for (const page_field *field = page_fields(); field != nullptr;
       field = field->next) {
    if (field->table != nullptr && field->table != table &&
        field->table->type == PT_TABLE) {
      rows = change_count_rows(field->table);
      terminal_print(dump_out, "table %s %d\n", field->table->name, rows);
    }
    table = field->table != nullptr ? field->table : table;
    const bool is_blank = field->table != nullptr &&
                          field->table->type == PT_TABLE && field->row >= rows;
    if (!is_dumped(field, is_whole || secrets) || is_blank) {
      continue;
    }
    if (is_kept(field) || (page_is_secret(field->name) && !secrets)) {
      terminal_print(dump_out, "%s%s\n", DUMP_NOT_SAVED, field->name);
    } else {
      terminal_print(dump_out, "%s=", field->name);
      dump_put_value(dump_out, page_value(field));
    }
  }
}

// The stored hashes of secrets that no field shows.  The form's read script
// reports these for a backup alone (ORV_SECRETS).
static void dump_stored_secrets()
{
  for (const orv_var *var = cfg_vars; var != nullptr; var = var->next) {
    if (var->o_value != nullptr && orv_is_secret_name(var->name) &&
        page_find_item(var->name) == nullptr) {
      terminal_print(dump_out, "%s%s=", DUMP_SECRET, var->name);
      dump_put_value(dump_out, var->o_value);
    }
  }
}

// A form that is submitted whether or not anything has changed is a command
// rather than settings: a restart is not backed up.
static bool dump_page(const site_page *page, bool secrets)
{
  if (!page_open(page->form, page->subitem, false)) {
    unopened_form(page->name);
    return false;
  }
  if (orv_always_submit_set() != 0) {
    return true;
  }
  // Both views belong to a backup.
  orv_expert_mode = page_header()->expert_mode ? 1 : 0;
  if (orv_expert_mode != 0 && !page_redraw()) {
    report_failure(page->name, page_message());
    return false;
  }
  const owned_text title(orv_plain_text(page_header()->title));
  terminal_print(dump_out, "\n# %s\nform %s\n",
                 title != nullptr ? title.get() : "", page->name);
  dump_fields(secrets);
  if (secrets) {
    dump_stored_secrets();
  }
  return true;
}

// A page that fails does not stop the others, but the exit status tells that
// the backup has gaps.  A full disk may show only when the stream is flushed.
static int write_pages(char **names, int count, bool secrets)
{
  int status = EXIT_SUCCESS;
  if (count == 0) {
    site_page *pages = sitemap_read();
    for (const site_page *page = pages; page != nullptr; page = page->next) {
      if (page->fault != nullptr) {
        report_failure(page->name, page->fault);
        status = EXIT_FAILURE;
      } else if (page->has_input && !dump_page(page, secrets)) {
        status = EXIT_FAILURE;
      }
    }
    status = pages != nullptr ? status : EXIT_FAILURE;
    sitemap_free(pages);
  }
  for (int i = 0; i < count; i++) {
    site_page *page = sitemap_name(names[i]);
    if (page == nullptr || !dump_page(page, secrets)) {
      status = EXIT_FAILURE;
    }
    sitemap_free(page);
  }
  return fflush(dump_out) == 0 ? status : EXIT_FAILURE;
}

int dump_pages(char **names, int count, bool secrets)
{
  dump_out = stdout;
  is_whole = false;
  puts("# Settings of a device; \"orvctl apply FILE\" restores them.");
  return write_pages(names, count, secrets);
}

// The names of secrets are written without values: who applies the text leaves
// them as they are, instead of emptying them.
char *dump_settings(char **names, int count)
{
  char *text = nullptr;
  size_t size;
  dump_out = open_memstream(&text, &size);
  if (dump_out == nullptr) {
    return nullptr;
  }
  is_whole = true;
  const int status = write_pages(names, count, false);
  const bool closed = fclose(dump_out) == 0;
  if (status != EXIT_SUCCESS || !closed) {
    free(text);
    return nullptr;
  }
  return text;
}

// --- applying ----------------------------------------------------------------

constexpr size_t PLACE_SIZE = 100; // a line's number and what is wrong with it

// Global, since report_at.line_of has no argument for it.
static const dump_part *applied;   // borrowed: while its page is open
static page_result applied_result; // of the last page

// A message for a column is about the cells that failed.
static bool is_about(const char *name, const char *field)
{
  const size_t length = strlen(name);
  return strcasecmp(name, field) == 0 ||
         (strncasecmp(name, field, length) == 0 && field[length] != '\0' &&
          field[length + strspn(field + length, "0123456789")] == '\0' &&
          orv_find_var(&failed_cells, field, 0) != nullptr);
}

static int line_of(const char *name)
{
  for (size_t i = 0; i < applied->value_count; i++) {
    if (is_about(name, applied->values[i].name)) {
      return applied->values[i].line;
    }
  }
  return applied->line; // the dump does not set it
}

// Gives a table no more rows than the dump has.  The values have been set, as
// one of them may have brought the table into the page.
static bool shorten_tables(const dump_part *part)
{
  bool marked = false;
  for (size_t i = 0; i < part->table_count; i++) {
    const pt_body_item *table = page_find_table(part->tables[i].name);
    if (table == nullptr) {
      report_at.line = part->tables[i].line;
      unknown_table(part->page, part->tables[i].name);
      return false;
    }
    if (!change_show_table(table)) {
      report_failure(part->page, page_message());
      return false;
    }
    for (int row = change_count_rows(table) - 1; row >= part->tables[i].rows;
         row--) {
      marked |= change_delete_row(table, row);
    }
  }
  return !marked || page_redraw();
}

// Passes stored hashes of secrets on; the form's scripts decide whether to take
// them.
static bool put_secrets(const dump_part *part)
{
  for (size_t i = 0; i < part->secret_count; i++) {
    const wanted_value *secret = part->secrets + i;
    const char *why = orv_is_secret_name(secret->name)
                          ? page_put_secret(secret->name, secret->value)
                          : "is not the name of a secret";
    if (why != nullptr) {
      char text[PLACE_SIZE];
      snprintf(text, sizeof text, "\"%.50s\" %s", secret->name, why);
      report_at.line = secret->line;
      report_failure(part->page, text);
      return false;
    }
  }
  return true;
}

// The values are marked as set from the round before, when the same page was
// only judged.
static bool fill_page(dump_part *part)
{
  for (size_t i = 0; i < part->value_count; i++) {
    part->values[i].set = false;
  }
  return change_values(part->page, part->values, part->value_count) &&
         shorten_tables(part) && put_secrets(part);
}

static int apply_part(dump_part *part, bool dry)
{
  site_page *page = sitemap_name(part->page);
  int status = EXIT_FAILURE;
  applied = part;
  applied_result = PAGE_REFUSED;
  report_at.line = part->line;
  if (page != nullptr && page_open(page->form, page->subitem, false)) {
    if (fill_page(part)) {
      applied_result = change_submit(dry);
      status = report_result(part->page, applied_result, dry,
                             {part->skipped, part->skipped_count});
    }
  } else if (page != nullptr) {
    unopened_form(part->page);
  }
  sitemap_free(page);
  return status;
}

// All of them, so that one run reports every fault of the file.
static int judge_parts(dump_file *dump)
{
  int status = EXIT_SUCCESS;
  for (size_t i = 0; i < dump->part_count; i++) {
    if (apply_part(dump->parts + i, true) != EXIT_SUCCESS) {
      status = EXIT_FAILURE;
    }
  }
  return status;
}

// Saves one page after the other, up to the first that is refused.  `*others`
// is set where a script has stored something that is no part of the step.
static int save_parts(dump_file *dump, bool *others)
{
  for (size_t i = 0; i < dump->part_count; i++) {
    const long before = device_saves();
    const int status = apply_part(dump->parts + i, false);
    const bool other =
        applied_result == PAGE_SAVED && before >= 0 && device_saves() == before;
    report_settle(other || status != EXIT_SUCCESS);
    *others |= other;
    if (status != EXIT_SUCCESS) {
      return EXIT_FAILURE;
    }
    if (device_saves() < 0) {
      break; // the commit then reports why
    }
  }
  return EXIT_SUCCESS;
}

// The fault is one of the step, not of the line that was applied last.
static bool commit(const char *file)
{
  if (device_commit()) {
    return true;
  }
  report_at.line = 0;
  report_failure(file, store_fault_text());
  report_settle(true);
  return false;
}

static void report_nothing(bool others)
{
  fprintf(stderr, "orvctl: nothing %swas saved\n", others ? "else " : "");
}

// device_drop does nothing once the step is committed; everywhere else it lets
// other saves go on.
static int save_together(dump_file *dump, const char *file)
{
  report_at.line = 0;
  if (!device_begin()) {
    report_failure(file, store_fault_text());
    report_nothing(false);
    return EXIT_FAILURE;
  }
  if (!report_hold()) {
    device_drop();
    report_failure(file, "out of memory");
    report_nothing(false);
    return EXIT_FAILURE;
  }
  bool others = false;
  const bool saved = save_parts(dump, &others) == EXIT_SUCCESS && commit(file);
  device_drop();
  report_release(saved);
  if (saved) {
    pending_tell_all();
  } else {
    report_nothing(others);
  }
  return saved ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Reports the first wrong line.
static bool parse_dump(dump_file *dump, const char *file)
{
  int number;
  const char *fault = dump_parse(dump, &number);
  if (fault != nullptr) {
    char where[PLACE_SIZE];
    snprintf(where, sizeof where, "line %d: %s", number, fault);
    report_failure(file, where);
  }
  return fault == nullptr;
}

// What passes the first round is not reported: the second one does that, when
// it is stored.
static int apply_parts(dump_file *dump, const char *file, bool dry)
{
  report_quiet = !dry;
  int status = judge_parts(dump);
  report_quiet = false;
  if (status == EXIT_SUCCESS && !dry) {
    status = save_together(dump, file);
  } else if (!dry) {
    report_nothing(false);
  }
  return status;
}

int apply_dump(FILE *fp, const char *file, bool dry)
{
  dump_file dump = {};
  int status = EXIT_FAILURE;
  if (!dump_read(fp, &dump.text)) {
    report_failure(file, "cannot be read as text");
  } else if (parse_dump(&dump, file)) {
    if (report_json) {
      report_open(nullptr, '[');
    }
    report_at = {file, 0, line_of};
    status = apply_parts(&dump, file, dry);
    report_at = {};
    if (report_json) {
      report_close(']');
    }
  }
  dump_free(&dump);
  return status;
}

// The secrets that the text names are those of today, which stay.
int apply_settings(char *text, const char *command, bool dry)
{
  dump_file dump = {};
  int status = EXIT_FAILURE;
  dump.text = text;
  if (parse_dump(&dump, command)) {
    report_skipped_stay = true;
    status = apply_parts(&dump, command, dry);
  }
  dump_free(&dump);
  return status;
}
