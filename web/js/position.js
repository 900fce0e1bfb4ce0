// Where the page stands.
//
// The buttons of a form call saveScrollCoordinates before they send it, and the
// page that comes back calls scrollToCoordinates once it is loaded, so that
// pressing a button does not throw the reader back to the top.  Only the hidden
// field scroll_y is written here.  Nothing runs when this file is loaded.
"use strict";

// Writes the scroll position into the form's field scroll_y.
function saveScrollCoordinates(form) {
  const field = form && form.querySelector('input[name="scroll_y"]');
  if (field) {
    field.value = String(Math.max(0, Math.round(window.scrollY)));
  }
}

// Brings the page's anchor_target into view where it names an element, else the
// position that came with the page.
function scrollToCoordinates() {
  const target = document.querySelector('input[name="anchor_target"]');
  const name = target && target.value;
  const element = name &&
    (document.getElementById(name) || document.getElementsByName(name)[0]);
  if (element) {
    element.scrollIntoView();
    return;
  }
  const field = document.querySelector('input[name="scroll_y"]');
  const y = field ? parseInt(field.value, 10) : 0;
  if (y > 0) {
    window.scrollTo(0, y);
  }
}
