// Regular expressions of the plain kind that forms are checked with.

#ifndef ORV_PATTERN_H
#define ORV_PATTERN_H

enum pattern_answer {
  PATTERN_FITS,
  PATTERN_FITS_NOT,
  PATTERN_OTHER // of another kind, wrong, or too much work: regcomp(3) decides
};

// Whether the whole of `text` fits the extended regular expression `pattern`,
// as regexec(3) would say in the C locale; both are borrowed.
pattern_answer orv_pattern_match(const char *pattern, const char *text);

#endif
