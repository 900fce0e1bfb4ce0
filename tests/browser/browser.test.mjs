// A person at the demo device: `node --test` in this folder, after `npm ci`.

import assert from "node:assert/strict";
import { after, afterEach, before, beforeEach } from "node:test";
import { complaints, reset, start, stop } from "./device.mjs";

before(start);
beforeEach(reset);
afterEach(() => assert.deepEqual(complaints, []));
after(stop);

await import("./roundtrips.mjs");
await import("./looks.mjs");
