// What the tests of the explorer share: the tool to compare with, containers, the inspection outside of a browser.
//   ORBA       the tool
//   EXPLORER   the folder in which the page was built
import { build } from 'esbuild';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
export const root = path.resolve(here, '../..');
export const ORBA = path.resolve(process.env.ORBA ?? path.join(root, 'build/release/bin/orba'));
export const built = path.resolve(process.env.EXPLORER ?? path.join(root, 'build/explorer'));
export const page = path.join(built, 'orba-explorer.html');

for (const needed of [ORBA, page]) {
  if (!fs.existsSync(needed)) throw new Error(`${needed} has not been built`);
}

const scratches = fs.mkdtempSync(path.join(os.tmpdir(), 'orba-explorer-'));
process.on('exit', () => fs.rmSync(scratches, { recursive: true, force: true }));

/** A new folder, which goes with the process. */
export function scratch() {
  return fs.mkdtempSync(path.join(scratches, 'scratch-'));
}

function run(program, parameters, options) {
  const done = spawnSync(program, parameters, { maxBuffer: 1 << 30, ...options });
  if (done.error !== undefined) throw done.error;
  return done;
}

/** Runs the tool; its status must be among those given. */
export function orba(folder, parameters, statuses = [0]) {
  const done = run(ORBA, parameters, { cwd: folder, env: { ...process.env, NO_COLOR: '1', TZ: 'UTC' } });
  if (!statuses.includes(done.status)) {
    throw new Error(`orba ${parameters.join(' ')}: status ${done.status}\n${done.stderr}`);
  }
  return { status: done.status, out: done.stdout, text: done.stdout.toString(), error: done.stderr.toString() };
}

/** Writes damaged containers of the corpus, all of them where none is named. Returns their paths. */
export function writeCorpus(folder, ...names) {
  const done = run('python3', ['-B', path.join(root, 'tests/corpus/corpus.py'), '--write', folder, ...names],
                   { env: { ...process.env, ORBA } });
  if (done.status !== 0) throw new Error(`corpus.py: ${done.stderr}`);
  return fs.readdirSync(folder).filter((name) => name.endsWith('.orb')).sort().map((name) => path.join(folder, name));
}

/** Repairs the container. Returns what it is then, and the seconds in which that was done. */
export function repairAt(file, ...options) {
  const start = Math.floor(Date.now() / 1000);
  const { status } = orba(path.dirname(file), ['repair', '--quiet', ...options, file], [0, 1, 4, 8]);
  const end = Math.floor(Date.now() / 1000);
  const seconds = [];
  for (let second = start; second <= end; ++second) seconds.push(second);
  return { status, bytes: fs.readFileSync(file), seconds };
}

/** Modules of the page, as the tests run them. */
export async function pageModule(name) {
  const { outputFiles } = await build({
    entryPoints: [path.join(root, 'explorer/page', name)], bundle: true, write: false, format: 'esm', target: 'es2022',
  });
  return import(`data:text/javascript;base64,${Buffer.from(outputFiles[0].contents).toString('base64')}`);
}

/** The inspection as it was built. */
export const wasm = await WebAssembly.compile(fs.readFileSync(path.join(built, 'inspection')));

export class FileSource {
  constructor(file) {
    this.descriptor = fs.openSync(file, 'r');
    this.size = fs.fstatSync(this.descriptor).size;
    this.bytesRead = 0;
  }

  read(offset, to) {
    this.bytesRead += to.length;
    return fs.readSync(this.descriptor, to, 0, to.length, offset) === to.length;
  }

  close() {
    fs.closeSync(this.descriptor);
  }
}
