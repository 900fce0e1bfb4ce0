"""Form tests: users' actions on a device's forms, as plain lines.

`page` reads a page as a browser does, `device` runs the executable on a copy of
a device's folder, `script` parses the lines of a test, `run` executes them,
`record` writes them while a user clicks, `terminal` shows untrusted text, `main`
is the command.
"""
