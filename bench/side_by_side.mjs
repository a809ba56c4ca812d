// The other encoder's half of the side-by-side run (bench/side-by-side):
//   node side_by_side.mjs MODULE_DIR PIXELS WIDTH HEIGHT RUNS
// hands @point-of-sale/receipt-printer-encoder (installed under MODULE_DIR)
// the decoded pixels of the same picture (PIXELS: red, green, blue, alpha
// bytes, top row first) and prints the median time of RUNS Floyd-Steinberg
// raster encodes as "peer <ms>". Copying the pixels into a fresh array
// happens outside the timing.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [moduleDir, pixelsPath, widthText, heightText, runsText] = process.argv.slice(2);
const width = Number(widthText);
const height = Number(heightText);
const runs = Number(runsText);
const require = createRequire(join(moduleDir, 'package.json'));
const entry = require.resolve('@point-of-sale/receipt-printer-encoder');
const { default: ReceiptPrinterEncoder } = await import(pathToFileURL(entry.replace(/\.cjs$/, '.mjs')));

const pixels = new Uint8ClampedArray(readFileSync(pixelsPath));
if (pixels.length !== width * height * 4) throw new Error('pixel file does not match the size');

function encodeOnce() {
  const data = new Uint8ClampedArray(pixels);
  const start = process.hrtime.bigint();
  const encoder = new ReceiptPrinterEncoder({ language: 'esc-pos', imageMode: 'raster' });
  const bytes = encoder.image({ width, height, data }, width, height, 'floydsteinberg').encode();
  const ms = Number(process.hrtime.bigint() - start) / 1e6;
  if (bytes.length < (width / 8) * height) throw new Error('encoder gave too few bytes');
  return ms;
}

encodeOnce();
encodeOnce();  // warmed up, as vorn's side
const times = [];
for (let i = 0; i < runs; i++) times.push(encodeOnce());
times.sort((a, b) => a - b);
console.log(`peer ${times[Math.floor(times.length / 2)].toFixed(3)}`);
