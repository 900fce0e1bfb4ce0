// A form whose script is this program: the four tasks of a form's script, for
// a form that only keeps settings.

#ifndef STORE_OWN_FORM_H
#define STORE_OWN_FORM_H

// Does what a form's script would do for `words`: "--read", "--check",
// "--write" or "--navbar", a form, perhaps a sub-item.  `path` is the name by
// which the program was called; state, templates and defaults are beside the
// folder of that name, unless the environment says otherwise.  Returns the exit
// status; messages about values go to standard output, as a script's do.
int own_form_run(const char *path, int count, char **words);

#endif
