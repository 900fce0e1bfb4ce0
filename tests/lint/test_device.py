"""The demo is clean, and mistakes put into it are reported with file and line."""
import json
import os
import pathlib
import pty
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

import pytest

LINT = os.environ["ORV_LINT"]
EVERY = 1 if "LARKSPUR_LONG" in os.environ else int(os.environ.get("EVERY", 1))
ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "tools"))
import orv_test.device  # noqa: E402  # pylint: disable=wrong-import-position

DEVICES = [p.parent for p in [*ROOT.glob("demo/**/templates"),
                              *ROOT.glob("examples/*/templates")]]
# The file, its rule, and the text before and after; "" before: one more line at
# the end.  The line is that of the change, unless another line's text or number
# is given (-1: the last).
BROKEN = [
    ("network.tpl", "syntax", "title ", "titel "),
    ("network.tpl", "syntax", "help_mode\n", "title Again\n"),
    ("network.tpl", "syntax", "\nbody\n", "\n", "error $E$"),
    ("network.tpl", "syntax", "\nbody\n", "\nbdy\n", "bdy"),
    ("network.tpl", "syntax", "title ", "# title ", 1),
    ("network.tpl", "syntax", "field host_name 24", "feild host_name 24"),
    ("network.tpl", "syntax", "field host_name 24", "field host_name wide"),
    ("network.tpl", "syntax", "field host_name 24", "field"),
    ("network.tpl", "syntax", "label Device name", "label Device name\nlabel Again", "label Again"),
    ("network.tpl", "syntax", "label Device name", "lable Device name"),
    ("network.tpl", "syntax", "choice no Automatic (DHCP)", "choice no"),
    ("network.tpl", "syntax", "heading2 Name servers", "heading2 Name servers\nlabel x", "label x"),
    ("network.tpl", "syntax", "label IPv6\n", "label IPv6\ncheck text\n", "check text"),
    ("network.tpl", "syntax", "heading2 Name servers", "help_mode"),
    ("dhcp.tpl", "syntax", "table leases 3", "table leases 4"),
    ("dhcp.tpl", "syntax", "table leases 3", "table leases"),
    ("dhcp.tpl", "syntax", "field ls_mac", "text Note\nfield ls_mac", "text Note"),
    ("status.tpl", "syntax", "ftable traffic 4", "ftable traffic 4 -1"),
    ("dhcp.tpl", "table-extra", "table leases 3", "table leases 2", "field ls_address"),
    ("network.tpl", "crlf", "help_mode\n", "help_mode\r\n"),
    ("network.tpl", "last-line", "endif\nendif\n", "endif\nendif", -1),
    ("network.tpl", "long-line", "text The device", "text " + "x" * 999 + " The device"),
    ("network.tpl", "nul-byte", "label Gateway", "label Gate\0way"),
    ("network.tpl", "indented", "label Gateway", " label Gateway"),
    ("network.tpl", "cut-comment", "label Gateway", "label Gateway #1"),
    ("network.tpl", "check-name", "check nullok ipaddr ipv4 ipv6", "check nullok ipadr ipv4 ipv6"),
    ("network.tpl", "check-name", "check nullok text", "check nullok"),
    ("network.tpl", "check-option", "check nullok ipaddr ipv4 ipv6", "check nullok ipaddr ipv4 ip6"),
    ("network.tpl", "check-option", "check nullok ipaddr ipv4 ipv6", "check ipaddr nullok"),
    ("services.tpl", "check-option", "decimal 1 65535", "decimal 1-65535"),
    ("services.tpl", "check-option", "decimal 1 65535", "decimal 1 65535 80"),
    ("network.tpl", "check-regex", "[A-Za-z0-9])?$", "[A-Za-z0-9]?$"),
    ("system.tpl", "regex-anchor", "regex ^.{1,60}$", "regex ^.{1,60}"),
    ("network.tpl", "check-message", "check_msg dns1 Enter", "check_msg Enter"),
    ("network.tpl", "reference", "$V:last_ip_address$$R$", "$V:last_ip_address"),
    ("network.tpl", "reference", "$V:last_ip_address$$R$", "$v:last_ip_address$"),
    ("network.tpl", "unknown-tag", "$B$Automatic$R$", "$b$Automatic$R$"),
    ("network.tpl", "text-place", "heading2 Name servers", "heading2 $B$Name servers$R$"),
    ("network.tpl", "unknown-variable", "text Last static address: $B$$V:last_ip_address$",
     "text Last static address: $B$$V:last_ip_adress$"),
    ("status.tpl", "unknown-variable", "$N:SW_VERSION$", "$N:SW_VERSON$"),
    ("network.tpl", "condition-balance", "if $V:static_ip$\n", "", "else"),
    ("network.tpl", "condition-balance", "endif\nendif\n", "endif\n", "if $X$"),
    ("network.tpl", "condition-constant", "if $V:static_ip$", "if $V:static_ip$ = yes"),
    ("network.tpl", "condition-constant", "if $V:static_ip$", "if static_ip"),
    ("services.tpl", "hidden-message", ": $E:ssh_port$\n", ": x\n", "check decimal 1"),
    ("services.tpl", "required-hidden", "if $X$\nfield ssh_port", "ifnot $X$\nfield ssh_port", "check decimal 1"),
    ("network.tpl", "name-reserved", "field dns2", "field action"),
    ("network.tpl", "name-prefix", "field dns2", "field d_dns"),
    ("network.tpl", "name-characters", "field dns2", "field dns-2"),
    ("network.tpl", "name-length", "field dns2", "field dns2" + "_and_more" * 6),
    ("network.tpl", "name-twice", "field dns2", "field dns1"),
    ("network.tpl", "name-case", "field dns2", "field DNS1"),
    ("dhcp.tpl", "name-clash", "field dh_first", "field ls_name1"),
    ("network.tpl", "unreported", "field dns2", "field dsn2"),
    ("network.tpl", "choice-twice", "choice off Off", "choice no Off"),
    ("dhcp.tpl", "label", "label Hardware address\n", "", "field ls_mac"),
    ("dhcp.tpl", "table-required", "check nullok iregex", "check iregex"),
    ("orvmenu.tpl", "target", "choice network", "choice netwrok"),
    ("interfaces.tpl", "target", "imenu port", "imenu ports"),
    ("interfaces.tpl", "list-entries", "imenu port ports", "imenu port sockets"),
    ("system.tpl", "list-entries", "iselect time_zone zones", "iselect time_zone"),
    ("network.tpl", "page-message", "error $E$\n", "", "field host_name"),
    ("network.tpl", "script-missing", "navbar.sh", "navbra.sh"),
    ("network.tpl", "script-quote", "navbar.sh $F$", 'navbar.sh "$(echo $S$)"'),
    ("network.tpl", "script-evaluated", "navbar.sh $F$", "navbar.sh $F$; eval $S$"),
    ("network.tpl", "lint-comment", "help_mode", "# orv-lint: off lable"),
    ("navbar.sh", "target", "", "echo 'statsu Status'"),
    ("navbar.sh", "nav-line", "", "echo 'status'"),
    ("network.tpl", "syntax", "label Gateway\n", "l\udce4bel Gateway\n"),
    ("navbar.sh", "target", "", "cat <<END\nstatus Status\nlgo Log\nEND", "lgo"),
    ("navbar.sh", "nav-label", "", "echo 'status The state of this little device'"),
    ("navbar.sh", "nav-full", "", "printf '%s\\n' 'log A' 'log B' 'log C' 'log D' 'log E' " + "'log F' " * 9),
    ("network.sh", "script-missing", '*}/lib.sh"', '*}/lbi.sh"'),
    ("network.sh", "script-syntax", "", "fi"),
    ("network.sh", "eval", "", 'eval "new=$line"'),
    ("network.sh", "eval", "", 'bash -c "logger $3"'),
    ("network.sh", "source", "", '. "$STATE/network"'),
    ("network.sh", "unquoted", "", "logger $3"),
    ("network.sh", "input-number", "", "read -r count; ((count > 3))"),
    ("network.sh", "input-path", "", 'cat -- "notes/$3"'),
    ("network.sh", "store", "", "echo a=b >\"$STATE/network\""),
    ("network.sh", "output-format", "", "echo 'Network stored'"),
    ("network.sh", "background", "", "sleep 99 &"),
    ("network.sh", "script-call", "", "orv_errors dns1 Wrong"),
    ("network.sh", "error-name", "", "echo 'error_dsn1=Wrong'"),
    ("services.sh", "box-value", "", "echo 'ssh_on=\"yes\"'"),
    ("wireless.sh", "secret", "", "echo \"wl_passphrase=$key\""),
]

# A script that misuses a request's values; after a line, the rule that reports
# it.
CARELESS = """#!/bin/bash
while IFS== read -r name value; do
  declare "$name=$value" # eval
  printf -v "$name" %s x # eval
  echo "${!name}" # eval
  export $name # unquoted
  x=$((value * 2)) # input-number
  y=$((10#$value)) # input-number
  y=$[value]; y="$[10#$value]" # input-number
  y=${list[10#$value]} # input-number
  y=${list[16#"$value"]} # input-number
  ((0x$value > 3)) # input-number
  [[ $value ]] || y=${list[3]}
  list[$value]=1 # input-number
  [[ $value -gt 5 ]] # input-number
  rm -rf "/data/$value" # input-path
  awk "/$value/ {print}" /etc/x # eval
  `echo $value` # unquoted
  "$value" --start # eval
done
for pair in $(cat); do export "$pair"; done # eval
source /dev/stdin # source
. <(cat) # source
show() { cat -- "/etc/$1"; } # input-path
show "$3"
read -r count
let "count=count+1" # input-number
read -r judged
if [[ $judged =~ ^[0-9]+$ ]]; then echo "n=$((judged + 10#$judged))"; fi
read -r kept <"$0"
logger $kept
IFS= read -r a
case $a in
  lan) cat "/etc/$a" ;;
  *) cat "/etc/$a" ;; # input-path
esac
[[ $a == lan ]] && cat "/etc/$a"
cat "/etc/$a" # input-path
[[ -n $a ]] && cat "/etc/$a" # input-path
if [[ $a != lan ]]; then cat "/etc/$a"; else cat "/etc/$a"; fi # input-path
if ! orv_one_of "$a" lan wan; then
  echo error_a=No
else
  cat "/etc/$a"
fi
cat "/etc/$a" # input-path
[[ $1 != --write ]] || cat "/etc/$a"
IFS= read -r b
orv_store x b && cat "/etc/$b" # input-path
echo "${b:$b:1}" # input-number
declare -n ref=$b # eval
[[ -v $b ]] # eval
grep -q "$b" /etc/hosts # input-pattern
echo x | xargs sh -c "echo $b" # eval
[[ $b =~ ^[a-z]+$ ]] || b=none
cat "/etc/$b"
mapfile -s 7 -t list
logger ${list[0]} $7 # unquoted
logger $7
read -rp'Port' port
logger $port # unquoted
"""


def lint(folder, *options):
    run = subprocess.run([LINT, "--format=json", "--no-shellcheck", *options, folder],
                         capture_output=True, text=True)
    return [(os.path.basename(f["file"]), f["line"], f["rule"]) for f in json.loads(run.stdout)]


def path_of(device, name):
    return device / ("templates" if name.endswith(".tpl") else "scripts") / name


def broken_line(text, change):
    """The changed text, and the line that must be reported."""
    before, after, *rest = change
    if not before:
        text, before, after = text + "\0", "\0", after + "\n"
    assert before in text, before
    at = text.index(before)
    new = text[:at] + after + text[at + len(before):]
    if rest and isinstance(rest[0], int):
        return new, new.count("\n") + 1 if rest[0] < 0 else rest[0]
    if rest:
        at = new.index("\n" + rest[0]) + 1 if not new.startswith(rest[0]) else 0
    return new, new.count("\n", 0, at) + 1


@pytest.fixture
def device(tmp_path):
    for part in ("templates", "scripts", "defaults"):
        orv_test.device.copy_part(ROOT / "demo" / part, tmp_path / part, "no program")
    return tmp_path


@pytest.mark.parametrize("folder", DEVICES, ids=lambda p: p.name)
def test_what_we_ship_is_clean(folder):
    assert subprocess.run([LINT, "--run", "--no-shellcheck", folder], capture_output=True, text=True).stdout == ""


def test_mistakes_are_reported(device):
    missed = []
    for name, rule, *change in BROKEN[::EVERY]:
        path = path_of(device, name)
        text = path.read_text()
        new, line = broken_line(text, change)
        path.write_bytes(new.encode(errors="surrogateescape"))
        if (name, line, rule) not in (told := lint(device)):
            missed.append((name, line, rule, change, told))
        path.write_text(text)
    assert lint(device) == []
    assert not missed, missed


def test_uses_of_a_request_s_values_are_reported(device):
    (device / "scripts/log.sh").write_text(CARELESS)
    lines = enumerate(CARELESS.splitlines(), 1)
    expected = {(i, line.rpartition("# ")[2]) for i, line in lines if line[:1] != "#" and " # " in line}
    rules = {rule for _, rule in expected}
    assert {(line, rule) for name, line, rule in lint(device) if name == "log.sh" and rule in rules} \
        - {(6, "eval")} == expected


def test_missing_or_not_executable_files_are_reported(device):
    (device / "scripts/log.sh").chmod(0o644)
    (device / "templates/no_changes.tpl").unlink()
    (device / "scripts/users.sh").unlink()
    shutil.copy(device / "templates/log.tpl", device / "templates/lonely.tpl")
    told = lint(device)
    assert {("log.sh", 1, "script-mode"), ("no_changes.tpl", 1, "special-form"),
            ("users.tpl", 1, "script-missing"), ("lonely.tpl", 1, "unreachable")} <= set(told)


def test_forms_without_a_script_are_checked_by_their_template(tmp_path):
    first = tmp_path / "first"
    shutil.copytree(ROOT / "examples/first", first, symlinks=True)
    for library in (first / "scripts").glob("*.bash"):
        library.unlink()
    for path, text, told in (
            ("scripts/navbar", "--\norvmenu Start\nclock\nclok Clock\n",
             [("navbar", 3, "nav-line"), ("navbar", 4, "target")]),
            ("templates/orvmenu.tpl", None, []),  # only the bar links there
            ("scripts/navbar", "--\norvmenu Start\n", [("clock.tpl", 1, "unreachable")]),
            ("defaults/clock", "server=-x\nsevrer=a\n",
             [("clock", 1, "default-value"), ("clock", 2, "default-name")]),
            ("defaults/clock@wan", "server=\"a\"\n", [("clock@wan", 1, "default-line")])):
        kept = (first / path).read_text() if (first / path).exists() else ""
        (first / path).write_text(text if text is not None else "".join(
            line for line in kept.splitlines(True) if "clock" not in line and "fmenu" not in line))
        assert sorted(lint(first)) == sorted(told), path
        if text is not None:
            (first / path).write_text(kept)
    (first / "scripts/clock.sh").unlink()
    (first / "scripts/clock.sh").symlink_to("nothing")
    assert ("clock.sh", 1, "no-file") in lint(first)


IDLE = pytest.mark.skipif("LARKSPUR_LONG" not in os.environ, reason="measures time")


def test_odd_names_and_cuts_end_no_run(tmp_path):
    for name in ("templates", "scripts"):
        (tmp_path / name).mkdir()
    for name in ("a", "$F$"):
        (tmp_path / f"templates/{name}.tpl").write_text("title T\nbody\nerror $E$\nfield v 9\nlabel V\n")
    script = tmp_path / "scripts/a.sh"
    script.write_text("#!/bin/bash\ncase ${1#} in --read) echo v=1 ;; esac\n")
    script.chmod(0o755)
    assert {("$F$.tpl", 1, "form-name"), ("a.tpl", 1, "script-task")} <= set(lint(tmp_path))


def spent(*command):
    """The CPU time of a command and its children."""
    def used():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime
    start = used()
    subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return used() - start


@IDLE
def test_two_hundred_forms_take_little_longer_than_bash_for_their_scripts(device):
    text = (device / "templates/network.tpl").read_text()
    for i in range(200):
        (device / f"templates/form{i}.tpl").write_text(text)
        shutil.copy(device / "scripts/network.sh", device / f"scripts/form{i}.sh")
    syntax = f"for f in {device}/scripts/*.sh; do bash -n $f; done"
    times = sorted(spent(LINT, "--no-shellcheck", device) / spent("bash", "-c", syntax) for _ in range(5))
    assert times[len(times) // 2] < float(os.environ.get("TIMES_BASH", 2)), times


@pytest.mark.parametrize("path, part", [
    ("templates/log.tpl", "if $V:a%d$\nfield f_%d_x 3\nlabel L\ncheck nullok word\ncheck_msg f_%d_x Bad\nendif\n"
     "error $E:f_%d_x$\nfield same 3\nlabel L%d\ntext a%d\n"),
    ("scripts/log.sh", "f%d() {\n  local a=$1\n  if [[ $a == x%d ]]; then orv_error b \"$a\"; fi\n  cat <<X\n%d\nX\n"
     "  case $1 in a) orv_put c%d \"$a\" ;; *) echo a >\"$2\" ;; esac\n}\nf%d x \"$3\" y%d\n"),
    ("scripts/log.sh", "if [[ $x == a%d ]]; then\n  printf %d%d \"$x\"\nfi\ny%d=$(cat \"$file\")\nz%d=%d\n")],
    ids=["template", "script", "tests"])
@IDLE
def test_time_grows_with_the_size_and_not_with_its_square(path, part, device):
    def seconds(count):
        whole = "".join(part % ((i,) * 6) for i in range(count))
        (device / path).write_text(text + whole)
        return spent(LINT, "--no-shellcheck", device)
    text = (device / path).read_text()
    base = seconds(0)
    assert seconds(4000) - base < 9 * max(seconds(1000) - base, 0.02)


ENDLESS = [
    ("yes a=1", "run-long"),
    ("(while sleep 0.1; do echo a=1; done) &", "run-pipe"),
    ("(sleep 99 >/dev/null) & echo a=1", None),
    ("exec 3>&1; sleep 99 >/dev/null & echo a=1", "run-pipe"),
    ("sleep 99 | cat >/dev/null & echo a=1", None),
    ("dd if=/dev/zero of=/dev/null bs=2000000000 count=1 2>/dev/null", "run-status"),
    ("[[ -z $ORV_STATE ]] || echo nonsense", None),
]


def test_a_run_ends_whatever_its_scripts_do(device, monkeypatch):
    monkeypatch.setenv("ORV_STATE", "/nowhere")
    for script, rule in ENDLESS:
        (device / "scripts/log.sh").write_text("#!/bin/bash\n" + script + "\n")
        told = {rule for name, _, rule in lint(device, "--run") if name == "log.sh" and rule.startswith("run-")}
        assert (rule in told) if rule else told <= {"run-unreported"}, (script, told)


def test_nothing_is_left_of_a_killed_run(device, tmp_path_factory):
    place = tmp_path_factory.mktemp("copies")
    os.mkfifo(place.parent / (pipe := f"{place.name}.fifo"))
    (device / "scripts/log.sh").write_text(f"#!/bin/bash\necho started >'{place.parent / pipe}'\nsleep 1000\n")
    for number in (signal.SIGTERM, signal.SIGKILL):
        run = subprocess.Popen([LINT, "--no-shellcheck", "--run", device], env=os.environ | {"TMPDIR": str(place)},
                               stdout=subprocess.DEVNULL)
        assert (place.parent / pipe).read_text() == "started\n" and os.listdir(place)
        run.send_signal(number)
        run.wait()
        deadline = time.monotonic() + 60
        while os.listdir(place) and time.monotonic() < deadline:
            time.sleep(0.02)
        assert os.listdir(place) == []


def test_the_program_says_how_it_is_used(tmp_path):
    def status(*arguments):
        run = subprocess.run([LINT, *arguments], capture_output=True, text=True)
        return run.returncode, run.stdout, run.stderr
    assert status()[0] == status(tmp_path)[0] == status("--explain", "nothing")[0] == 2
    assert status("--help")[0] == 0 and status("--version")[1].startswith("orv-lint ")
    assert "host_name" in status("--explain", "name-characters")[1]
    (tmp_path / "templates").mkdir()
    (tmp_path / "templates/a.tpl").write_text("title A\nbody\ntext $Q$\n# orv-lint: off unknown-tag\ntext $Q$\n")
    code, out, err = status("--format=gcc", "--werror", tmp_path)
    assert code == 1 and "a.tpl:3:6: error: " in out and "a.tpl:5" not in out and "findings" in err
    (tmp_path / "scripts").mkdir()
    for i, opens in enumerate(["$(", "${a:-", '"$(', "<(", "$((", "${a["]):
        (tmp_path / f"scripts/{i}.sh").write_text("echo " + opens * 20000)
    (tmp_path / "templates/b.tpl").write_text("title B\nbody\n" + "if $V:a$\n" * 3000)
    (tmp_path / "templates/c.tpl").symlink_to("c.tpl")
    os.mkfifo(tmp_path / "templates/d.tpl")
    code, out, err = status("--no-shellcheck", tmp_path)
    assert code == 1 and "b.tpl:3000" in out and "findings" in err
