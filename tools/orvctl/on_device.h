// The device that orvctl works on: as which user, and how what several forms
// store becomes one step.

#ifndef ORVCTL_ON_DEVICE_H
#define ORVCTL_ON_DEVICE_H

#include <stdint.h>

// Before anything of the device is read: root becomes the owner of the folder
// of the settings, as long as there is one, so that nothing is made that the
// web server cannot change.  False, reported.
bool device_enter(void);

// After a failure: reports which templates and scripts root alone can read, who
// is the owner of the settings now.
void device_explain(void);

// What begins together is stored together: from now on, until one of the next
// two, other saves wait, and what scripts store by the library is kept apart.
// False with a fault (fault.h).  Where no settings can be stored at all, or
// somebody else's step goes on, nothing begins, and that is no fault.
bool device_begin(void);

// Stores all of it; false with a fault, and nothing of it is stored.
bool device_commit(void);

void device_drop(void);

// The number of times that scripts have stored something in it so far; -1: one
// could not.
long device_saves(void);

// Opens the folder of the settings to be read; false with a fault, or where
// there is none yet, without one.
bool device_open(void);

// Locks the settings and ends a save that was cut short; false with a fault.
// Not within somebody else's step.
bool device_lock(void);

// Lets scripts read the settings as they were before the save `number`, or as
// they are shipped, until device_drop.  False with a fault.
bool device_look_back(uint64_t number);
bool device_look_shipped(void);

#endif
