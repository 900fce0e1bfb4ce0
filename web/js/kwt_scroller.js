// Help for the hand, beside what position.js does.
//
// Every page works without this file, which changes nothing that is posted, and
// says but "Working" where an answer is late.
"use strict";

(() => {
  const ICON = "/css/orv.css"; // a maker's own goes here
  const NOTICE_MS = 1000;
  const PATIENCE_MS = 60000; // a lost answer must not lock the form
  const edited = new Set(); // controls touched
  let timers = [];
  let notice = null; // is there while an answer is under way

  // Browsers ask for an icon that no page names; the style sheet is at hand.
  document.head.append(Object.assign(document.createElement("link"),
                                     {rel: "icon", href: ICON}));

  // A screen reader tells the text that comes into a status, not a status that
  // comes with its text.
  function begin() {
    notice = document.createElement("div");
    notice.className = "working";
    notice.setAttribute("role", "status");
    document.body.append(notice);
    timers = [
      setTimeout(() => { notice.textContent = "Working…"; }, NOTICE_MS),
      setTimeout(end, PATIENCE_MS),
    ];
  }

  function end() {
    if (notice) {
      timers.forEach(clearTimeout);
      notice.remove();
      notice = null;
    }
  }

  // A second press would save twice.  A disabled button's value is not sent.
  addEventListener("submit", (event) => {
    if (notice) {
      event.preventDefault();
    } else {
      begin();
    }
  });

  // The browser's Stop, where we are told; Escape is its key.
  if (window.navigation) {
    navigation.addEventListener("navigate", (event) => {
      event.signal.addEventListener("abort", end);
    });
  }

  // Enter would press the form's first button, Home; it means Submit.
  addEventListener("keydown", (event) => {
    const field = event.target;
    if (event.key === "Escape") {
      end();
    }
    const submit = event.key === "Enter" && !event.isComposing &&
      /^(text|checkbox)$/.test(field.type) &&
      document.querySelector('[name="action"][value="Submit"]');
    if (submit) {
      event.preventDefault();
      if (!event.repeat) {
        submit.click(); // not when disabled
      }
    }
  });

  function isChanged(control) {
    if (control.options) {
      const list = [...control.options];
      return !(list.find((o) => o.defaultSelected) || list[0]).selected;
    }
    return control.checked !== control.defaultChecked ||
      control.value !== control.defaultValue;
  }

  function isTrue(text) {
    return !/^(0|no|false|off)?$/i.test(text || "");
  }

  // Whether user values (u_) came that differ from the reported ones (o_), else
  // from the defaults (d_).  The u_ of a box is False: what it shows counts.
  function carriesChanges(form) {
    const values = new Map();
    for (const field of form.elements) { // the hidden ones come last
      const box = field.type === "checkbox";
      const name = (box ? "u_" : "") + field.name.toLowerCase();
      if (!values.has(name)) {
        values.set(name, box ? field.defaultChecked ? "True" : "False"
                             : field.value);
      }
    }
    return [...values].some(([name, user]) => {
      const reported = values.get(name.replace("u_", "o_"));
      if (!name.startsWith("u_") || user === reported) {
        return false;
      }
      if (user === "True" || user === "False") {
        return isTrue(user) !== isTrue(reported);
      }
      return reported !== undefined ||
        user !== "" && user !== values.get(name.replace("u_", "d_"));
    });
  }

  function ask(event) {
    const form = document.forms.f1;
    if (!notice && form &&
        ([...edited].some(isChanged) || carriesChanges(form))) {
      event.preventDefault();
      event.returnValue = true;
    }
  }

  // Some browsers keep no page for Back that listens to this.
  function listen() {
    addEventListener("beforeunload", ask);
  }

  addEventListener("input", (event) => {
    edited.add(event.target);
    listen();
  });

  // What comes back with Back was sent or given up before.
  addEventListener("pageshow", () => {
    end();
    edited.clear();
    if (document.querySelector('input[name^="u_"]')) {
      listen();
    }
  });
})();
