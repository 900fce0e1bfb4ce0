// The demo device behind its web server, and its users.
//
// All tests share one device and one browser; the device is reset between them.
// Whatever a browser complains about (scripts, policy, answers that are errors)
// is collected in `complaints` and fails the test.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { on, once } from "node:events";
import fs from "node:fs/promises";
import { after, afterEach, before, beforeEach } from "node:test";
import { fileURLToPath } from "node:url";
import { setTimeout } from "node:timers/promises";
import axe from "axe-core";
import { chromium } from "playwright-core";

export const root = fileURLToPath(new URL("../..", import.meta.url));
export const complaints = [];
let folder, demo, browser, base;

before(async () => {
  folder = await fs.mkdtemp("/tmp/larkspur-browser-");
  // The demo's forms, and one of our own.
  await fs.mkdir(`${folder}/data/scripts`, { recursive: true });
  await fs.writeFile(`${folder}/data/.larkspur-demo`, "");
  await fs.copyFile(`${root}tests/browser/own.sh`,
                    `${folder}/data/scripts/own.sh`);
  demo = spawn(`${root}demo/run`, ["--state", `${folder}/data`],
               { stdio: ["ignore", "ignore", "pipe"] });
  process.once("exit", () => demo.kill());
  let said = "";
  for await (const [text] of on(demo.stderr, "data", { close: ["end"] })) {
    said += text;
    [base] = /http:\/\/127\.0\.0\.1:\d+/.exec(said) || [];
    if (base) {
      break;
    }
  }
  assert.ok(base, `demo/run ended: ${said}`);
  const state = await fs.stat(`${folder}/data/state`);
  assert.equal(state.uid, process.getuid(), "another user cannot reach it");
  await fs.cp(`${folder}/data/state`, `${folder}/shipped`, { recursive: true });
  await fs.rm(`${folder}/data/templates`);
  await fs.cp(`${root}demo/templates`, `${folder}/data/templates`,
              { recursive: true });
  await fs.copyFile(`${root}tests/browser/own.tpl`,
                    `${folder}/data/templates/own.tpl`);
  browser = await chromium.launch({
    executablePath: "/usr/bin/chromium",
    // Like a user's browser, this one keeps pages for Back as they are.
    ignoreDefaultArgs: ["--disable-back-forward-cache"],
    args: ["--disable-gpu"],
  });
});

after(async () => {
  await browser?.close();
  if (demo?.exitCode === null) {
    demo.kill();
    await once(demo, "exit");
  }
  await fs.rm(folder, { recursive: true, force: true });
});

beforeEach(async () => {
  complaints.length = 0;
  await fs.rm(`${folder}/data/state`, { recursive: true });
  await fs.cp(`${folder}/shipped`, `${folder}/data/state`, { recursive: true });
});

afterEach(() => assert.deepEqual(complaints, []));

export const address = (form) => `${base}/cgi-bin/orv?form=${form}`;

// The only page, with these options and an empty cache.  `page.asked` counts
// the questions whether to leave the page, which are answered with "stay".
export async function newPage(options) {
  await Promise.all(browser.contexts().map((one) => one.close()));
  const context = await browser.newContext({ reducedMotion: "reduce",
                                             ...options });
  const page = await context.newPage();
  page.hasScripts = options?.javaScriptEnabled !== false;
  page.asked = 0;
  page.on("dialog", (dialog) => {
    page.asked++;
    return dialog.dismiss();
  });
  page.on("console", (message) => {
    if (["error", "warning"].includes(message.type())) {
      complaints.push(`${message.text()} ${message.location().url}`);
    }
  });
  page.on("pageerror", (error) => complaints.push(String(error)));
  return page;
}

export async function visit(form, options) {
  const page = await newPage(options);
  await page.goto(address(form));
  return page;
}

export const field = (page, name) => page.locator(`[name="${name}"]:visible`);
// Presses the button and waits for the next page.
export const pageAfter = (page, press) =>
  Promise.all([page.waitForNavigation(), press]);
export const button = (page, label) =>
  page.locator(`input[type="submit"][value="${label}"]`);
// The same where the answer may be shown without a new page.
export async function press(page, label) {
  await page.evaluate(() => { document.body.dataset.old = "yes"; });
  await button(page, label).click();
  await page.waitForFunction(() => document.readyState === "complete" &&
                                   !document.body.dataset.old);
}
const isSentInPlace = async (page) => page.hasScripts &&
  await page.locator("[name^=o_wait_]").count() > 0;
export const heading = (page) => page.locator("h1").innerText();
export const valueOf = (page, name) => field(page, name).inputValue();

// Types, chooses or ticks; null restores the value that the page came with.
async function enter(control, value) {
  if (typeof value === "boolean") {
    await control.setChecked(value);
  } else if (await control.evaluate((e) => e.localName === "select")) {
    await control.selectOption(value);
  } else {
    await control.fill(value ?? await control.getAttribute("value"));
  }
}

// Carries out the steps: values are entered, labels of buttons pressed.
export async function act(page, ...steps) {
  for (const step of steps) {
    if (step === "Back") {
      await page.goBack({ waitUntil: "commit" });
    } else if (step === "Submit" && await isSentInPlace(page)) {
      await press(page, step);
    } else if (typeof step === "string") {
      await pageAfter(page, button(page, step).click());
    } else {
      for (const [name, value] of Object.entries(step)) {
        await enter(field(page, name), value);
      }
    }
  }
}

// All forms that menus and navigation bars link to.
export async function allForms() {
  const page = await newPage();
  const found = new Set(["orvmenu"]);
  for (const form of found) {
    await page.goto(address(form));
    for (const link of await page.locator("nav a, main li a").all()) {
      const [, to] = /\?form=(.*)/.exec(await link.getAttribute("href")) || [];
      found.add(to ?? form);
    }
  }
  return found;
}

// Waits long enough for a busy machine.
export async function until(condition) {
  for (let tries = 3000; tries > 0 && !await condition(); tries--) {
    await setTimeout(20);
  }
  assert.ok(await condition(), String(condition));
}

// The settings file's content, "" if it was never saved.
export const kept = (file) =>
  fs.readFile(`${folder}/data/state/${file}`, "utf8").catch(() => "");

// Changes a part of a demo script while `during` runs.
export async function withScript(name, from, to, during) {
  const file = `${folder}/data/scripts/${name}`;
  const text = await fs.readFile(file, "utf8");
  assert.ok(text.includes(from));
  await fs.rm(file); // a link into the demo
  await fs.writeFile(file, text.replaceAll(from, to), { mode: 0o755 });
  try {
    await during();
  } finally {
    await fs.rm(file);
    await fs.symlink(`${root}demo/scripts/${name}`, file);
  }
}

export const phone = { width: 360, height: 640 };

// Nothing is wider than a phone, and axe finds no fault in light or dark.
export async function assertLooks(page, where) {
  await page.evaluate(axe.source);
  for (const [colorScheme, size] of [["light", { width: 1280, height: 800 }],
                                     ["dark", phone]]) {
    await page.emulateMedia({ colorScheme });
    await page.setViewportSize(size);
    const { violations } = await page.evaluate(() => window.axe.run());
    assert.deepEqual(violations.flatMap((rule) => rule.nodes.map(
      (node) => `${where}, ${colorScheme}: ${rule.id} ${node.html}`)), []);
  }
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth),
               phone.width, where);
}
