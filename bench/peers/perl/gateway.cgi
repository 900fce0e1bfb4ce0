#!/usr/bin/perl -T
# The form of the gateway's settings, stored as lines NAME=VALUE.
use strict;
use warnings;

use constant STORE    => '../state/gateway';
use constant MAX_BODY => 65536;
use constant MAX_ROWS => 32;

my $BYTE   = qr/25[0-5]|2[0-4]\d|1\d\d|[1-9]?\d/a;
my $IP     = qr/(?:$BYTE)(?:\.(?:$BYTE)){3}/;
my $LABEL  = qr/[A-Za-z0-9](?:[A-Za-z0-9-]{0,61}[A-Za-z0-9])?/;
my $CHOOSE = 'Choose one of the entries';
my $NUMBER = 'Enter a number from 1 to 30';

# Name, label, size of a text or its choices, its pattern, may it be blank, the
# message otherwise, a hint.
my @FIELDS = (
  ['host_name', 'Device name', 24, $LABEL, 0,
    'Use letters, digits and hyphens, 63 at most', 'For example gateway-1'],
  ['location', 'Location', 30, qr/[ -~]{1,60}/, 1, 'Use 60 characters at most'],
  ['contact', 'Contact', 30, qr/[\w.+-]{1,60}@[A-Za-z0-9.-]{1,60}/a, 1,
    'Enter a mail address', 'A mail address'],
  ['addressing', 'Addressing', [no => 'Automatic', yes => 'Static'],
    qr/no|yes/, 0, $CHOOSE],
  ['ip_address', 'Address', 15, $IP, 0, 'Enter an address such as 192.168.1.20',
    'For example 192.168.1.20'],
  ['prefix', 'Network size', 2, qr/[1-9]|[12]\d|30/a, 0, $NUMBER,
    '1 to 30, usually 24'],
  ['gateway', 'Gateway', 15, $IP, 1, 'Enter an address such as 192.168.1.1'],
  ['dns1', 'Name server', 15, $IP, 1, 'Enter an address such as 9.9.9.9'],
  ['dns2', 'Second name server', 15, $IP, 1,
    'Enter an address such as 9.9.9.9'],
  ['ntp', 'Time server', 30, qr/$IP|(?=.{1,253}\z)$LABEL(?:\.$LABEL)*/, 1,
    'Enter a host name or an address', 'A host name or an address'],
  ['log_level', 'Log',
    [error => 'Errors', notice => 'Events', debug => 'Everything'],
    qr/error|notice|debug/, 0, $CHOOSE],
  ['ssh', 'Remote login', 0, qr/True|False/, 1, ''],
);
my @COLUMNS = (
  ['fw_proto', 'Protocol', [tcp => 'TCP', udp => 'UDP', both => 'Both'],
    qr/tcp|udp|both/, 0, $CHOOSE],
  ['fw_port', 'Outside port', 5, qr/\d{1,5}/a, 0, 'Enter a port, 1 to 65535'],
  ['fw_to', 'Device', 15, $IP, 0, 'Enter an address such as 192.168.1.50'],
  ['fw_note', 'Note', 20, qr/[ -~]{1,40}/, 1, 'Use 40 characters at most'],
);
my %STATIC = map { $_ => 1 } qw(ip_address prefix gateway);
my %ENTITY = ('&' => '&amp;', '<' => '&lt;', '>' => '&gt;', '"' => '&quot;',
  "'" => '&#39;');

my (%value, %error);
my $rows = 0;

sub esc {
  my ($text) = @_;
  $text =~ s/([&<>"'])/$ENTITY{$1}/g;
  return $text;
}

sub page {
  my ($content, $status) = @_;
  my $links = join '', map { qq(<li><a href="$_.cgi">\u$_</a></li>\n) }
    qw(gateway status users log system);
  print join("\r\n", 'Status: ' . ($status // '200 OK'),
    'Content-Type: text/html; charset=utf-8',
    'Cache-Control: private, no-cache', 'X-Content-Type-Options: nosniff',
    'X-Frame-Options: SAMEORIGIN',
    "Content-Security-Policy: default-src 'none'; style-src 'self'; "
      . "form-action 'self'; frame-ancestors 'self'; base-uri 'none'", '', ''),
    <<"END";
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Gateway</title>
<link rel="stylesheet" href="/style.css">
</head>
<body>
<nav><ul>
$links</ul></nav>
<main>
<h1>Gateway</h1>
$content</main>
</body>
</html>
END
}

# A control and its message; ARIA names it where no label does.
sub control {
  my ($field, $key, $aria) = @_;
  my (undef, undef, $size, undef, undef, undef, $hint) = @$field;
  my $value = $value{$key} // '';
  my $error = $error{$key};
  my $more  = qq( id="$key") . ($aria ? qq( aria-label="$aria") : '');
  $more .= qq( aria-invalid="true" aria-describedby="$key-error") if $error;
  my $text;
  if (ref $size) {
    $text = qq(<select name="$key"$more>\n);
    for (my $i = 0; $i < @$size; $i += 2) {
      my ($choice, $shown) = @$size[$i, $i + 1];
      my $selected = $choice eq $value ? ' selected' : '';
      $text .= qq(<option value="$choice"$selected>$shown</option>\n);
    }
    $text .= '</select>';
  }
  elsif (!$size) {
    $more .= ' checked' if $value eq 'True';
    $text = qq(<input type="checkbox" name="$key" value="True"$more>);
  }
  else {
    $text = qq(<input name="$key" value=") . esc($value)
      . qq(" size="$size"$more>);
  }
  $text .= " <small>$hint</small>" if $hint;
  $text .= qq(<br><em id="$key-error">) . esc($error) . '</em>' if $error;
  return $text;
}

sub form {
  my ($note) = @_;
  my $text = $note ? qq(<p role="status">$note</p>\n) : '';
  $text .= qq(<form method="post" action="gateway.cgi">\n<table>\n);
  for my $field (@FIELDS) {
    my ($key, $label) = @$field;
    next if $STATIC{$key} && ($value{addressing} // '') ne 'yes';
    $text .= qq(<tr><th><label for="$key">$label</label></th><td>)
      . control($field, $key) . "</td></tr>\n";
  }
  $text .= "</table>\n<h2>Port forwards</h2>\n<table>\n<tr>"
    . join('', map { "<th>$_->[1]</th>" } @COLUMNS) . "</tr>\n";
  for my $i (0 .. $rows) {
    my $row = $i + 1;
    $text .= join '', '<tr>',
      map({ '<td>' . control($_, "$_->[0]$i", "$_->[1], row $row") . '</td>' }
        @COLUMNS), "</tr>\n";
  }
  return $text
    . qq(</table>\n<p><input type="submit" value="Submit"></p>\n</form>\n);
}

sub from_here {
  if (my $site = $ENV{HTTP_SEC_FETCH_SITE}) {
    return $site eq 'same-origin' || $site eq 'none';
  }
  my $origin = $ENV{HTTP_ORIGIN} or return 1;
  return $origin =~ m{^https?://(.+)\z}s && $1 eq ($ENV{HTTP_HOST} // '');
}

sub load {
  open my $file, '<', STORE or return;
  while (<$file>) {
    chomp;
    my ($name, $text) = split /=/, $_, 2;
    $value{$name} = $text;
  }
  $rows = $value{rows} // 0;
}

# Replaces the stored values by the posted ones; rows in use move together.
sub take {
  my ($body) = @_;
  my %got;
  for (split /&/, $body) {
    my ($name, $text) = split /=/, $_, 2;
    $text //= '';
    tr/+/ /, s/%([0-9A-Fa-f]{2})/chr hex $1/ge for $name, $text;
    $text =~ s/^\s+|\s+\z//g;
    $got{$name} = $text;
  }
  $value{$_->[0]} = $got{$_->[0]} // '' for grep {
    !$STATIC{$_->[0]} || ($got{addressing} // '') eq 'yes' } @FIELDS;
  $value{ssh} = $value{ssh} ? 'True' : 'False';
  $rows = 0;
  for my $i (0 .. MAX_ROWS) {
    next if !grep { length($got{"$_$i"} // '') } qw(fw_port fw_to fw_note);
    $value{"$_->[0]$rows"} = $got{"$_->[0]$i"} // '' for @COLUMNS;
    $rows++;
  }
}

sub judge {
  my ($field, $key) = @_;
  my (undef, undef, undef, $pattern, $blank, $message) = @$field;
  my $good = length $value{$key} ? $value{$key} =~ /\A(?:$pattern)\z/ : $blank;
  $error{$key} = $message if !$good;
}

sub check {
  my $static = $value{addressing} eq 'yes';
  for (@FIELDS) {
    judge($_, $_->[0]) if $static || !$STATIC{$_->[0]};
  }
  if ($static && $value{gateway} && $value{gateway} eq $value{ip_address}) {
    $error{gateway} = 'The gateway must be another device than this one';
  }
  if ($value{dns2} && !$value{dns1}) {
    $error{dns1} = 'Fill in the first name server before the second';
  }
  my %seen;
  for my $i (0 .. $rows - 1) {
    judge($_, "$_->[0]$i") for @COLUMNS;
    my $key = "fw_port$i";
    next if $error{$key};
    my $port = $value{$key} + 0;
    $error{$key} = $COLUMNS[1][5] if $port < 1 || $port > 65535;
    for my $proto ('tcp', 'udp') {
      next if $value{"fw_proto$i"} ne $proto && $value{"fw_proto$i"} ne 'both';
      my $other = $seen{"$proto $port"} //= $i + 1;
      $error{$key} = "Row $other has this port already" if $other != $i + 1;
    }
  }
  return !%error && $rows <= MAX_ROWS;
}

# Replaces the whole file: a reader sees the old one or the new.
sub store {
  my $new  = STORE . ".$$";
  my $text = join '', map { "$_=" . ($value{$_} // '') . "\n" }
    map({ $_->[0] } @FIELDS),
    map { my $i = $_; map { "$_->[0]$i" } @COLUMNS } 0 .. $rows - 1;
  require Fcntl; # here, since a page that stores nothing does not need it
  require IO::Handle;
  sysopen my $file, $new,
    Fcntl::O_WRONLY() | Fcntl::O_CREAT() | Fcntl::O_EXCL(), 0600 or return 0;
  my $done = print({$file} $text, "rows=$rows\n") && $file->flush
    && $file->sync && close $file;
  $done &&= rename $new, STORE;
  unlink $new if !$done;
  return $done;
}

load();
if ($ENV{REQUEST_METHOD} ne 'POST') {
  page(form());
}
elsif (!from_here()) {
  page("<p>The request was refused.</p>\n", '403 Forbidden');
}
elsif (($ENV{CONTENT_LENGTH} || 0) > MAX_BODY) {
  page("<p>The request is too long.</p>\n", '413 Content Too Large');
}
else {
  read STDIN, my $body, $ENV{CONTENT_LENGTH} || 0;
  take($body);
  page(form(!check()
    ? 'Nothing was saved yet. Please look at the marked fields.'
    : store() ? 'Your changes are saved.'
    : 'The settings could not be stored. Is the storage full?'));
}
