// How every form looks, and what it costs.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs/promises";
import { test } from "node:test";
import { act, address, allForms, assertLooks, button, complaints, heading,
         newPage, phone, press, root, visit } from "./device.mjs";

async function pressEnabled(page, label) {
  const one = button(page, label);
  if (await one.isVisible() && await one.isEnabled()) {
    await press(page, label);
  }
}

const everyForm = (does, judge) => test(`every form ${does}`, async (t) => {
  for (const form of await allForms()) {
    await t.test(form, (t) => judge(form, t));
  }
});

everyForm("is accessible and fits a phone in every state", async (form) => {
  const page = await visit(form);
  await assertLooks(page, form);
  await pressEnabled(page, "Expert");
  await pressEnabled(page, "Help");
  await assertLooks(page, `${form}, expert and help`);
  // Secrets are hidden, and choices show their fields at once.
  assert.doesNotMatch(await page.locator("main").innerText(),
                      /see what you type|and press Submit: the/);
  const texts = page.locator("input[type=text]:visible:enabled");
  for (const text of await texts.all()) {
    await text.fill('no "such" value');
  }
  await pressEnabled(page, "Submit");
  await assertLooks(page, `${form}, refused`);
});

test("so are questions, confirmations and error pages", async () => {
  const page = await visit("network");
  for (const [label, shown] of [["Home", "Leave without saving?"],
                                ["Submit", "Saved"]]) {
    await page.goto(address("network"));
    await act(page, { host_name: "other" }, label);
    assert.equal(await heading(page), shown);
    await assertLooks(page, shown);
  }
  await page.goto(address("nosuch"));
  await assertLooks(page, "error page");
  assert.match(complaints.splice(0).join(), /^[^,]*404[^,]*$/);
});

// The bytes transferred until the page is idle, without those from the cache.
async function wireOf(page, form) {
  const wire = { bytes: 0, requests: 0 };
  const browser = await page.context().newCDPSession(page);
  await browser.send("Network.enable");
  browser.on("Network.loadingFinished", ({ encodedDataLength }) => {
    wire.bytes += encodedDataLength;
    wire.requests += encodedDataLength > 0;
  });
  await page.goto(address(form));
  await page.waitForLoadState("networkidle");
  await browser.detach();
  return wire;
}

everyForm("is light, quick and steady", async (form, t) => {
  const page = await newPage({ viewport: phone });
  await page.addInitScript(() => {
    window.shifts = [];
    new PerformanceObserver((list) => window.shifts.push(
      ...list.getEntries().map((entry) => entry.value)))
      .observe({ type: "layout-shift", buffered: true });
  });
  const browser = await page.context().newCDPSession(page);
  await browser.send("Performance.enable");
  const first = await wireOf(page, form);
  const [shifts, paint] = await page.evaluate(() => [
    window.shifts,
    performance.getEntriesByName("first-contentful-paint")[0].startTime -
      performance.getEntriesByType("navigation")[0].responseEnd,
  ]);
  const { metrics } = await browser.send("Performance.getMetrics");
  const script = metrics.find((one) => one.name === "ScriptDuration").value;
  const second = await wireOf(page, form);
  t.diagnostic(`${form}: ${first.bytes} bytes, then ${second.bytes}; ` +
    `painted after ${Math.round(paint)} ms, scripts ${script} s`);
  assert.equal(first.requests, 4, "page, style, two scripts");
  assert.ok(first.bytes <= 32 * 1024);
  assert.equal(second.requests, 1, "style and scripts are kept");
  assert.deepEqual(shifts, []);
  if (process.env.LARKSPUR_LONG) { // on an idle machine
    assert.ok(paint < 1000, "a paint waits for nothing");
    assert.ok(script < 0.05, "no script is felt");
  }
});

test("style and scripts are small as served", () => {
  const sizeOf = (name) =>
    execFileSync("sh", [`${root}web/slim`, `${root}web/${name}`]).length;
  assert.ok(sizeOf("css/orv.css") < 12 * 1024);
  assert.ok(sizeOf("js/position.js") + sizeOf("js/kwt_scroller.js") <
            12 * 1024);
});

// The shipped style sheet, as a device installs it.
async function wearing(does) {
  const folder = await fs.mkdtemp("/tmp/larkspur-brand-");
  try {
    for (const name of ["css", "js"]) {
      await fs.cp(`${root}web/${name}`, `${folder}/www/${name}`,
                  { recursive: true });
    }
    await fs.symlink(`${root}examples/brand`, `${folder}/brand`);
    execFileSync("sh", [`${root}packaging/brand/larkspur-brand`, folder]);
    await does(`${folder}/www`);
  } finally {
    await fs.rm(folder, { recursive: true });
  }
}

test("a maker's brand is legible in every state, and has logo and icon",
     () => wearing(async (www) => {
  const page = await newPage();
  const asked = [];
  await page.route("**/{css,js}/*", (route) => {
    const { pathname } = new URL(route.request().url());
    asked.push(pathname);
    return route.fulfill({ path: www + pathname });
  });
  for (const form of ["orvmenu", "network", "users", "reboot", "status"]) {
    await page.goto(address(form));
    await pressEnabled(page, "Help");
    await assertLooks(page, `${form}, a maker's`);
    await pressEnabled(page, "Submit");
    await assertLooks(page, `${form}, a maker's, submitted`);
  }
  await page.emulateMedia({ colorScheme: "light" });
  const face = await page.evaluate(() => {
    const logo = getComputedStyle(document.querySelector(".navbar ul"),
                                  "::before");
    return { bar: getComputedStyle(document.querySelector(".navbar"))
               .backgroundColor,
             logo: [logo.width, parseFloat(logo.height) > 20],
             icon: document.querySelector("link[rel=icon]").href };
  });
  assert.equal(face.bar, "rgb(8, 61, 46)");
  assert.deepEqual(face.logo, ["112px", true]);
  assert.equal(new URL(face.icon).pathname, "/css/icon.png");
  assert.ok(asked.includes("/css/logo.svg"));
}));

test("a dark page is dark, and prints dark on white without its bars",
     async () => {
  const page = await visit("network", { colorScheme: "dark" });
  const brightness = (what) => page.evaluate((name) =>
    getComputedStyle(document.body)[name].match(/\d+/g).slice(0, 3)
      .reduce((sum, part) => sum + Number(part), 0), what);
  assert.ok(await brightness("backgroundColor") < 150);
  assert.ok(await brightness("color") > 600);
  await page.emulateMedia({ media: "print" });
  assert.ok(await brightness("color") < 150);
  assert.ok(await page.locator("h1").isVisible());
  const bars = page.locator("nav:visible, .bottombar:visible");
  assert.equal(await bars.count(), 0);
});
