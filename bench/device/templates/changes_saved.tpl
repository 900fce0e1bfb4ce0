title Saved
body
text Your changes are saved. The device uses them from now on.
