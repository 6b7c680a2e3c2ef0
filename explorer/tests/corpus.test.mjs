// Every damaged container of the corpus: the inspection in WebAssembly says, plans and makes just what the tool does.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { FileSource, orba, pageModule, repairAt, scratch, wasm, writeCorpus } from './support.mjs';

const { Inspection } = await pageModule('module.ts');
const folder = scratch();
const containers = writeCorpus(path.join(folder, 'corpus'));

async function withInspection(file, use) {
  const source = new FileSource(file);
  try {
    return await use(await Inspection.open(wasm, source));
  } finally {
    source.close();
  }
}

/** The container with the plan's patches in it. */
function repaired(file, inspection, plan) {
  const size = plan.patches.reduce((most, [offset, count]) => Math.max(most, offset + count), fs.statSync(file).size);
  const bytes = Buffer.alloc(size);
  fs.readFileSync(file).copy(bytes);
  const patches = inspection.patches();
  let at = 0;
  for (const [offset, count] of plan.patches) {
    bytes.set(patches.subarray(at, at + count), offset);
    at += count;
  }
  assert.equal(at, patches.length);
  return bytes;
}

test('corpus_written_holdsMoreThanTwoHundredContainers', () => assert.ok(containers.length > 200));

for (const file of containers) {
  const name = path.basename(file, '.orb');

  test(`check_${name}_saysWhatTheToolSays`, async () => {
    const { container, error, code, ...expected } = JSON.parse(orba(folder, ['check', '--json', file], [0, 4, 8]).text);
    assert.equal(container, file);
    assert.equal(error === undefined, expected.readable);
    assert.equal(code === undefined, expected.readable);
    assert.deepEqual(await withInspection(file, (inspection) => inspection.check()), expected);
  });

  test(`repair_${name}_makesWhatTheToolMakes`, async () => {
    const dryRun = orba(folder, ['repair', '--dry-run', '--verbose', file], [0, 4, 8]);
    const copy = path.join(folder, 'copy.orb');
    fs.copyFileSync(file, copy);
    const expected = repairAt(copy, '--force');
    let equal = false;
    for (const second of expected.seconds) {
      await withInspection(file, (inspection) => {
        const plan = inspection.plan(new Date(second * 1000));
        assert.equal(plan.possible, dryRun.status !== 8);
        if (!plan.possible) {
          assert.ok(dryRun.error.includes(plan.problem), dryRun.error);
        } else if (dryRun.text !== 'clean: nothing to repair\n') {
          assert.equal(plan.text, dryRun.text);
        }
        assert.equal(plan.steps.length > 0, plan.patches.length > 0);
        equal ||= repaired(file, inspection, plan).equals(expected.bytes);
      });
    }
    assert.ok(equal, 'the repaired bytes differ');
  });
}
