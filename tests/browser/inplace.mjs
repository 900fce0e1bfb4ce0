// What a page does without loading a new one, and what works without scripts.

import assert from "node:assert/strict";
import { test } from "node:test";
import { act, address, assertLooks, button, complaints, field, heading, kept,
         newPage, pageAfter, press, until, valueOf, visit, withScript } from "./device.mjs";

const phone = { viewport: { width: 360, height: 640 } };
const focused = (page) => page.evaluate(() => document.activeElement.name);
const drawnIn = (element) => element.evaluate(
  (e) => getComputedStyle(e, "::after").content);
const marked = (page, attribute) => page.locator(`main [${attribute}]`)
  .evaluateAll((all) => all.map((one) => one.name).join());

test("a choice shows its fields at once, and nothing typed is lost",
     async () => {
  const page = await visit("own", phone);
  await act(page, "Help", { own_address: "before", own_pin1: "77",
                            delete_own_0: true });
  await page.evaluate(() => window.scrollTo(0, 60));
  const asked = [];
  let answer = () => {};
  await page.route("**/cgi-bin/orv", async (route) => {
    asked.push(new URLSearchParams(route.request().postData()));
    await new Promise((done) => { answer = done; });
    await route.continue();
  });
  await field(page, "own_mode").focus();
  await page.keyboard.press("ArrowDown");
  await until(() => asked.length === 1);
  assert.equal(await field(page, "own_more").count(), 0);
  await field(page, "own_address").fill("meanwhile");
  await page.keyboard.press("ArrowLeft");
  const { y } = await field(page, "own_address").boundingBox();
  answer();
  await until(() => field(page, "own_more").count());
  assert.equal(asked[0].get("own_address"), "before");
  assert.equal(asked[0].has("delete_own_0"), false);
  assert.equal(await focused(page), "own_address");
  const { y: now } = await field(page, "own_address").boundingBox();
  assert.ok(Math.abs(now - y) < 2, "it stands where it was in the window");
  await page.keyboard.type("!");
  assert.equal(await valueOf(page, "own_address"), "meanwhil!e");
  assert.equal(await valueOf(page, "own_pin1"), "77");
  assert.ok(await field(page, "delete_own_0").isChecked());
  assert.equal(await page.locator("p.help").count(), 1);

  // A field that disappears has its text again when it comes back.
  await act(page, { own_mode: "no" });
  await until(() => asked.length === 2);
  await act(page, { own_more: "kept" });
  answer();
  await until(() => asked.length === 3);
  answer();
  await until(async () => await field(page, "own_more").count() === 0);
  await act(page, { own_mode: "yes" });
  await until(() => asked.length === 4);
  answer();
  await until(() => field(page, "own_more").count());
  assert.equal(await valueOf(page, "own_more"), "kept");

  await page.unroute("**/cgi-bin/orv");
  await page.route("**/cgi-bin/orv", (route) => route.abort());
  await act(page, { own_mode: "no" });
  await until(() => complaints.length);
  complaints.length = 0;
  assert.equal(await valueOf(page, "own_more"), "kept", "no answer, no change");
});

test("a choice keeps the messages of fields that are still wrong",
     async () => {
  const page = await visit("own", phone);
  await act(page, { own_passphrase: "short", own_name1: "b b", own_pin0: "x" });
  await press(page, "Submit");
  const said = page.locator("p.error");
  const texts = await said.allInnerTexts();
  assert.equal(texts.length, 4);
  for (const [mode, names, count] of [
    ["yes", "own_passphrase,own_pin0,own_name1", 4],
    ["no", "own_passphrase,own_name1", 3],
    ["yes", "own_passphrase,own_name1", 3],
    ["no", "", 0]]) {
    await act(page, { own_mode: mode });
    await until(async () => await field(page, "own_more").count() ===
                (mode === "yes" ? 1 : 0));
    assert.equal(await marked(page, "aria-invalid"), names);
    assert.equal(await marked(page, "aria-describedby"), names);
    assert.deepEqual(await said.allInnerTexts(), count === 0 ? [] :
      [texts[0].replace("3", count - 1), ...texts.slice(1, count)]);
    if (count > 0) {
      const row = page.locator("tr", { has: field(page, "own_passphrase") });
      assert.equal(await row.locator("+ tr p.error").innerText(), texts[1]);
      assert.equal(await drawnIn(page.locator(
        "td:has([name=own_name1]) > [data-text]")), `"${texts[2]}"`);
      await assertLooks(page, "drawn again with faults");
    }
    // A value typed again is no longer marked as wrong.
    await act(page, count === 4 ? { own_pin0: "7" } :
      mode === "yes" ? { own_passphrase: "long enough", own_name1: "bb" } : {});
  }
});

for (const javaScriptEnabled of [true, false]) {
  const how = javaScriptEnabled ? "" : " without JavaScript";

  test(`a secret is carried but not shown${how}`, async () => {
    const page = await visit("own", { javaScriptEnabled, ...phone });
    const secret = field(page, "own_passphrase");
    await act(page, { own_passphrase: "a word of mine", own_pin1: "x" });
    if (javaScriptEnabled) {
      await secret.press("Tab");
      await page.keyboard.press("Space");
      assert.equal(await secret.getAttribute("type"), "text");
      await assertLooks(page, "a secret shown");
    }
    await press(page, "Submit");
    for (const name of ["own_passphrase", "own_pin0"]) {
      assert.equal(await field(page, name).getAttribute("type"), "password");
      assert.equal(await field(page, name).getAttribute("autocomplete"),
                   "new-password");
    }
    assert.equal(await secret.inputValue(), "a word of mine");
    assert.equal(await page.locator(".show").count(),
                 javaScriptEnabled ? 4 : 0);
  });

  test(`a table's faults are at their cells; rows are cards${how}`,
       async () => {
    const page = await visit("own", { javaScriptEnabled, ...phone });
    const row = (name) => page.locator("tr", { has: field(page, name) });
    const colour = (name) => row(name).evaluate(
      (e) => getComputedStyle(e).backgroundColor);
    const [stored, blank] = [await colour("own_name0"),
                             await colour("own_name2")];
    await act(page, { delete_own_0: true });
    assert.equal(new Set([stored, blank, await colour("own_name0")]).size, 3);
    await act(page, { delete_own_0: false, own_name1: "b b", own_pin1: "x",
                      own_name2: "c c" });
    await press(page, "Submit");
    const failing = "own_name1,own_pin1,own_name2";
    assert.equal(await marked(page, "aria-invalid"), failing);
    assert.equal(await marked(page, "aria-describedby"), failing);
    assert.equal(await focused(page), "own_name1");
    assert.equal(await page.locator("thead:visible").count(), 0);
    assert.match(await field(page, "own_pin1").evaluate((e) =>
      getComputedStyle(e.parentNode, "::before").content), /^"PIN"/);
    const told = row("own_name1").locator("[data-text]").first();
    assert.match(await drawnIn(told), /^"Name: Single word/);
    const { y, height } = await told.boundingBox();
    const edge = await page.locator("div.bottombar").boundingBox();
    assert.ok(height > 15 && y > 0 && y + height <= edge.y, "it is in view");
    assert.equal(await page.locator("td [data-text]:visible").count(), 3);
    if (javaScriptEnabled) {
      await act(page, { delete_own_1: true });
      await assertLooks(page, "a table with faults and a mark");
    }
    await act(page, { own_name1: "b", own_pin1: "2", own_name2: "c",
                      delete_own_1: true });
    await press(page, "Submit");
    assert.equal(await page.locator("p.error[role=status]").count(), 1);
  });

  test(`only forms that can be sent have a Submit${how}`, async () => {
    const page = await newPage({ javaScriptEnabled });
    for (const [form, seen] of [["status", false], ["orvmenu", false],
                                ["reboot", true], ["own", true]]) {
      await page.goto(address(form));
      assert.equal(await button(page, "Submit").isVisible(), seen, form);
    }
  });
}

test("a fact of any length is fully visible on a phone", async () => {
  await withScript("status.sh", "read -r 'orv[st_kernel]' <",
                   "printf -v 'orv[st_kernel]' '%0230d' 7; : <", async () => {
    const page = await visit("status", { javaScriptEnabled: false, ...phone });
    const whole = page.locator("[name=st_kernel] + [data-text]");
    assert.match(await drawnIn(whole), /^"0{229}7"$/);
    const { x, width, height } = await whole.boundingBox();
    assert.ok(x > 0 && x + width < 360 && height > 100);
    await page.setViewportSize({ width: 1280, height: 800 });
    assert.ok(await field(page, "st_kernel").boundingBox());
  });
});

test("facts stay fresh, until Stop or the tab is hidden", async () => {
  const page = await newPage(phone);
  let load = 0;
  let isAway = false;
  await page.route(/form=status/, async (route) => {
    if (isAway) {
      return route.abort();
    }
    const body = (await (await route.fetch()).text())
      .replace('o_live_seconds" value="5"', 'o_live_seconds" value="0.1"')
      .replaceAll(/(name="st_load" value=|data-text)(="|")[^"]* in 15 min/g,
                  `$1$2${load++}`)
      .replace(/(o_live_tell" value=")[^"]*/, "$1st_load");
    return route.fulfill({ body, contentType: "text/html" });
  });
  await page.goto(address("status"));
  const number = async () => Number(await valueOf(page, "st_load"));
  await until(async () => await number() > 2);
  const told = page.locator("[role=status]").first();
  assert.match(await told.textContent(), /^Load: \d+$/);

  isAway = true;
  const fault = page.locator("main > p.error");
  await fault.waitFor();
  assert.match(await fault.innerText(), /^No new values since .*\.$/);
  assert.equal(await told.textContent(), await fault.innerText());
  await assertLooks(page, "away");
  isAway = false;
  const last = load;
  await until(async () => await number() > last);
  assert.equal(await fault.count(), 0);
  assert.match(await told.textContent(), /^Load: \d+$/);
  complaints.length = 0;
  await page.evaluate(() => {
    Object.defineProperty(document, "hidden", { value: true, writable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  const rests = async () => {
    let seen;
    await until(() => seen === (seen = load));
    await page.waitForTimeout(700);
    return seen === load;
  };
  assert.ok(await rests(), "hidden");
  await page.evaluate(() => {
    document.hidden = false;
    document.dispatchEvent(new Event("visibilitychange"));
  });
  const before = load;
  await until(() => load > before + 1);
  await page.locator("[value='Stop updates']").press("Enter");
  assert.ok(await rests(), "stopped");
  assert.ok(await page.locator("[value='Start updates']").isVisible());
  await assertLooks(page, "live");
});

test("the page waits for a device that goes away, at its new address", async () => {
  const page = await visit("own", phone);
  const here = new URL(page.url());
  await act(page, { own_address: `localhost:${here.port}` });
  await press(page, "Submit");
  await page.waitForURL(`http://localhost:${here.port}/cgi-bin/orv`);
  assert.equal(page.asked, 0);

  await page.goto(address("own")); // an address that never answers
  await act(page, { own_address: "localhost:1" });
  await press(page, "Submit");
  assert.equal(await heading(page), "Saved");
  const line = page.locator("[role=status]");
  assert.match(await line.innerText(), /Waiting for the device at localhost:1/);
  assert.equal(await page.title(), "Waiting for the device");
  await page.locator("[role=alert] a[href*='localhost:1/']").waitFor();
  assert.equal(await page.title(), "No answer");
  assert.ok(await button(page, "Continue").isVisible());
  await assertLooks(page, "given up");
  complaints.length = 0;

  await page.goto(address("reboot")); // a refusal needs no new page either
  await press(page, "Submit");
  assert.equal(await focused(page), "rb_sure");
  await act(page, { rb_sure: true });
  await press(page, "Submit");
  await page.waitForURL(/cgi-bin\/orv$/, { timeout: 60000 });
  assert.match(await heading(page), /^Restarted: .*gateway/);
  assert.equal(await page.title(), await heading(page));
});

test("Escape does not abandon a save in progress", async () => {
  const page = await visit("own", phone);
  let answer = () => {};
  let posts = 0;
  await page.route("**/cgi-bin/orv", async (route) => {
    posts++;
    await new Promise((done) => { answer = done; });
    await route.continue();
  });
  await act(page, { own_passphrase: "long enough" });
  await button(page, "Submit").click();
  await until(() => posts);
  await page.keyboard.press("Escape");
  await button(page, "Submit").click();
  await page.evaluate(() => fetch("/css/orv.css")); // after every other request
  answer();
  await until(async () => await heading(page) === "Saved");
  assert.equal(posts, 1);
});

test("an answer that is late or not a page loses nothing", async () => {
  const page = await visit("own", phone);
  await act(page, { own_passphrase: "typed and kept" });
  for (const [status, body, said] of [
    [403, '<p class="error">Refused.', /^Refused\.$/], [200, "", /^No answer/],
    [500, "", /^No answer/], [200, "<form id=login></form>", /^No answer/]]) {
    await page.route("**/cgi-bin/orv", (route) =>
      route.fulfill({ status, body, contentType: "text/html" }));
    const dialog = page.waitForEvent("dialog");
    await button(page, "Submit").click();
    assert.match((await dialog).message(), said);
    assert.equal(await valueOf(page, "own_passphrase"), "typed and kept");
    await page.unroute("**/cgi-bin/orv");
  }
  complaints.length = 0;

  let late = null;
  await page.route("**/cgi-bin/orv", (route) => {
    if (route.request().postData().includes("action=")) {
      return route.continue();
    }
    late = route;
    return null;
  });
  await act(page, { own_passphrase: "short", own_mode: "yes" });
  await until(() => late);
  await press(page, "Submit");
  assert.equal(await focused(page), "own_passphrase");
  const answer = page.waitForResponse("**/cgi-bin/orv");
  await late.continue();
  await (await answer).finished();
  await page.evaluate(() => new Promise((done) => { setTimeout(done, 100); }));
  assert.equal(await marked(page, "aria-invalid"), "own_passphrase");
});

test("without JavaScript a restart is confirmed by a page", async () => {
  const page = await visit("reboot", { javaScriptEnabled: false });
  await act(page, { rb_sure: true }, "Submit");
  assert.match(await page.locator("main").innerText(), /restarts now/);
});

const ADDRESS = { ip_address: "192.0.2.7/24", gateway: "192.0.2.1" };

// Without scripts a Submit asks for the address, without an error message.
async function changeAddress(options) {
  const page = await visit("network", { ...phone, ...options });
  await act(page, { static_ip: "yes" }, ...page.hasScripts ? [] : ["Submit"]);
  await field(page, "ip_address").waitFor();
  await act(page, ADDRESS, "Submit");
  assert.match(await page.locator("main").innerText(),
               /http:\/\/192\.0\.2\.7\//);
  return page;
}

test("an address that nobody keeps goes back", async () => {
  await withScript("network.sh", "PATIENCE=120", "PATIENCE=1", async () => {
    const page = await changeAddress();
    const timer = page.locator("[role=timer]");
    await until(async () => /are back unless somebody kept it/
      .test(await timer.innerText()));
    await until(async () => !(await kept("network")).includes("192.0.2.7"),
                1500);
    await page.goto(address("network"));
    assert.equal(await valueOf(page, "static_ip"), "no");
  });
});

for (const javaScriptEnabled of [true, false]) {
  const how = javaScriptEnabled ? "seconds are counted" : "without JavaScript";
  test(`one that somebody keeps stays, ${how}`, async () => {
    const page = await changeAddress({ javaScriptEnabled });
    const counted = /^(1[012]\d|\d\d) seconds left/;
    const timer = page.locator("[role=timer]");
    const way = page.locator('main a[href="http://192.0.2.7/"]');
    assert.equal(await way.count(), javaScriptEnabled ? 1 : 0);
    assert.match(await page.locator("nav a >> nth=1").innerText(), /^Keep/);
    if (javaScriptEnabled) {
      assert.match(await timer.innerText(), counted);
      await assertLooks(page, "counting");
    }
    assert.match(await page.locator("main").innerText(),
                 /If nobody kept it by \d\d:\d\d:\d\d, the old settings/);
    await act(page, "Continue");
    await page.goto(address("network"));
    assert.notEqual(await kept(".pending/.token"), ""); // opening keeps nothing
    await pageAfter(page, page.locator("nav a >> nth=1").click());
    assert.equal(await heading(page), "Keep the change?");
    assert.match(await page.locator("main").innerText(),
                 /Address: Automatic \(DHCP\) -> Static/);
    if (javaScriptEnabled) {
      assert.match(await timer.innerText(), counted);
      await assertLooks(page, "keeping");
    }
    await act(page, "Submit");
    assert.match(await page.locator("main").innerText(), /The change is kept/);
    assert.equal(await page.locator("nav").getByText("Keep").count(), 0);
    assert.equal(await kept(".pending/.token"), "");
    await page.goto(address("network"));
    assert.equal(await valueOf(page, "ip_address"), "192.0.2.7/24");
    assert.equal(await page.locator("nav").getByText("Keep").count(), 0);
  });
}
