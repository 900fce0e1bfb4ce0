"""Form tests: what people do with a device's forms, as plain lines.

`page` reads a page as a browser does, `device` runs the executable on a copy of
a device's folder, `script` knows the lines of a test, `run` carries them out,
`record` writes them while a person clicks, `terminal` shows foreign text, `main`
is the command.
"""
