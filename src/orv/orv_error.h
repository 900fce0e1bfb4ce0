// Error reporting: every report goes to the system log and is kept as the
// message that an error page would show.

#ifndef ORV_ERROR_H
#define ORV_ERROR_H

// Nonzero: orv_fatal returns instead of ending the process.  Set once by the
// entry point; it stays set for the whole request.
extern int orv_fatal_no_exit;

// Where set, orv_fatal also hands its message to this function.
extern void (*orv_fatal_alt_report)(const char *message);

// The last message reported, borrowed (the next report overwrites it), or a
// fixed text of the entry point; NULL while nothing was reported.
extern const char *orv_error_msg;

// Sends `message` to the system log.  Of the messages of one request, reports
// included, only the first ones go there, and one that says so.
void orv_log(int priority, const char *message);

// Reports an error that the caller cannot handle: system log at LOG_ERR,
// orv_error_msg, the alternative report.  Cut to 249 characters.  Ends the
// process with status 1 unless orv_fatal_no_exit is set.
void orv_fatal(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Reports an error in the same way and always returns; the alternative report
// is not called.
void orv_error(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

#endif
