<?php
// The form of the gateway's settings, stored as JSON.
declare(strict_types=1);

const STORE = __DIR__ . '/../state/gateway.json';
const MAX_BODY = 65536;
const MAX_ROWS = 32;

const LABEL = '[A-Za-z0-9](?:[A-Za-z0-9-]{0,61}[A-Za-z0-9])?';
const CHOOSE = 'Choose one of the entries';

// Name => label, size of a text or its choices, its check (a pattern, or a
// function), may it be blank, the message otherwise, a hint.
const FIELDS = [
    'host_name' => ['Device name', 24, LABEL, false,
        'Use letters, digits and hyphens, 63 at most', 'For example gateway-1'],
    'location' => ['Location', 30, '[ -~]{1,60}', true,
        'Use 60 characters at most', ''],
    'contact' => ['Contact', 30, '[\w.+-]{1,60}@[A-Za-z0-9.-]{1,60}', true,
        'Enter a mail address', 'A mail address'],
    'addressing' => ['Addressing', ['no' => 'Automatic', 'yes' => 'Static'],
        '', false, CHOOSE, ''],
    'ip_address' => ['Address', 15, 'is_ip', false,
        'Enter an address such as 192.168.1.20', 'For example 192.168.1.20'],
    'prefix' => ['Network size', 2, '[1-9]|[12]\d|30', false,
        'Enter a number from 1 to 30', '1 to 30, usually 24'],
    'gateway' => ['Gateway', 15, 'is_ip', true,
        'Enter an address such as 192.168.1.1', ''],
    'dns1' => ['Name server', 15, 'is_ip', true,
        'Enter an address such as 9.9.9.9', ''],
    'dns2' => ['Second name server', 15, 'is_ip', true,
        'Enter an address such as 9.9.9.9', ''],
    'ntp' => ['Time server', 30, 'is_host', true,
        'Enter a host name or an address', 'A host name or an address'],
    'log_level' => ['Log', ['error' => 'Errors', 'notice' => 'Events',
        'debug' => 'Everything'], '', false, CHOOSE, ''],
    'ssh' => ['Remote login', 0, 'True|False', true, '', ''],
];
const COLUMNS = [
    'fw_proto' => ['Protocol', ['tcp' => 'TCP', 'udp' => 'UDP',
        'both' => 'Both'], '', false, CHOOSE, ''],
    'fw_port' => ['Outside port', 5, 'is_port', false,
        'Enter a port, 1 to 65535', ''],
    'fw_to' => ['Device', 15, 'is_ip', false,
        'Enter an address such as 192.168.1.50', ''],
    'fw_note' => ['Note', 20, '[ -~]{1,40}', true,
        'Use 40 characters at most', ''],
];
const IF_STATIC = ['ip_address' => 1, 'prefix' => 1, 'gateway' => 1];

function esc(string $text): string
{
    return htmlspecialchars($text, ENT_QUOTES | ENT_SUBSTITUTE, 'UTF-8');
}

function is_ip(string $text): bool
{
    return filter_var($text, FILTER_VALIDATE_IP, FILTER_FLAG_IPV4) !== false;
}

function is_host(string $text): bool
{
    return filter_var($text, FILTER_VALIDATE_DOMAIN, FILTER_FLAG_HOSTNAME)
        !== false;
}

function is_port(string $text): bool
{
    return preg_match('/^\d{1,5}$/D', $text) && $text >= 1 && $text <= 65535;
}

/** A control and its message; $aria names it where no label does. */
function control(array $field, string $key, string $value, ?string $error,
    string $aria = ''): void
{
    [, $size, , , , $hint] = $field;
    $more = " id=\"$key\"" . ($aria ? " aria-label=\"$aria\"" : '');
    if ($error !== null) {
        $more .= " aria-invalid=\"true\" aria-describedby=\"$key-error\"";
    }
    if (is_array($size)) {
        echo "<select name=\"$key\"$more>\n";
        foreach ($size as $choice => $text) {
            $selected = $choice === $value ? ' selected' : '';
            echo "<option value=\"$choice\"$selected>$text</option>\n";
        }
        echo '</select>';
    } elseif ($size === 0) {
        $more .= $value === 'True' ? ' checked' : '';
        echo "<input type=\"checkbox\" name=\"$key\" value=\"True\"$more>";
    } else {
        echo "<input name=\"$key\" value=\"", esc($value),
            "\" size=\"$size\"$more>";
    }
    if ($hint) {
        echo " <small>$hint</small>";
    }
    if ($error !== null) {
        echo "<br><em id=\"$key-error\">", esc($error), '</em>';
    }
}

function from_here(): bool
{
    $site = $_SERVER['HTTP_SEC_FETCH_SITE'] ?? '';
    if ($site !== '') {
        return $site === 'same-origin' || $site === 'none';
    }
    $origin = $_SERVER['HTTP_ORIGIN'] ?? '';
    return $origin === ''
        || preg_replace('#^https?://#', '', $origin) === $_SERVER['HTTP_HOST'];
}

function posted(string $name): string
{
    $value = $_POST[$name] ?? '';
    return is_string($value) ? trim($value) : '';
}

function judge(array $field, string $key, string $value, array &$errors): void
{
    [, $size, $check, $blank, $message] = $field;
    if (is_array($size)) {
        $good = isset($size[$value]);
    } elseif ($value === '') {
        $good = $blank;
    } elseif (str_starts_with($check, 'is_')) {
        $good = $check($value);
    } else {
        $good = preg_match("/^(?:$check)$/D", $value) === 1;
    }
    if (!$good) {
        $errors[$key] = $message;
    }
}

function check(array $values, array $rows): array
{
    $errors = $seen = [];
    $static = $values['addressing'] === 'yes';
    foreach (FIELDS as $key => $field) {
        if ($static || !isset(IF_STATIC[$key])) {
            judge($field, $key, $values[$key], $errors);
        }
    }
    if ($static && $values['gateway'] !== ''
        && $values['gateway'] === $values['ip_address']) {
        $errors['gateway'] = 'The gateway must be another device than this one';
    }
    if ($values['dns2'] !== '' && $values['dns1'] === '') {
        $errors['dns1'] = 'Fill in the first name server before the second';
    }
    foreach ($rows as $i => $row) {
        foreach (COLUMNS as $name => $field) {
            judge($field, "$name$i", $row[$name], $errors);
        }
        if (isset($errors["fw_port$i"])) {
            continue;
        }
        foreach (['tcp', 'udp'] as $proto) {
            if ($row['fw_proto'] !== $proto && $row['fw_proto'] !== 'both') {
                continue;
            }
            $other = $seen["$proto " . (int)$row['fw_port']] ??= $i + 1;
            if ($other !== $i + 1) {
                $errors["fw_port$i"] = "Row $other has this port already";
            }
        }
    }
    if (count($rows) > MAX_ROWS) {
        $errors['rows'] = '';
    }
    return $errors;
}

/** Replaces the whole file: a reader sees the old one or the new. */
function store(array $values, array $rows): bool
{
    $new = STORE . '.' . bin2hex(random_bytes(8));
    $text = json_encode(['values' => $values, 'rows' => $rows]);
    umask(077);
    $file = @fopen($new, 'x');
    $done = $file !== false && fwrite($file, $text) === strlen($text)
        && fsync($file) && fclose($file) && rename($new, STORE);
    if ($file !== false && !$done) {
        @unlink($new);
    }
    return $done;
}

header_remove('X-Powered-By');
header('Content-Type: text/html; charset=utf-8');
header('Cache-Control: private, no-cache');
header('X-Content-Type-Options: nosniff');
header('X-Frame-Options: SAMEORIGIN');
header("Content-Security-Policy: default-src 'none'; style-src 'self'; "
    . "form-action 'self'; frame-ancestors 'self'; base-uri 'none'");

$text = @file_get_contents(STORE);
['values' => $values, 'rows' => $rows] = $text === false
    ? ['values' => [], 'rows' => []]
    : json_decode($text, true, 8, JSON_THROW_ON_ERROR);
$errors = [];
$note = $refused = '';
if ($_SERVER['REQUEST_METHOD'] === 'POST') {
    if (!from_here()) {
        http_response_code(403);
        $refused = 'The request was refused.';
    } elseif ($_SERVER['CONTENT_LENGTH'] > MAX_BODY) {
        http_response_code(413);
        $refused = 'The request is too long.';
    } else {
        $static = posted('addressing') === 'yes';
        foreach (FIELDS as $key => $field) {
            if ($static || !isset(IF_STATIC[$key])) { // not drawn: it stays
                $values[$key] = posted($key);
            }
            $values[$key] ??= '';
        }
        $values['ssh'] = $values['ssh'] !== '' ? 'True' : 'False';
        $rows = [];
        for ($i = 0; $i <= MAX_ROWS; $i++) {
            $row = [];
            foreach (COLUMNS as $name => $field) {
                $row[$name] = posted("$name$i");
            }
            if ($row['fw_port'] . $row['fw_to'] . $row['fw_note'] !== '') {
                $rows[] = $row;
            }
        }
        $errors = check($values, $rows);
        if ($errors) {
            $note = 'Nothing was saved yet. Please look at the marked fields.';
        } elseif (store($values, $rows)) {
            $note = 'Your changes are saved.';
        } else {
            $note = 'The settings could not be stored. Is the storage full?';
        }
    }
}
?>
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
<?php foreach (['gateway', 'status', 'users', 'log', 'system'] as $page): ?>
<li><a href="<?= $page ?>.php"><?= ucfirst($page) ?></a></li>
<?php endforeach ?>
</ul></nav>
<main>
<h1>Gateway</h1>
<?php if ($refused): ?>
<p><?= $refused ?></p>
<?php else: ?>
<?php if ($note): ?>
<p role="status"><?= $note ?></p>
<?php endif ?>
<form method="post" action="gateway.php">
<table>
<?php foreach (FIELDS as $key => $field): ?>
<?php if (($values['addressing'] ?? '') === 'yes'
    || !isset(IF_STATIC[$key])): ?>
<tr><th><label for="<?= $key ?>"><?= $field[0] ?></label></th><td><?php
    control($field, $key, $values[$key] ?? '', $errors[$key] ?? null)
    ?></td></tr>
<?php endif ?>
<?php endforeach ?>
</table>
<h2>Port forwards</h2>
<table>
<tr><?php foreach (COLUMNS as $field): ?><th><?= $field[0] ?></th><?php
    endforeach ?></tr>
<?php foreach ([...$rows, []] as $i => $row): ?>
<tr><?php foreach (COLUMNS as $name => $field): ?><td><?php
    control($field, "$name$i", $row[$name] ?? '', $errors["$name$i"] ?? null,
        "$field[0], row " . $i + 1) ?></td><?php endforeach ?></tr>
<?php endforeach ?>
</table>
<p><input type="submit" value="Submit"></p>
</form>
<?php endif ?>
</main>
</body>
</html>
