#!/usr/bin/lua5.4
-- The form of the gateway's settings, stored as a table that Lua reads.
local STORE <const> = "../state/gateway.lua"
local MAX_BODY <const> = 65536
local MAX_ROWS <const> = 32
local CHOOSE <const> = "Choose one of the entries"
local getenv, format, concat = os.getenv, string.format, table.concat

-- Checks ------------------------------------------------------------------

local IP <const> = "^" .. ("(%d%d?%d?)%."):rep(3) .. "(%d%d?%d?)$"

local function is_ip(text)
  local bytes = { text:match(IP) }
  for _, number in ipairs(bytes) do
    if tonumber(number) > 255 or number:match("^0%d") then return false end
  end
  return #bytes == 4
end

local function is_label(text)
  return #text <= 63 and text:match("^%w[%w-]*$") and not text:match("-$")
end

local function is_host(text)
  if is_ip(text) then return true end
  for label in (text .. "."):gmatch("(.-)%.") do
    if not is_label(label) then return false end
  end
  return #text <= 253
end

local function is_mail(text)
  local user, host = text:match("^([%w._+-]+)@([%w.-]+)$")
  return user and #user <= 60 and #host <= 60
end

local function is_number(max)
  return function(text)
    local number = text:match("^%d%d?%d?%d?%d?$")
    return number and tonumber(number) >= 1 and tonumber(number) <= max
  end
end

local function is_text(max)
  return function(text) return #text <= max and not text:find("[^ -~]") end
end

-- Name, label, size of a text or its choices, its check, may it be blank, the
-- message otherwise, a hint.
local FIELDS <const> = {
  { "host_name", "Device name", 24, is_label, false,
    "Use letters, digits and hyphens, 63 at most", "For example gateway-1" },
  { "location", "Location", 30, is_text(60), true,
    "Use 60 characters at most" },
  { "contact", "Contact", 30, is_mail, true, "Enter a mail address",
    "A mail address" },
  { "addressing", "Addressing", { { "no", "Automatic" }, { "yes", "Static" } },
    nil, false, CHOOSE },
  { "ip_address", "Address", 15, is_ip, false,
    "Enter an address such as 192.168.1.20", "For example 192.168.1.20" },
  { "prefix", "Network size", 2, is_number(30), false,
    "Enter a number from 1 to 30", "1 to 30, usually 24" },
  { "gateway", "Gateway", 15, is_ip, true,
    "Enter an address such as 192.168.1.1" },
  { "dns1", "Name server", 15, is_ip, true,
    "Enter an address such as 9.9.9.9" },
  { "dns2", "Second name server", 15, is_ip, true,
    "Enter an address such as 9.9.9.9" },
  { "ntp", "Time server", 30, is_host, true, "Enter a host name or an address",
    "A host name or an address" },
  { "log_level", "Log", { { "error", "Errors" }, { "notice", "Events" },
    { "debug", "Everything" } }, nil, false, CHOOSE },
  { "ssh", "Remote login", false, is_text(5), true },
}
local COLUMNS <const> = {
  { "fw_proto", "Protocol", { { "tcp", "TCP" }, { "udp", "UDP" },
    { "both", "Both" } }, nil, false, CHOOSE },
  { "fw_port", "Outside port", 5, is_number(65535), false,
    "Enter a port, 1 to 65535" },
  { "fw_to", "Device", 15, is_ip, false,
    "Enter an address such as 192.168.1.50" },
  { "fw_note", "Note", 20, is_text(40), true, "Use 40 characters at most" },
}
local IF_STATIC <const> = { ip_address = true, prefix = true, gateway = true }

-- The page ----------------------------------------------------------------

local ENTITY <const> = { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;",
  ['"'] = "&quot;", ["'"] = "&#39;" }
local out = {}

local function put(...)
  for _, text in ipairs { ... } do out[#out + 1] = text end
end

local function esc(text) return (text:gsub("[&<>\"']", ENTITY)) end

-- A control and its message; `aria` names it where no label does.
local function control(field, key, value, message, aria)
  local size, hint = field[3], field[7]
  local more = format(' id="%s"', key)
  if aria then more = more .. format(' aria-label="%s"', aria) end
  if message then
    more = more .. format(' aria-invalid="true" aria-describedby="%s-error"',
      key)
  end
  if type(size) == "table" then
    put('<select name="', key, '"', more, ">\n")
    for _, choice in ipairs(size) do
      put('<option value="', choice[1],
        choice[1] == value and '" selected>' or '">', choice[2], "</option>\n")
    end
    put("</select>")
  elseif not size then
    put('<input type="checkbox" name="', key, '" value="True"', more,
      value == "True" and " checked>" or ">")
  else
    put('<input name="', key, '" value="', esc(value), '" size="', size, '"',
      more, ">")
  end
  if hint then put(" <small>", hint, "</small>") end
  if message then
    put('<br><em id="', key, '-error">', esc(message), "</em>")
  end
end

local function begin_page(status)
  put("Status: ", status, "\r\nContent-Type: text/html; charset=utf-8\r\n",
    "Cache-Control: private, no-cache\r\n",
    "X-Content-Type-Options: nosniff\r\nX-Frame-Options: SAMEORIGIN\r\n",
    "Content-Security-Policy: default-src 'none'; style-src 'self'; ",
    "form-action 'self'; frame-ancestors 'self'; base-uri 'none'\r\n\r\n",
    [[
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
]])
  for _, page in ipairs { "Gateway", "Status", "Users", "Log", "System" } do
    put('<li><a href="', page:lower(), '.cgi">', page, "</a></li>\n")
  end
  put("</ul></nav>\n<main>\n<h1>Gateway</h1>\n")
end

local function end_page()
  put("</main>\n</body>\n</html>\n")
  io.write(concat(out))
end

local function refuse(status, text)
  begin_page(status)
  put("<p>", text, "</p>\n")
  end_page()
end

local function show(values, rows, errors, note)
  begin_page("200 OK")
  if note then put('<p role="status">', note, "</p>\n") end
  put('<form method="post" action="gateway.cgi">\n<table>\n')
  for _, field in ipairs(FIELDS) do
    local key = field[1]
    if values.addressing == "yes" or not IF_STATIC[key] then
      put('<tr><th><label for="', key, '">', field[2], "</label></th><td>")
      control(field, key, values[key] or "", errors[key])
      put("</td></tr>\n")
    end
  end
  put("</table>\n<h2>Port forwards</h2>\n<table>\n<tr>")
  for _, field in ipairs(COLUMNS) do put("<th>", field[2], "</th>") end
  put("</tr>\n")
  for i = 0, #rows do
    local row = rows[i + 1] or {}
    put("<tr>")
    for _, field in ipairs(COLUMNS) do
      local key = field[1] .. i
      put("<td>")
      control(field, key, row[field[1]] or "", errors[key],
        field[2] .. ", row " .. i + 1)
      put("</td>")
    end
    put("</tr>\n")
  end
  put('</table>\n<p><input type="submit" value="Submit"></p>\n</form>\n')
  end_page()
end

-- The request -------------------------------------------------------------

local function from_here()
  local site, origin = getenv("HTTP_SEC_FETCH_SITE"), getenv("HTTP_ORIGIN")
  if site and site ~= "" then return site == "same-origin" or site == "none" end
  return not origin or origin == ""
    or origin:match("^https?://(.+)$") == getenv("HTTP_HOST")
end

local function decode(text)
  return (text:gsub("+", " "):gsub("%%(%x%x)", function(hex)
    return string.char(tonumber(hex, 16))
  end))
end

local function posted(length)
  local got, values, rows = {}, {}, {}
  for name, text in (io.read(length) or ""):gmatch("([^&=]+)=([^&]*)") do
    got[decode(name)] = decode(text):match("^%s*(.-)%s*$")
  end
  for _, field in ipairs(FIELDS) do values[field[1]] = got[field[1]] or "" end
  values.ssh = values.ssh ~= "" and "True" or "False"
  for i = 0, MAX_ROWS do
    local row = {}
    for _, field in ipairs(COLUMNS) do
      row[field[1]] = got[field[1] .. i] or ""
    end
    if row.fw_port .. row.fw_to .. row.fw_note ~= "" then
      rows[#rows + 1] = row
    end
  end
  return values, rows
end

local function judge(field, key, value, errors)
  local size, good = field[3], field[5]
  if type(size) == "table" then
    for _, choice in ipairs(size) do good = good or choice[1] == value end
  elseif value ~= "" then
    good = field[4](value)
  end
  if not good then errors[key] = field[6] end
end

local function check(values, rows)
  local errors, seen, static = {}, {}, values.addressing == "yes"
  for _, field in ipairs(FIELDS) do
    if static or not IF_STATIC[field[1]] then
      judge(field, field[1], values[field[1]], errors)
    end
  end
  if static and values.gateway ~= ""
    and values.gateway == values.ip_address then
    errors.gateway = "The gateway must be another device than this one"
  end
  if values.dns2 ~= "" and values.dns1 == "" then
    errors.dns1 = "Fill in the first name server before the second"
  end
  for i, row in ipairs(rows) do
    for _, field in ipairs(COLUMNS) do
      judge(field, field[1] .. i - 1, row[field[1]], errors)
    end
    local key = "fw_port" .. i - 1
    for _, proto in ipairs(errors[key] and {} or { "tcp", "udp" }) do
      if row.fw_proto == proto or row.fw_proto == "both" then
        local port = proto .. tonumber(row.fw_port)
        seen[port] = seen[port] or i
        if seen[port] ~= i then
          errors[key] = "Row " .. seen[port] .. " has this port already"
        end
      end
    end
  end
  if #rows > MAX_ROWS then errors.rows = "" end
  return errors
end

-- The store ---------------------------------------------------------------

local function quoted(record)
  local items = {}
  for name, text in pairs(record) do
    items[#items + 1] = format("%s=%q", name, text)
  end
  return "{" .. concat(items, ",") .. "}"
end

-- Replaces the whole file: a reader sees the old one or the new.
local function store(values, rows)
  local stat <close> = assert(io.open("/proc/self/stat"))
  local new = STORE .. "." .. stat:read("n") -- this process's id
  local items = {}
  for i, row in ipairs(rows) do items[i] = quoted(row) end
  local file = io.open(new, "w")
  local done = file and file:write("return {values=", quoted(values),
    ",\nrows={", concat(items, ",\n"), "}}\n")
  done = file and file:close() and done and os.rename(new, STORE)
  if not done then os.remove(new) end
  return done
end

-- The file can only name values, since it gets an empty environment.
local load_stored = loadfile(STORE, "t", {})
local stored = load_stored and load_stored() or { values = {}, rows = {} }
local length = tonumber(getenv("CONTENT_LENGTH") or "") or 0
if getenv("REQUEST_METHOD") ~= "POST" then
  show(stored.values, stored.rows, {})
elseif not from_here() then
  refuse("403 Forbidden", "The request was refused.")
elseif length > MAX_BODY then
  refuse("413 Content Too Large", "The request is too long.")
else
  local values, rows = posted(length)
  local errors, note = check(values, rows)
  if next(errors) then
    note = "Nothing was saved yet. Please look at the marked fields."
  else
    if values.addressing ~= "yes" then -- not drawn: it stays
      for key in pairs(IF_STATIC) do values[key] = stored.values[key] end
    end
    note = store(values, rows) and "Your changes are saved."
      or "The settings could not be stored. Is the storage full?"
  end
  show(values, rows, errors, note)
end
