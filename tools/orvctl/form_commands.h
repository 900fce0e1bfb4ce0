// The commands that read and change single forms.

#ifndef ORVCTL_FORM_COMMANDS_H
#define ORVCTL_FORM_COMMANDS_H

// Each runs a command with the words behind its name (borrowed; some are split
// in place) and returns the exit status.
int list_forms(int count, char **words);
int get_values(int count, char **words);
int set_values(int count, char **words);
int table_rows(int count, char **words);

#endif
