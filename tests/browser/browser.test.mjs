// A user at the demo device: `node --test` in this folder, after `npm ci`.

import "./roundtrips.mjs";
import "./looks.mjs";
import "./inplace.mjs";
