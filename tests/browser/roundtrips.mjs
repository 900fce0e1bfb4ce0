// What users do with a form, from its page to the stored settings.

import assert from "node:assert/strict";
import { test } from "node:test";
import { setTimeout } from "node:timers/promises";
import { act, address, button, field, heading, newPage, pageAfter, until,
         valueOf, visit } from "./device.mjs";

const phone = { viewport: { width: 360, height: 560 } };
const main = (page) => page.locator("main").innerText();
const scrollY = (page) => page.evaluate(() => window.scrollY);

// Whether it is visible and nothing covers it.
const isInView = (control) => control.evaluate((e) => {
  const box = e.getBoundingClientRect();
  return [box.top + 2, box.bottom - 2].every(
    (y) => document.elementFromPoint(box.left + 9, y) === e);
});

async function save(page, ...steps) {
  await act(page, ...steps, "Submit");
  assert.equal(await heading(page), "Saved");
}

for (const javaScriptEnabled of [true, false]) {
  const how = javaScriptEnabled ? "" : " without JavaScript";

  test(`a changed value is saved and stays${how}`, async () => {
    const page = await visit("network", { javaScriptEnabled });
    await save(page, { host_name: "gate-7" });
    await act(page, "Continue");
    assert.match(await main(page), /gate-7/);
    await page.goto(address("network"));
    assert.equal(await valueOf(page, "host_name"), "gate-7");
  });

  test(`two faults are reported beside their fields${how}`, async () => {
    const page = await visit("network", { javaScriptEnabled, ...phone });
    await act(page, { dns1: "one", dns2: "two" });
    await page.evaluate(() => window.scrollTo(0, 0));
    await act(page, "Submit");
    assert.equal(await page.locator("p.error[role=alert]").count(), 1);
    for (const [name, typed] of [["dns1", "one"], ["dns2", "two"]]) {
      const control = field(page, name);
      assert.equal(await control.inputValue(), typed);
      assert.equal(await control.getAttribute("aria-invalid"), "true");
      const id = await control.getAttribute("aria-describedby");
      const row = page.locator("tr", { has: control });
      assert.match(await row.locator(`+ tr #${id}`).innerText(), /9\.9\.9\.9/);
    }
    const first = page.locator("[name=dns1]:focus");
    assert.ok(await isInView(first));
    assert.ok(await isInView(page.locator("p.error:not([role])").first()));
  });

  test(`rows are added, edited and deleted${how}`, async () => {
    const page = await visit("forwards", { javaScriptEnabled });
    const ports = () => page.locator('[name^="fw_port"]:visible').evaluateAll(
      (all) => all.map((e) => e.value).filter(Boolean));
    const others = (await ports()).slice(2);
    const end = others.length + 2;
    await act(page, { [`fw_port${end}`]: "2222", delete_forwards_0: true,
                      fw_port1: "2221",
                      [`fw_address${end}`]: "192.168.1.77" }, "Submit");
    assert.match(await main(page), /rows have been deleted\. Resubmit/);
    await save(page);
    await page.goto(address("forwards"));
    assert.deepEqual(await ports(), ["2221", ...others, "2222"]);
  });
}

test("Home asks, and only Return goes back to the same place", async () => {
  const page = await visit("services", phone);
  await act(page, { alert_mail: "time.example.org" });
  await page.evaluate(() => window.scrollTo(0, 120));
  await act(page, "Home");
  assert.equal(await heading(page), "Leave without saving?");
  await act(page, "Return to changes");
  assert.equal(await valueOf(page, "alert_mail"), "time.example.org");
  assert.equal(await scrollY(page), 120);
  await page.setViewportSize({ width: 360, height: 300 });
  await act(page, "Home", "Discard changes");
  assert.equal(await scrollY(page), 0, "the position was another form's");
  await page.goto(address("services"));
  assert.notEqual(await valueOf(page, "alert_mail"), "time.example.org");
});

test("Help and Expert show more and lose no typed text", async () => {
  const page = await visit("services", phone);
  await act(page, { alert_mail: "time.example.org" });
  await page.evaluate(() => window.scrollTo(0, 150));
  await act(page, "Help");
  assert.ok(await page.locator("p.help").count() > 1);
  assert.equal(await scrollY(page), 150);
  await act(page, "Expert");
  assert.equal(await field(page, "ssh_port").count(), 1);
  assert.equal(await valueOf(page, "alert_mail"), "time.example.org");
});

// Delays the answers to posts; returns how many there were, and the text of the
// status (and its number of animations) while a page waits for the next one.
async function holdAnswers(page, milliseconds) {
  const seen = { posts: 0, told: [] };
  page.on("console", (message) => seen.told.push(message.text()));
  await page.addInitScript(() => new MutationObserver(
    () => console.log(Array.from(document.querySelectorAll("[role=status]"),
      (e) => e.innerText + e.getAnimations().length).join())
  ).observe(document, { childList: true, subtree: true }));
  await page.reload();
  seen.told.length = 0;
  await page.route("**/cgi-bin/orv", async (route) => {
    seen.posts++;
    await setTimeout(milliseconds);
    await route.continue().catch(() => {}); // the request may have been stopped
  });
  return seen;
}

test("a second press waits for the first, and a long wait shows", async () => {
  const page = await visit("system");
  const seen = await holdAnswers(page, 2000);
  await act(page, { place: "once" });
  const { x, y } = await button(page, "Submit").boundingBox();
  await pageAfter(page, page.mouse.click(x + 9, y + 9, { clickCount: 3 }));
  assert.equal(await heading(page), "Saved");
  assert.equal(seen.posts, 1);
  assert.deepEqual(seen.told.slice(0, 2), ["0", "Working…0"]);
});

for (const isTold of [true, false]) {
  const how = isTold ? "Stop" : "Escape, where Stop is not told to pages";

  test(`after ${how} the buttons work again`, async () => {
    const page = await visit("system");
    if (!isTold) {
      await page.addInitScript(() => {
        navigation.onnavigateerror = () => { window.stopped = true; };
        Object.defineProperty(window, "navigation", { value: undefined });
      });
    }
    const seen = await holdAnswers(page, 400);
    await act(page, { place: "twice" });
    const { x, y } = await button(page, "Submit").boundingBox();
    await page.mouse.click(x + 9, y + 9);
    await until(() => seen.posts === 1);
    const browser = await page.context().newCDPSession(page);
    await browser.send("Page.stopLoading");
    if (!isTold) {
      await until(() => page.evaluate(() => window.stopped));
      await page.keyboard.press("Escape");
    }
    await until(() => seen.told.at(-1) === "");
    await pageAfter(page, page.mouse.click(x + 9, y + 9));
    assert.equal(await heading(page), "Saved");
  });
}

for (const isKept of [true, false]) {
  const how = isKept ? "kept" : "drawn again";

  test(`Back brings a form (${how}) to be submitted again`, async () => {
    const page = await newPage(phone);
    if (!isKept) { // a lock keeps a page out of the Back cache
      await page.addInitScript(() => {
        navigator.locks.request("held", () => new Promise(() => {}));
      });
    }
    await page.goto(address("services"));
    await act(page, { log_level: "debug" });
    await page.evaluate(() => window.scrollTo(0, 160));
    await setTimeout(1500); // the browser notes entries once a second
    await act(page, "Submit", "Back");
    await until(async () => await valueOf(page, "log_level") === "debug");
    await page.evaluate(() => window.scrollTo(0, 130));
    await setTimeout(1500); // as above
    await page.locator('nav a[href$="form=status"]').evaluate((a) => a.click());
    await page.waitForURL(/form=status/);
    assert.equal(page.asked, 0, "what was saved is no change");
    await act(page, "Back");
    await until(async () => await scrollY(page) === 130);
    await save(page, { log_level: "error" });
    await page.goto(address("services"));
    assert.equal(await valueOf(page, "log_level"), "error");
  });
}

for (const [asks, why, form, ...steps] of [
  [false, "nothing was done", "network"],
  [true, "a text was typed", "network", { host_name: "x" }],
  [false, "all was put back", "services",
   { alert_mail: "x", log_level: "debug" },
   { alert_mail: null, log_level: "info" }],
  [true, "an entry was chosen", "network", { static_ip: "yes" }],
  [true, "a box was ticked", "services", { ssh_on: true }],
  [true, "a row was marked", "forwards", { delete_forwards_0: true }],
  [false, "Help changes no row", "forwards", "Help"],
  [true, "Help came after a text", "network", { host_name: "x" }, "Help"],
  [true, "it was refused", "network", { host_name: "a b" }, "Submit"],
]) {
  test(`a link away asks ${asks ? "if" : "nothing if"} ${why}`, async () => {
    const page = await visit(form);
    await act(page, ...steps);
    assert.equal(page.asked, 0, "our own buttons never ask");
    await page.locator('nav a[href$="form=status"]').click();
    await until(() => page.asked || page.url().endsWith("status"));
    assert.equal(page.asked, asks ? 1 : 0);
  });
}

test("the keyboard reaches everything, and the focus is visible", async () => {
  const page = await visit("services", phone);
  await act(page, "Expert");
  const all = page.locator("a:visible, select:visible, input:visible:enabled");
  for (let left = await all.count(); left > 0; left--) {
    await page.keyboard.press("Tab");
    const at = page.locator(":focus");
    assert.ok(await isInView(at), await at.getAttribute("name"));
    assert.match(await at.evaluate((e) => getComputedStyle(e).outline),
                 /solid 3px/);
  }
  assert.equal(await page.locator(":focus").inputValue(), "Submit");
  await act(page, { ssh_port: "2022" });
  await pageAfter(page, page.keyboard.press("Enter"));
  assert.equal(await heading(page), "Saved");
});
