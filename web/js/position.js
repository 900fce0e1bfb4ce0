// Where the page stands.
//
// Buttons call saveScrollCoordinates before they send the form, the page that
// comes back calls scrollToCoordinates: a press does not throw the reader back
// to the top.  Only the hidden field scroll_y is written.
"use strict";

// The value of a hidden field of the page, "" where it has none.
function carriedValue(name) {
  const field = document.querySelector(`input[type="hidden"][name="${name}"]`);
  return field ? field.value : "";
}

// Tells (and sets) the form of the position, which travels on to other forms.
function scrolledForm(form) {
  try {
    if (form) {
      sessionStorage.setItem("orv_scrolled", form);
    }
    return sessionStorage.getItem("orv_scrolled");
  } catch (e) {
    return null; // storage is switched off
  }
}

function saveScrollCoordinates(form) {
  const field = form && form.querySelector('input[name="scroll_y"]');
  if (field) {
    field.value = String(Math.max(0, Math.round(window.scrollY)));
    scrolledForm(carriedValue("form"));
  }
}

// Shows the first control that failed, else the page's anchor_target where it
// names an element, else the position that came with the page.
function scrollToCoordinates() {
  const visit = performance.getEntriesByType("navigation")[0];
  if (visit && visit.type !== "navigate") {
    return; // Back, Forward, Reload: the browser knows the place better
  }
  const name = carriedValue("anchor_target");
  const failed = document.querySelector("[autofocus]");
  const target = failed || name && (document.getElementById(name) ||
                                    document.getElementsByName(name)[0]);
  if (failed) {
    failed.focus({preventScroll: true});
  }
  if (target) {
    target.scrollIntoView({block: failed ? "nearest" : "start"});
  } else if ([null, carriedValue("form")].includes(scrolledForm())) {
    window.scrollTo(0, parseInt(carriedValue("scroll_y"), 10) || 0);
  }
}
