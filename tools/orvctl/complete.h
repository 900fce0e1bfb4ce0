// Completion for shells: what can be typed at the cursor of a command line.

#ifndef ORVCTL_COMPLETE_H
#define ORVCTL_COMPLETE_H

// Prints `word` on a line of its own if the word typed so far begins it.
// Words that a shell or a terminal could take for more than a name are left
// out: a script may have them from anywhere.
void complete_offer(const char *typed, const char *word);

// Prints what may follow the command words[0] and the words behind it, the last
// of which is the one typed so far, with `=` behind what takes a value.  A page
// that cannot be opened has nothing to offer.
void complete_words(int count, char **words);

#endif
