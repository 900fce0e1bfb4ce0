// The state that the page frame shares with the renderer.

#ifndef CGI_MAIN_H
#define CGI_MAIN_H

// Owned heap copies, NULL when absent.
extern char *scroll_y;      // vertical scroll position, as the browser sent it
extern char *anchor_target; // anchor to be brought into view

#endif
