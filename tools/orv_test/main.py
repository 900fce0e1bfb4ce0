"""The command: options, the report in TAP, the exit status."""

import argparse
import pathlib
import signal
import sys
import textwrap

from . import record, run, script
from .device import CannotRun, Device, device_of, executable, is_device
from .terminal import shown

VERSION = pathlib.Path(__file__).resolve().parents[2] / "VERSION"
PASSED, FAILED, CANNOT_RUN = 0, 1, 2
WIDTH = 30  # of the help's column of commands


def listing(table, before=""):
    """A table of commands for the help."""
    lines = []
    for name, (usage, text) in table.items():
        head = f"  {before}{name} {usage}".ljust(WIDTH)
        lines += textwrap.wrap(
            text, 79, initial_indent=head, subsequent_indent=" " * WIDTH)
    return "\n".join(lines)


HELP = f"""\
Tests forms: does what a user does in a browser, on a copy of the device's
folder, and compares the pages with what is expected.  Test files are in the
folder tests/ of the device, beside templates/ and scripts/:

  test A port takes another packet size
  open port/lan1
  press Expert
  set port_mtu 1400
  press Submit
  expect form changes_saved
  expect sent new_port_mtu="1400"
  expect stored port.lan1 port_mtu=1400

Steps before the first "test" are run at the start of every test.  "#" begins a
comment line.  Every test has its own copy of the device.

Steps:
{listing(script.ACTIONS)}

Expectations; "expect no ..." and "expect not ..." negate them, and "..." in a
text matches anything:
{listing(script.EXPECTATIONS, "expect ")}

--record serves a copy of the device on this machine.  Click through its pages
with your browser: your input and clicks are written to FILE as the lines of a
test, with the messages of the pages.  Passwords are written as you typed them.

Exit status: 0 all passed, 1 a test failed, 2 the tests could not be run."""


# On standard error: standard output is the report, for programs that read TAP.
def say(*lines):
    print(*(shown(line) for text in lines for line in text.split("\n")), sep="\n",
          file=sys.stderr)


def options(arguments):
    parser = argparse.ArgumentParser(
        "orv-test", usage="orv-test [--device DIR] [--orv PATH] FILE...\n"
        "       orv-test --record FILE [--device DIR] [--orv PATH] [--port N]\n"
        "       orv-test --version | --help",
        description=HELP, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", metavar="FILE")
    parser.add_argument(
        "--device", metavar="DIR", type=pathlib.Path,
        help="folder of templates/ and scripts/ (default: above the file)")
    parser.add_argument(
        "--orv", metavar="PATH", help="an executable built with the data folder "
        "\"..\" (default: build the demo's)")
    parser.add_argument("--record", metavar="FILE",
                        help="write a test while you click")
    parser.add_argument("--port", type=int, default=0,
                        help="port for --record (default: a free one)")
    parser.add_argument("--version", action="version",
                        version=f"orv-test {VERSION.read_text().strip()}")
    found = parser.parse_args(arguments)
    if bool(found.files) == bool(found.record):
        parser.error("name one or more test files, or --record FILE")
    if found.device and not is_device(found.device):
        parser.error(f"{shown(found.device)} has no templates/ and scripts/; name "
                     "a folder that has them (larkspur-new DIR creates one)")
    return found


def cases_of(files, device):
    """Pairs of a case and its device's folder; raises CannotRun with all faults of
    the files."""
    found, faults = [], []
    for file in files:
        try:
            folder = device or device_of(file)
            lines = pathlib.Path(file).read_text("utf-8").split("\n")
            found += [(case, folder) for case in script.parse(file, lines, faults)]
        except OSError as error:
            faults.append(f"{file}: {error.strerror}; name a file with tests, "
                          "such as DIR/tests/clock.test")
        except UnicodeDecodeError as error:
            line = error.object[:error.start].count(b"\n") + 1
            faults.append(f"{file}:{line}: this is not UTF-8")
    # Nothing runs: a test that lacks a line could pass by that.
    if faults:
        raise CannotRun("\n".join(faults))
    return found


def test(cases, orv):
    """Runs the cases; returns the exit status."""
    # Each line at once: a run that is stopped has reported what it did.
    print(f"1..{len(cases)}", flush=True)
    failed = 0
    for number, (case, folder) in enumerate(cases, 1):
        with Device(folder, orv) as device:
            report = run.run(case, device)
        failed += bool(report)
        name = pathlib.Path(case.where.rpartition(":")[0]).stem
        # In TAP a "#" in a test's name begins a directive, such as SKIP.
        head = (f"{'not ok' if report else 'ok'} {number} - {name}: "
                + case.name.replace("#", "\\#"))
        print(*map(shown, (head, *(f"# {line}" for line in report))), sep="\n",
              flush=True)
    many = "1 test" if len(cases) == 1 else f"{len(cases)} tests"
    print(f"# {failed} of {many} failed" if failed else f"# {many} passed")
    return FAILED if failed else PASSED


def main(arguments=None):
    found = options(arguments)
    # A terminated run removes its copy, too.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        if not found.record:
            cases = cases_of(found.files, found.device)
            return test(cases, executable(found.orv))
        if pathlib.Path(found.record).exists():
            raise CannotRun(f"{found.record} exists already; name a new file")
        folder = found.device or device_of(found.record)
        orv = executable(found.orv)
        # "x": a file that has appeared meanwhile is not overwritten either.
        with Device(folder, orv) as device, \
                open(found.record, "x", encoding="utf-8") as out:
            try:
                record.serve(device, out, found.port, say)
            except KeyboardInterrupt:
                say(f"Recorded; try it: orv-test {found.record}")
            except CannotRun:
                pathlib.Path(found.record).unlink()  # so that the user can try again
                raise
    except (CannotRun, OSError) as error:
        say(str(error))
        return CANNOT_RUN
    except KeyboardInterrupt:
        return CANNOT_RUN
    return PASSED
