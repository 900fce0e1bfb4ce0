// What the commands get from the command line.

#ifndef ORVCTL_COMMAND_H
#define ORVCTL_COMMAND_H

// As of the other programs; 1 says that the device refused.
constexpr int USAGE_STATUS = 2;

extern bool dry_run;      // check everything, save nothing
extern bool with_secrets; // show secrets, where the scripts report them

// Reports a usage error, `what` behind `text` unless it is ""; returns
// USAGE_STATUS.
int misuse(const char *text, const char *what);

#endif
