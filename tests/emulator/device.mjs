// An emulated device as demo/emulator/run starts it: its pages, its SSH server
// and its power plug.

import assert from "node:assert/strict";
import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import fs from "node:fs/promises";
import https from "node:https";
import { createInterface } from "node:readline";
import { setTimeout } from "node:timers/promises";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

export const root = fileURLToPath(new URL("../..", import.meta.url));
export const command = `${root}demo/emulator/run`;
export const run = promisify(execFile);
// Long enough for a busy machine; when all is well, nobody waits that long.
export const PATIENCE = 400;

// Waits until `look` returns something true; if it never does, the error names
// `what`.
export async function until(what, look, seconds = PATIENCE) {
  const end = Date.now() + 1000 * seconds;
  let last;
  while (Date.now() < end) {
    try {
      const found = await look();
      if (found) {
        return found;
      }
      last = found;
    } catch (error) {
      last = error.message;
    }
    await setTimeout(500);
  }
  assert.fail(`${what}: not within ${seconds} s (${last})`);
}

export class Device {
  constructor(folder) {
    this.folder = folder;
    this.key = `${folder}/key`;
  }

  // Boots the device in the folder; `options` are the command's.
  async start(...options) {
    this.process = spawn(command, ["--run", "--dir", this.folder, ...options],
                         { stdio: ["ignore", "ignore", "pipe"] });
    const ended = once(this.process, "exit");
    let said = "";
    for await (const line of createInterface(this.process.stderr)) {
      said += `${line}\n`;
      const [, page, forward, password, ssh] =
        /pages: (\S+)[^]*?(?:at \S+: (\S+)[^]*?)?password (\S+)[^]*?-p (\d+)/
          .exec(said) || [];
      if (ssh) {
        Object.assign(this, { page, forward, password, ssh, ended });
        this.process.stderr.resume();
        return;
      }
    }
    assert.fail(`the device did not start: ${said}`);
  }

  // Switches it off without shutting it down.
  async pullPlug() {
    process.kill(Number(await fs.readFile(`${this.folder}/qemu.pid`, "utf8")),
                 "SIGKILL");
    await this.ended;
  }

  async stop() {
    if (this.process?.exitCode === null && this.process.signalCode === null) {
      this.process.kill();
      await this.ended;
    }
  }

  // Sends a request to its pages, or to another address if one is given.
  request(path, { base = this.page, body, timeout = 60000 } = {}) {
    return new Promise((resolve, reject) => {
      const request = https.request(new URL(path, base), {
        method: body ? "POST" : "GET",
        auth: `admin:${this.password}`,
        rejectUnauthorized: false, // its certificate is self-signed
        agent: false,
        timeout,
        headers: body &&
                 { "Content-Type": "application/x-www-form-urlencoded" },
      }, async (response) => {
        let text = "";
        try {
          for await (const part of response.setEncoding("utf8")) {
            text += part;
          }
          resolve({ status: response.statusCode, text });
        } catch (error) {
          reject(error);
        }
      });
      request.on("timeout", () => request.destroy(new Error("no answer")));
      request.on("error", reject);
      request.end(body);
    });
  }

  // A request to an unused address takes all of the time.
  async answers(base = this.page) {
    const { status } =
      await this.request("/cgi-bin/orv", { base, timeout: 20000 });
    return status === 200;
  }

  // Runs a command on the device, with the key entered on the page
  // Administrator.
  async shell(text) {
    const { stdout } = await run("dbclient", this.#login(text),
                                 { timeout: 60000 });
    return stdout.trim();
  }

  spawnShell(text) {
    return spawn("dbclient", this.#login(text),
                 { stdio: ["ignore", "pipe", "ignore"] });
  }

  #login(text) {
    return ["-y", "-y", "-i", this.key, "-p", this.ssh, "root@127.0.0.1", text];
  }

  // Makes a key once, and returns the line for that page.
  async publicKey() {
    await fs.access(this.key).catch(() =>
      run("dropbearkey", ["-t", "ed25519", "-f", this.key]));
    const { stdout } = await run("dropbearkey", ["-y", "-f", this.key]);
    return /^(ssh-ed25519 \S+)/m.exec(stdout)[1];
  }
}
