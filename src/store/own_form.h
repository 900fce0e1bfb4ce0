// A form whose script is this program: the four tasks of a script, for a form
// that only keeps settings.

#ifndef STORE_OWN_FORM_H
#define STORE_OWN_FORM_H

// Does a form script's task for the arguments `words`: "--read", "--check",
// "--write" or "--navbar", a form, and perhaps a sub-item.  `path` is the name
// under which the program was called; state, templates and defaults are beside
// its folder, unless the environment says otherwise.  Returns the exit status;
// messages about values go to standard output, like a script's.
int own_form_run(const char *path, int count, char **words);

#endif
