// Archives, as the system's own tar reads them.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { pageModule, scratch } from './support.mjs';

const { Tar } = await pageModule('tar.ts');

/** What is in the archive: the path, size and seconds since 1970 of each member, and the folder it was unpacked to. */
async function read(tar) {
  const folder = scratch();
  const archive = path.join(scratch(), 'archive.tar');
  fs.writeFileSync(archive, Buffer.from(await tar.done().arrayBuffer()));
  const run = (...parameters) => {
    const done = spawnSync('tar', parameters, { env: { ...process.env, TZ: 'UTC' } });
    assert.deepEqual([done.status, String(done.stderr)], [0, '']);
    return String(done.stdout).trimEnd();
  };
  run('--warning=no-timestamp', '-xf', archive, '-C', folder);
  const members = run('--full-time', '-tvf', archive).split('\n').map((line) => {
    const [, , size, date, time, name] = line.split(/ +/);
    return [name, Number(size), Date.parse(`${date}T${time}Z`) / 1000];
  });
  return { folder, members };
}

const bytes = (text) => new TextEncoder().encode(text);

test('tar_filesAndDirectories_keepPathsContentsAndTimes', async () => {
  const tar = new Tar();
  tar.directory('LOGS', 1_000_000_000);
  tar.file('LOGS/EMPTY.TXT', 0, 0, () => {});
  tar.file('LOGS/BLOCK.BIN', 1_700_000_000, 512, (to) => to.bytes(new Uint8Array(512).fill(7)));
  tar.file('TEXT.TXT', 1, 5, (to) => {
    to.bytes(bytes('he'));
    to.blob(new Blob([bytes('llo')]));
  });
  const { folder, members } = await read(tar);
  assert.deepEqual(members, [['LOGS/', 0, 1_000_000_000], ['LOGS/EMPTY.TXT', 0, 0],
                             ['LOGS/BLOCK.BIN', 512, 1_700_000_000], ['TEXT.TXT', 5, 1]]);
  assert.deepEqual(fs.readFileSync(path.join(folder, 'LOGS/BLOCK.BIN')), Buffer.alloc(512, 7));
  assert.equal(fs.readFileSync(path.join(folder, 'TEXT.TXT'), 'latin1'), 'hello');
});

test('tar_pathsOfAnyLength_areKept', async () => {
  const tar = new Tar();
  const paths = [];
  for (let length = 95; length < 300; ++length) {
    const name = 'FOLDER/'.repeat(40).slice(0, length - 30).replace(/\/?$/, '/') + 'N'.repeat(29);
    paths.push(name);
    tar.file(name, 0, 0, () => {});
  }
  const { members } = await read(tar);
  assert.deepEqual(members.map(([name]) => name), paths);
});

test('tar_timeAfterTheUstarRange_isKept', async () => {
  const tar = new Tar();
  tar.file('LATE.TXT', 2 ** 33 + 5, 0, () => {});
  const { members } = await read(tar);
  assert.deepEqual(members, [['LATE.TXT', 0, 2 ** 33 + 5]]);
});

test('tar_largePieces_areKept', async () => {
  const tar = new Tar();
  const piece = new Uint8Array(700_000).map((_, index) => index % 251);
  tar.file('LARGE.BIN', 0, 3 * piece.length, (to) => {
    for (let part = 0; part < 3; ++part) to.bytes(piece);
  });
  const { folder } = await read(tar);
  assert.ok(fs.readFileSync(path.join(folder, 'LARGE.BIN')).equals(Buffer.concat([piece, piece, piece])));
});
