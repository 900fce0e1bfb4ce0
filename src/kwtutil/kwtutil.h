// Device utility layer: files of name/value tuples, and the closing of
// inherited descriptors before a program is started.
//
// A tuple file holds one tuple a line, "NAME=value" or "NAME value".  Blanks
// around name and value are dropped, "#" begins a comment line, blank lines
// are ignored, and a value may stand in single or double quotes.

#ifndef KWTUTIL_H
#define KWTUTIL_H

struct kwtutil_cffile_tuple {
  char *name;
  char *value;
};

// A loaded tuple file; `tuples` holds `num` of `size` allocated entries.
struct kwtutil_cffile_t {
  kwtutil_cffile_tuple *tuples;
  int num;
  int size;
};

// Reads the tuple file `path`.  The result is owned by the caller
// (kwtutil_cffile_free); NULL when the file cannot be read or memory ran out,
// which is not reported.
kwtutil_cffile_t *kwtutil_cffile_load(const char *path);

// The first tuple called `name` (letter case counts), borrowed from `cfinfo`;
// NULL when there is none.
kwtutil_cffile_tuple *kwtutil_cffile_find_tuple(kwtutil_cffile_t *cfinfo,
                                                const char *name);

// Releases a loaded file; NULL is allowed.
void kwtutil_cffile_free(kwtutil_cffile_t *cfinfo);

// Closes every open descriptor above 2 when `keep_standard` is nonzero, else
// every open descriptor.  Works by range, since closing one by one up to the
// limit can take longer than the program that is started afterwards.
void close_all_file_descriptors(int keep_standard);

#endif
