// A form whose script is this program: the four tasks of a form's script, for
// a form that keeps settings and no more.

#ifndef STORE_OWN_FORM_H
#define STORE_OWN_FORM_H

// Does a task of the form that `words` name, as a script would: "--read",
// "--check", "--write" or "--navbar", a form, perhaps a sub-item.  `path` is
// what the program was called by; state, templates and defaults lie beside the
// folder that it stands in, unless the environment says otherwise.  The exit
// status; what is wrong with a value is said on standard output, as scripts do.
int own_form_run(const char *path, int count, char **words);

#endif
