// Makes the page: build.mjs INSPECTION.wasm PAGE.html. One file that needs nothing else: scripts and styles stand in
// it, and the policy in its head allows just those, by their hashes. The same sources give the same bytes.
import { build } from 'esbuild';
import { createHash } from 'node:crypto';
import { readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';

const kMostBytes = 1_000_000;

const folder = dirname(fileURLToPath(import.meta.url));
const [wasm, out] = process.argv.slice(2);
if (out === undefined) {
  console.error('usage: build.mjs INSPECTION.wasm PAGE.html');
  process.exit(2);
}

async function bundle(name, define = {}) {
  const { outputFiles } = await build({
    entryPoints: [join(folder, 'page', name)], bundle: true, minify: true, write: false, format: 'iife',
    target: 'es2022', charset: 'ascii', legalComments: 'none', define,
  });
  return outputFiles[0].text.trim();
}

const hash = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;

const worker = await bundle('worker.ts');
const script = (await bundle('main.ts', { WORKER_SOURCE: JSON.stringify(worker) })).replaceAll('</', '<\\/');
const style = await bundle('style.css');
const module = gzipSync(readFileSync(wasm), { level: 9 }).toString('base64');
const policy = [
  "default-src 'none'", `script-src ${hash(script)} 'wasm-unsafe-eval'`, `style-src ${hash(style)}`,
  'worker-src blob:', 'img-src blob: data:', "base-uri 'none'", "form-action 'none'",
].join('; ');

const parts = { 'CONTENT-POLICY': policy, STYLE: style, MODULE: module, SCRIPT: script };
const page = readFileSync(join(folder, 'page', 'index.html'), 'utf8')
  .replace(/CONTENT-POLICY|STYLE|MODULE|SCRIPT/g, (part) => parts[part]);
if (page.length > kMostBytes) {
  console.error(`build.mjs: the page has ${page.length} bytes; ${kMostBytes} is the most`);
  process.exit(1);
}
writeFileSync(out, page);
