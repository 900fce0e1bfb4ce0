// Help for the hand, beside what position.js does.
//
// Every page works without this file, and no element, text or posted field of a
// page is changed by it.  One listener on the document serves the page's only
// form; what it needs to know is found when something happens, not before.
"use strict";

(function () {
  // A page that does not come (stopped, line cut) must not lock the buttons.
  const PATIENCE_MS = 10000;
  let sentAt = 0;

  // A second press while the first is under way would save twice.  The button
  // is not disabled: a disabled button's value would not be sent.
  document.addEventListener("submit", function (event) {
    const now = Date.now();
    if (sentAt && now - sentAt < PATIENCE_MS) {
      event.preventDefault();
      return;
    }
    sentAt = now;
  });

  // Coming Back to a page that the browser kept: nothing is under way there.
  window.addEventListener("pageshow", function () {
    sentAt = 0;
  });

  // Escape stops the page that is being fetched.
  document.addEventListener("keydown", function (event) {
    if (event.key === "Escape") {
      sentAt = 0;
    }
  });

  // Enter in a field presses the form's first button, which is Home; the person
  // who types means Submit.
  document.addEventListener("keydown", function (event) {
    const field = event.target;
    if (event.key !== "Enter" || event.isComposing || event.defaultPrevented ||
        !(field instanceof HTMLInputElement) ||
        (field.type !== "text" && field.type !== "checkbox")) {
      return;
    }
    const submit = field.form && field.form.querySelector(
      'input[type="submit"][name="action"][value="Submit"]');
    if (submit) {
      event.preventDefault();
      if (!submit.disabled && !event.repeat) {
        submit.click();
      }
    }
  });
})();
