// Conveniences: every page works without this script.
"use strict";

const ICON = "/css/orv.css"; // larkspur-brand puts a maker's own here
const PATIENCE = 60000; // ms: a lost answer locks no form
const CONTROLS = "input:not([type=hidden]), select";
const edited = new Set();
let timers = [];
let notice = null; // is there while an answer is under way
let asked = null; // how the form is drawn

const all = (selector, page = document) =>
  [...page.querySelectorAll(selector)];
const create = (name, properties) =>
  Object.assign(document.createElement(name), properties);
const linkTo = (href, textContent) => create("a", {href, textContent});
const on = addEventListener; // of the window

// Browsers request an icon if no page names one.
document.head.append(create("link", {rel: "icon", href: ICON}));

// Screen readers announce text added to a status.
function begin() {
  asked = null; // an answer that is late would hide that of the press
  notice = create("div", {className: "working", role: "status"});
  document.body.append(notice);
  timers = [setTimeout(() => { notice.textContent = "Working…"; }, 1000),
            setTimeout(end, PATIENCE)];
}

function end() {
  timers.forEach(clearTimeout);
  notice?.remove();
  notice = null;
}

// A redraw continues when the user stops the browser.
const stopped = () => notice?.isHere || end();

// The returned page, or null.
const load = (url, body) =>
  fetch(url, {method: body ? "POST" : "GET", body,
              signal: AbortSignal.timeout?.(PATIENCE)})
    .then((answer) => answer.text())
    .then((text) => new DOMParser().parseFromString(text, "text/html"))
    .catch(() => null);

const isThisForm = (page) => page?.forms.f1 &&
  carried("form", page) === carried("form");

const fieldsOf = (form) => new URLSearchParams(new FormData(form));
const send = (form, fields) => load(form.getAttribute("action"), fields);

// A second press would save twice; a disabled button is not sent.
on("submit", (event) => {
  if (notice) {
    return event.preventDefault();
  }
  all(".show").forEach((one) => reveal(one, false)); // browsers keep texts
  begin();
  if (event.submitter?.value === "Submit" && find("[name^=o_wait_]")) {
    event.preventDefault();
    notice.isHere = true;
    submitHere(event.target);
  }
});

// The browser's Stop, where it sends an event, or Escape.
window.navigation?.addEventListener("navigate", ({signal}) =>
  signal.addEventListener("abort", stopped));

// Enter presses Submit, not the form's first button, Home.
on("keydown", (event) => {
  if (event.key === "Escape") {
    stopped();
  }
  const submit = event.key === "Enter" && !event.isComposing &&
    /^(text|password|checkbox)$/.test(event.target.type) &&
    find("[name=action][value=Submit]");
  if (submit) {
    event.preventDefault();
    if (!event.repeat) {
      submit.click(); // not when disabled
    }
  }
});

// --- secrets ---

const nameOf = (field) => field.labels[0]?.textContent || field.ariaLabel;

function reveal(button, isShown) {
  const field = button.previousSibling;
  field.type = isShown ? "text" : "password";
  button.value = isShown ? "Hide" : "Show";
  button.ariaLabel = `${button.value} ${nameOf(field)}`;
}

function addButtons(page) {
  for (const field of all("[type=password]", page)) {
    const name = `show ${field.name}`;
    field.after(create("input", {type: "button", className: "show", name}));
    reveal(field.nextSibling, false);
  }
}

on("click", ({target}) =>
  target.className === "show" && reveal(target, target.value === "Show"));

// --- redrawing the form ---
// The answer replaces the page and keeps input made meanwhile.  The focused
// control is not replaced, so selection and on-screen keyboard stay.

const keyOf = ({localName, name, type, value}) =>
  localName + name + (type === "submit" ? value : "");

function copyEntry(from, to) {
  const {value} = to;
  to.checked = from.checked;
  to.value = from.value;
  if (to.selectedIndex < 0) { // no choice any more
    to.value = value;
  }
}

// Replaces everything around `kept` by what is around `twin`.
function replaceAround(kept, twin, root) {
  kept.getAttributeNames().forEach(
    (name) => twin.hasAttribute(name) || kept.removeAttribute(name));
  for (; kept !== root; kept = kept.parentNode, twin = twin.parentNode) {
    const parts = [...twin.parentNode.childNodes];
    const at = parts.indexOf(twin);
    [...kept.parentNode.childNodes].filter((one) => one !== kept)
      .forEach((one) => one.remove());
    kept.before(...parts.slice(0, at));
    kept.after(...parts.slice(at + 1));
  }
}

// Names are case-insensitive.
const isWatched = ({name, form}) => form?.dataset.conditions?.toLowerCase()
  .split(" ").includes(name.toLowerCase());

// Keeps help texts and rows marked for deletion.
function question(form) {
  const fields = fieldsOf(form);
  all("input.multicol").forEach(({name}) => fields.delete(name));
  if (find("p.help")) {
    fields.set("action", "Help");
  }
  return fields;
}

// A refused value that was not edited is still wrong.  Its message moves to
// its place: a row after the field's, or after the table.
function keepMarks(pairs, main, fresh) {
  const count = (page) => all("[aria-invalid]", page).length;
  const wrong = count(main);
  const said = find("p.error[role]");
  for (const [one, twin] of pairs) {
    if (one.matches("[aria-invalid], [aria-describedby]") && !isChanged(one)) {
      one.getAttributeNames().forEach((name) => /^a(ria|uto)/.test(name) &&
        twin.setAttribute(name, one.getAttribute(name)));
      twin.parentNode.append(...all(".wrong", one.parentNode));
    }
  }
  for (const message of all("p.error[id]", main).reverse()) {
    const row = message.closest("tr");
    find(`[aria-describedby=${message.id}]`, fresh)
      ?.closest(row ? "tr" : "table").after(row || message);
  }
  const left = count(fresh);
  if (said && (left || !wrong) && !find(".error[role]", fresh)) {
    if (left < wrong) {
      said.textContent = said.textContent.replace(/^\d+/, left);
    }
    said.ariaLive = "off"; // it was read out before
    find("h1", fresh).after(said);
  }
}

// Only the last answer is used; an error changes nothing.
async function redraw(form) {
  const fields = asked = question(form);
  const page = await send(form, fields);
  if (asked !== fields || notice || !isThisForm(page)) {
    return;
  }
  addButtons(page);
  const main = find("main");
  const fresh = find("main", page);
  const own = new Map(all(CONTROLS, main).map((one) => [keyOf(one), one]));
  const pairs = all(CONTROLS, fresh)
    .map((twin) => [own.get(keyOf(twin)), twin]).filter(([one]) => one);
  if (pairs.length < own.size && `${fields}` !== `${question(form)}`) {
    return redraw(form); // a field goes that was typed in
  }
  keepMarks(pairs, main, fresh);
  pairs.forEach(([one, twin]) => one.disabled || copyEntry(one, twin));
  const kept = pairs.find(([one]) => one.matches(":focus"));
  if (kept) {
    replaceAround(...kept, main);
  } else {
    main.replaceChildren(...fresh.childNodes);
  }
}

on("change", ({target}) =>
  isWatched(target) && redraw(target.form));

// --- status pages ---
// With live_seconds reported and nothing to submit, values are refreshed; those
// of the fields in live_tell are announced.  A sentence marks values that are
// old because no new ones arrived.


function keepFresh() {
  const least = 1000 * carried("o_live_seconds");
  if (!least || find("[value=Submit]").offsetWidth) {
    return;
  }
  const told = carried("o_live_tell").split(" ");
  const status = create("div", {className: "told", role: "status"});
  const stop = create("input", {type: "button", className: "bottombar"});
  const fault = create("p", {className: "error", role: "note"});
  const query = new URLSearchParams(["form", "subitem", "expert_mode"]
    .map((name) => [name, carried(name)]));
  let since = new Date();
  let pause = 0;
  let timer;
  let isOn;

  function show(page) {
    status.textContent = "";
    fault.remove();
    since = new Date();
    for (const fact of all("main [type=text]")) {
      const twin = page.getElementsByName(fact.name)[0];
      const value = twin?.value || "";
      if (fact.value !== value) {
        if (told.includes(fact.name)) {
          status.textContent = `${nameOf(fact)}: ${value}`;
        }
        fact.value = value;
        find("[data-text]", fact.parentNode)?.remove();
        twin && fact.after(...all("[data-text]", twin.parentNode));
      }
    }
    find(".hidden").replaceWith(find(".hidden", page));
  }

  function warn() {
    if (!fault.isConnected) {
      fault.textContent = status.textContent =
        `No new values since ${since.toLocaleTimeString()}.`;
      find("form").before(fault);
    }
  }

  async function refresh() {
    const began = Date.now();
    const page = await load(`?${query}`);
    const isFresh = isThisForm(page);
    if (isOn) {
      isFresh ? show(page) : warn();
    }
    pause = isFresh ? 4 * (Date.now() - began) : 2 * pause;
    plan();
  }

  function plan() {
    clearTimeout(timer);
    if (isOn && !document.hidden) {
      pause = Math.min(Math.max(pause, least), PATIENCE);
      timer = setTimeout(refresh, pause);
    }
  }

  stop.onclick = () => {
    isOn = !isOn;
    stop.value = isOn ? "Stop updates" : "Start updates";
    fault.remove();
    plan();
  };
  document.addEventListener("visibilitychange", plan);
  find(".bottombar").append(stop, status);
  stop.click();
}

// --- waiting for the device ---
// The page that follows a restart learns of it from its
// The page that confirms runs no scripts; where wait_restart (seconds) or
// wait_address (the new one) is reported, this page shows it and waits, and
// counts wait_confirm, the seconds after which a change goes back; so does the
// form that keeps it.  The page that follows a restart learns of it from its
// address.

const RESTARTED = "#restarted";

function tellRestart() {
  if (location.hash === RESTARTED) {
    document.title = find("h1").textContent = `Restarted: ${document.title}`;
    history.replaceState(null, "", location.pathname);
  }
}

// An address in bold on the confirmation becomes a link.
function linkAddress(bold) {
  const text = bold.textContent;
  if (/^https?:\/\/\S+$/.test(text)) {
    bold.replaceChildren(linkTo(text, text));
  }
}

async function submitHere(form) {
  const fields = fieldsOf(form);
  fields.set("action", "Submit");
  const page = await send(form, fields);
  end();
  if (!page?.forms.f1) { // a refusal, a server's own page: all stays typed
    return alert(page && find("p.error", page)?.textContent ||
      "No answer. Is the device on?");
  }
  document.title = page.title;
  document.body.replaceWith(page.body);
  find("main").tabIndex = -1; // read from its beginning
  find("main").focus();
  addButtons(document);
  scrollToCoordinates();
  if (carried("form") !== "changes_saved") {
    return;
  }
  all("main em").forEach(linkAddress);
  if (carried("o_wait_restart") + carried("o_wait_address")) {
    waitForDevice();
  }
  countDown(carried("o_wait_confirm"));
}

// Worded to stay true if somebody else has kept the change.
function countDown(seconds) {
  if (!+seconds) {
    return;
  }
  const line = create("p", {className: "plain", role: "timer"});
  const end = Date.now() + 1000 * seconds;
  find("form").before(line);
  const tick = () => {
    const left = Math.ceil((end - Date.now()) / 1000);
    line.textContent = left > 0 ? `${left} seconds left.`
      : "The old settings are back unless somebody kept it.";
    if (left > 0) {
      setTimeout(tick, 1000);
    }
  };
  tick();
}

async function waitForDevice() {
  const least = 1000 * carried("o_wait_restart") || 20000;
  const url = new URL(location.pathname, location.href);
  url.host = carried("o_wait_address") || url.host;
  const way = linkTo(url, url.host);
  const line = create("p", {className: "waiting", role: "status"});
  const worker = new Worker("/js/position.js"); // asks any address
  let isBack = false;
  let wasAway = url.host !== location.host;
  const began = Date.now();
  find("form").before(line);
  line.append("Waiting for the device at ", way, " …", create("progress"));
  document.title = "Waiting for the device";
  worker.onmessage = () => { isBack = true; };
  for (let pause = 2000; Date.now() - began < 10 * least; pause *= 1.5) {
    isBack = false;
    worker.postMessage(url.origin + ICON);
    await new Promise((done) => { setTimeout(done, Math.min(pause, 15000)); });
    if (isBack && (wasAway || Date.now() - began > least)) {
      // The "?" makes it another page, which the browser must load.
      location.assign(carried("o_wait_restart") ? `${url}?${RESTARTED}`
                                                     : url);
      return;
    }
    wasAway ||= !isBack;
  }
  document.title = "No answer";
  Object.assign(line, {className: "error", role: "alert"});
  line.replaceChildren("No answer. Does the device have power and its cable? " +
    "Then open ", way);
}

// --- unsaved changes ---

function isChanged(control) {
  if (control.options) {
    const list = [...control.options];
    return !(list.find((one) => one.defaultSelected) || list[0]).selected;
  }
  return control.checked !== control.defaultChecked ||
    control.value !== control.defaultValue;
}

function ask(event) {
  if (!notice && find(".bottombar") &&
      (find("[data-changed]") || [...edited].some(isChanged))) {
    event.preventDefault();
    event.returnValue = true;
  }
}

// Some browsers do not cache a page for Back that handles this.
const listen = () => on("beforeunload", ask);

on("input", (event) => {
  edited.add(event.target);
  listen();
});

on("DOMContentLoaded", () => {
  addButtons(document);
  keepFresh();
  tellRestart();
  countDown(carried("o_confirm_left"));
});

// A page restored by Back was submitted or abandoned.
on("pageshow", () => {
  end();
  edited.clear();
  if (find("[data-changed]")) {
    listen();
  }
  if (all(CONTROLS).some((one) => isWatched(one) && isChanged(one))) {
    redraw(document.forms.f1);
  }
});
