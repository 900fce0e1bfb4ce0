// Access to the device's settings: as which user, and how the saves of several
// forms become one step.

#ifndef ORVCTL_ON_DEVICE_H
#define ORVCTL_ON_DEVICE_H

#include <stdint.h>

// To be called before anything of the device is read: root becomes the owner of
// the settings' folder, if there is one, so that it creates nothing that the
// web server cannot change.  False, reported.
bool device_enter(void);

// After a failure: reports which templates and scripts only root can read,
// since root is the owner of the settings now.
void device_explain(void);

// Begins a transaction: from now on, until one of the next two calls, other
// saves wait, and what scripts store by the library is staged.  False with a
// fault (fault.h).  Where no settings can be stored at all, or this process is
// part of another's transaction, nothing begins, and that is no fault.
bool device_begin(void);

// Stores all of it; false with a fault, and nothing of it is stored.
bool device_commit(void);

void device_drop(void);

// How often scripts have stored something in it so far; -1: one of them failed.
long device_saves(void);

// Opens the settings' folder for reading; false with a fault, and without one
// where there is no folder yet.
bool device_open(void);

// Locks the settings and completes an interrupted save; false with a fault. Not
// to be called within another process's transaction.
bool device_lock(void);

// Lets scripts read the settings as they were before the save `number`, or as
// they are shipped, until device_drop.  False with a fault.
bool device_look_back(uint64_t number);
bool device_look_shipped(void);

#endif
