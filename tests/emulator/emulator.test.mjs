// The life of a device, on the emulated one: users at its pages, an
// administrator over SSH, power cuts, an upgrade.
//
// Two devices with the same image run side by side: users use the first, one
// test after the other; the power of the second is cut.

import assert from "node:assert/strict";
import fs from "node:fs/promises";
import { createRequire } from "node:module";
import os from "node:os";
import { createInterface } from "node:readline";
import { after, before, describe, test } from "node:test";
import { setTimeout } from "node:timers/promises";
import { command, Device, run, until } from "./device.mjs";

const { chromium } =
  createRequire(new URL("../browser/", import.meta.url))("playwright-core");
const CUTS = 10;
let folder, browser, page;
let built; // the output of the image's build
let home; // the device that users use
let cut;

// --- a user at the pages -----------------------------------------------------

// Fills in a form and presses Submit; returns the text of the next page.
async function save(device, form, values, base = device.page) {
  await page.goto(`${base}cgi-bin/orv?form=${form}`);
  for (const [name, value] of Object.entries(values)) {
    const control = page.locator(`[name="${name}"]:visible`);
    if (typeof value === "boolean") {
      await control.setChecked(value);
    } else if (await control.evaluate((e) => e.localName === "select")) {
      await control.selectOption(value);
    } else {
      await control.fill(value);
    }
  }
  await page.evaluate(() => { document.body.dataset.old = "yes"; });
  await page.locator('input[type="submit"][value="Submit"]').click();
  await page.waitForFunction(() => document.readyState === "complete" &&
                                   !document.body.dataset.old);
  return page.locator("main").innerText();
}

const shown = async (device, form, name) => {
  await page.goto(`${device.page}cgi-bin/orv?form=${form}`);
  return page.locator(`[name="${name}"]:visible`).inputValue();
};

const isRefused = (device) =>
  device.shell("true").then(() => false, () => true);

// A device that nobody has switched on yet.
async function newDevice(name) {
  await fs.mkdir(`${folder}/${name}`);
  for (const file of ["image.squashfs", "initramfs", "kernel"]) {
    await fs.symlink(`${folder}/image/${file}`, `${folder}/${name}/${file}`);
  }
  return new Device(`${folder}/${name}`);
}

before(async () => {
  folder = await fs.mkdtemp(`${os.tmpdir()}/larkspur-emulator-`);
  built = (await run(command, ["--build", "--dir", `${folder}/image`])).stderr;
  home = await newDevice("home");
  cut = await newDevice("cut");
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium",
                                    args: ["--disable-gpu"] });
});

after(async () => {
  await browser?.close();
  await Promise.all([home, cut].map((device) => device?.stop()));
  await fs.rm(folder, { recursive: true, force: true });
});

describe("a device", { concurrency: true }, () => {
  describe("in use", { concurrency: false }, () => {
    before(async () => {
      await home.start("--forward", "10.0.2.77");
      const context = await browser.newContext({
        ignoreHTTPSErrors: true,
        httpCredentials: { username: "admin", password: home.password },
      });
      page = await context.newPage();
      page.setDefaultTimeout(60000);
    });

    test("without the password of its first start nobody gets a page",
         async () => {
      const { password } = home;
      assert.match(password, /^\S{12,}$/);
      home.password = "admin";
      assert.equal((await home.request("/cgi-bin/orv")).status, 401);
      home.password = password;
      assert.equal((await home.request("/cgi-bin/orv")).status, 200);
    });

    test("its forms configure the system", async () => {
      assert.ok(await isRefused(home));
      await save(home, "users", { root_key: await home.publicKey() });
      assert.equal(await until("SSH", () => home.shell("hostname")),
                   "larkspur");

      const said = await save(home, "name", { host_name: "gate-7" });
      assert.match(said, /larkspur.*gate-7/);
      await until("the host name", async () =>
        await home.shell("hostname") === "gate-7");

      await save(home, "time", { ntp_on: true, ntp_server: "10.0.2.2" });
      await until("the time service", () =>
        home.shell("ntpctl -s peers | grep -w 10.0.2.2"));
      await save(home, "time", { ntp_on: false });
      await until("its end", () =>
        home.shell("! pidof ntpd").then(() => true));

      await save(home, "services", { ssh_on: false });
      await until("the end of SSH", () => isRefused(home));
      await save(home, "services", { ssh_on: true });
      await until("SSH", () => home.shell("true").then(() => true));

      await page.goto(`${home.page}cgi-bin/orv?form=log`);
      assert.match(await page.locator("main").innerText(),
                   /SSH: off -> on \(admin at 10\.0\.2\.2\)/);
    });

    test("the sizes that the build prints are those on the device",
         async (t) => {
      for (const path of ["/usr/lib/cgi-bin/orv", "/usr/sbin/orv-store",
                          "/usr/sbin/orvctl"]) {
        const told = new RegExp(`${path.split("/").pop()}, .* (\\d+) KiB`)
          .exec(built)?.[1];
        const bytes = await home.shell(`stat -c %s ${path}`);
        assert.equal(Number(told), Math.ceil(bytes / 1024), path);
      }
      built.trim().split("\n").forEach((line) => t.diagnostic(line));
    });

    test("root can log in with a password if the services allow it", async () => {
      const password = "a b 4711 c d";
      const env = { ...process.env, DROPBEAR_PASSWORD: password };
      const login = () => run("dbclient",
        ["-y", "-y", "-p", home.ssh, "root@127.0.0.1", "whoami"],
        { timeout: 60000, env })
        .then(({ stdout }) => stdout.trim(), () => "refused");
      await save(home, "users", { root_password: password });
      assert.equal(await login(), "refused");
      await save(home, "services", { ssh_passwords: true });
      await until("the login", async () => await login() === "root");
    });

    test("values stored without a page are checked again", async () => {
      for (const [form, name, value, what] of [
        ["name", "host_name", "a b; reboot", "hostname"],
        ["network", "ip_address", "10.0.2.0.1/24", "ip addr show eth0"],
        ["time", "ntp_server", "-f/etc/passwd", "cat /run/etc/ntpd.conf"],
        ["users", "root_key", "command=reboot ssh-ed25519 AAAA",
         "cat /root/.ssh/authorized_keys"],
      ]) {
        const look = () => home.shell(`${what} 2>&1 | grep -v valid_lft; true`);
        const old = await look();
        const files = "/var/lib/larkspur/state";
        await home.shell(`cp -p ${files}/${form} /tmp/kept 2>/dev/null
          printf '%s\\n' static_ip=yes ntp_on=True '${name}=${value}' \\
            >${files}/${form}`);
        assert.match(
          await home.shell(`/usr/share/larkspur/actions/${form}; echo $?`),
          /is none\.\n1$/, form);
        assert.equal(await look(), old, form);
        await home.shell(`rm ${files}/${form}
          ! mv /tmp/kept ${files}/${form} 2>/dev/null ||
            /usr/share/larkspur/actions/${form}`);
      }
    });

    test("the web server's user can write nothing but the settings",
         async () => {
      assert.equal(await home.shell(
        "ps -o user,comm | grep -c '^www-data .*lighttpd'"), "1");
      const own = await home.shell(`find / /var /run -xdev ! -type l \\( \\
        -user www-data -o -perm -002 -o -group www-data -perm -020 \\) -print |
        sort -u`);
      assert.deepEqual(own.split("\n").filter((path) =>
        !/^\/var\/lib\/larkspur\/state(\/|$)/.test(path)),
        ["/run/larkspur/acts/ask", "/run/larkspur/web", "/tmp"]);
    });

    test("a wrong address goes back by itself", async () => {
      const said = await save(home, "network",
                              { static_ip: "yes", ip_address: "10.0.2.99/24" });
      assert.match(said, /10\.0\.2\.99/);
      await until("the device out of reach", () =>
        home.answers().then(() => false, () => true));
      await until("the device", () => home.answers());
      assert.equal(await shown(home, "network", "static_ip"), "no");
      assert.match(await home.shell("ip addr show eth0"), /10\.0\.2\.15\//);
      await page.goto(`${home.page}cgi-bin/orv?form=history`);
      assert.match(await page.locator("main").innerText(), /went back/);
    });

    test("a kept address survives a restart", async () => {
      await save(home, "network",
                 { static_ip: "yes", ip_address: "10.0.2.77/24" });
      await until("the new address", () => home.answers(home.forward));
      await until("the form that keeps it", async () => {
        await save(home, "confirm", {}, home.forward);
        return true;
      });
      await save(home, "restart", { re_what: "restart", re_sure: true },
                 home.forward);
      await until("the restart", () =>
        home.answers(home.forward).then(() => false, () => true));
      await until("the device at its address",
                  () => home.answers(home.forward));
      await assert.rejects(home.answers());

      await save(home, "network", { static_ip: "no" }, home.forward);
      await until("the automatic address", () => home.answers());
      await save(home, "confirm", {});
    });

    test("an upgrade keeps the settings, migrated, and brings new fields", async () => {
      await home.stop();
      await fs.mkdir(`${folder}/new/templates`, { recursive: true });
      await fs.mkdir(`${folder}/new/defaults`);
      await fs.mkdir(`${folder}/new/migrate`);
      const part = "demo/emulator/device";
      const template = await fs.readFile(
        new URL(`../../${part}/templates/name.tpl`, import.meta.url), "utf8");
      await fs.writeFile(`${folder}/new/templates/name.tpl`,
        `${template}field cabinet 20\nlabel Cabinet\ncheck nullok text\n`);
      await fs.writeFile(`${folder}/new/defaults/name`,
                         "#version 2\nhost_name=larkspur-2\ncabinet=None yet\n");
      // The actions that run at boot need the settings migrated, too.
      await fs.writeFile(`${folder}/new/migrate/name`,
                         "#!/bin/sh\nexec sed 's/^host_name=.*/&-b/'\n", { mode: 0o755 });
      await fs.rm(`${home.folder}/image.squashfs`);
      await run(command, ["--build", "--dir", `${folder}/newer`, "--device",
                          `${folder}/new`]);
      await fs.rename(`${folder}/newer/image.squashfs`,
                      `${home.folder}/image.squashfs`);
      await home.start("--forward", "10.0.2.77");
      assert.equal(await shown(home, "name", "host_name"), "gate-7-b");
      assert.equal(await shown(home, "name", "cabinet"), "None yet");
      assert.equal(await home.shell("hostname"), "gate-7-b");
    });

    test("a reset brings back the settings as shipped", async () => {
      await save(home, "restart", { re_what: "shipped", re_sure: true });
      await until("the restart", () =>
        home.answers().then(() => false, () => true));
      await until("the device", () => home.answers());
      assert.equal(await shown(home, "name", "host_name"), "larkspur-2");
      assert.ok(await isRefused(home));
    });
  });

  // Each save replaces three files, over and over, so every cut comes in the
  // middle of a save or close to it.  The cut is simulated: killing qemu stops
  // the computer between two writes.  Writes that the disk has confirmed are
  // kept, and all are done in order.
  test(`${CUTS} power cuts during saves leave old or new`, async (t) => {
    await cut.start();
    let half = 0;
    await submit(cut, "users", { root_key: await cut.publicKey() });
    await until("SSH", () => cut.shell("sync; echo done"));
    assert.ok(!await isHalfDone(cut)); // or the count below would mean nothing
    for (let round = 0, least = 0; round < CUTS; round++) {
      least = await saveUntilCut(cut, least, 500 + 350 * round);
      half += await isHalfDone(cut);
      await cut.start();
      const now = (await cut.shell(
        "orv-store load name; orv-store load time; orv-store load services"))
        .split("\n").flatMap((line) => /=n(\d+)$/.exec(line)?.[1] ?? []);
      assert.deepEqual(now, [now[0], now[0], now[0]], `round ${round}`);
      assert.ok(now[0] >= least && now[0] <= least + 1,
                `${now[0]} after ${least} in round ${round}`);
      assert.equal(await cut.shell("hostname"), `n${now[0]}`);
      least = Number(now[0]);
    }
    assert.ok(half > 0, "no cut came in the middle of a save");
    t.diagnostic(`${half} of ${CUTS} cuts left a save half done on the disk`);
  });
});

// Saves increasing numbers after `from`, each in three files as one step, and
// cuts the power `wait` milliseconds after the first.  Returns the last number
// that the device reported as saved.
async function saveUntilCut(device, from, wait) {
  const saving = device.spawnShell(`n=${from}
    while n=$((n + 1)) && printf '%s\\n' '> name' host_name=n$n \\
      '> time' ntp_server=n$n '> services' log_server=n$n ssh_on=True \\
      ssh_passwords=False | orv-store store - name >/dev/null
    do echo $n; done`);
  let last = from;
  let plug;
  for await (const line of createInterface(saving.stdout)) {
    last = Number(line);
    plug ??= setTimeout(wait).then(() => device.pullPlug());
  }
  await plug;
  return last;
}

// Whether a save is left half done on the disk, as the device will see it once
// it has replayed the journal.
async function isHalfDone(device) {
  const copy = `${device.folder}/copy.img`;
  await fs.copyFile(`${device.folder}/settings.img`, copy);
  await run("e2fsck", ["-fy", copy]).catch(({ code }) => assert.equal(code, 1));
  const { stdout } = await run("debugfs",
                               ["-R", "ls -p /lib/larkspur/state", copy]);
  return /\/\.(commit|new|stage)/.test(stdout);
}

// Posts a form's page with other values, without a browser.
async function submit(device, form, values) {
  const path = `/cgi-bin/orv?form=${form}`;
  const { text } = await device.request(path);
  const unescape = (t) => t.replaceAll("&lt;", "<").replaceAll("&gt;", ">")
    .replaceAll("&quot;", '"').replaceAll("&amp;", "&");
  const body = new URLSearchParams({ ...Object.fromEntries(
    [...text.matchAll(/<input type="hidden"[^>]*name="(.*?)" value="(.*?)"/g)]
      .map(([, name, value]) => [name, unescape(value)])),
    ...values, action: "Submit" });
  return (await device.request("/cgi-bin/orv", { body: String(body) })).text;
}
