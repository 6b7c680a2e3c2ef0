// The inspection in WebAssembly, outside of a browser: what it reads, and what it does where it cannot.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { FileSource, orba, pageModule, scratch, wasm } from './support.mjs';

const { Inspection } = await pageModule('module.ts');
const folder = scratch();

/** A container with one file of this many bytes. */
function makeContainer(name, count) {
  const file = path.join(folder, 'FILE.BIN');
  fs.writeFileSync(file, '');
  fs.truncateSync(file, count);
  const container = path.join(folder, name);
  orba(folder, ['format', '--block-size', '4096', container]);
  orba(folder, ['put', file, container]);
  return container;
}

test('check_largeFile_readsTheMapsAndNotTheContents', async () => {
  const source = new FileSource(makeContainer('large.orb', 200 << 20));
  const inspection = await Inspection.open(wasm, source);
  assert.equal(inspection.check().verdict, 'clean');
  const [entry] = inspection.list(0).entries;
  const contents = inspection.contents(entry.node);
  assert.deepEqual([entry.name, contents.bytes, contents.whole, contents.problem], ['FILE.BIN', 200 << 20, true, '']);
  assert.equal(inspection.blocks().uses.length, Math.floor((source.size - 2048) / 4096));
  assert.ok(source.bytesRead < source.size / 20, `${source.bytesRead} of ${source.size} bytes`);
  source.close();
});

test('read_thatFails_becomesAFinding', async () => {
  const source = new FileSource(makeContainer('unreadable.orb', 100_000));
  const read = (offset, to) => offset + to.length <= 16384 && source.read(offset, to);
  const unreadable = { size: source.size, read };
  const inspection = await Inspection.open(wasm, unreadable);
  const report = inspection.check();
  assert.equal(report.readable, false);
  assert.ok(report.findings.some(({ kind }) => kind === 'unreadable'));
  source.close();
});

test('list_nodeThatIsNone_saysWhy', async () => {
  const source = new FileSource(makeContainer('small.orb', 1));
  const inspection = await Inspection.open(wasm, source);
  const { entries, problems } = inspection.list(60_000);
  assert.deepEqual(entries, []);
  assert.equal(problems.length, 1);
  assert.deepEqual(inspection.contents(60_000).pieces, []);
  assert.deepEqual(inspection.block(1 << 30), { block: 1 << 30 });
  source.close();
});
