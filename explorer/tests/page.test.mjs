// The page in Chromium, opened from the disk as people do. Files are dropped on it as the browser does it, by their
// paths, and downloads are compared with what the tool makes of the same container.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { createRequire } from 'node:module';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { chromium } from 'playwright-core';
import { built, orba, page as pageFile, repairAt, scratch, writeCorpus } from './support.mjs';

const kChromium = process.env.CHROMIUM ?? '/usr/bin/chromium';
const kAxe = fs.readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const kPage = `file://${pageFile}`;

const folder = scratch();
const screenshots = path.join(built, 'screenshots');
let browser;

before(async () => {
  fs.rmSync(screenshots, { recursive: true, force: true });
  browser = await chromium.launch({ executablePath: kChromium, args: ['--no-sandbox'] });
});
after(() => browser?.close());

// ---- Containers -----------------------------------------------------------------------------------------------------

/** A red and a blue pixel. */
const kPicture = Buffer.from('R0lGODdhAgABAIAAAP8AAAAA/ywAAAAAAgABAAACAkQKADs=', 'base64');

/** A container with some of everything, and the tree that it was made of. */
function makeHealthy() {
  const tree = path.join(folder, 'tree');
  const bytes = (count) => Buffer.from(Array.from({ length: count }, (_, index) => (index * 7 + (index >> 8)) & 0xff));
  const files = {
    'CONFIG/DEVICE.INI': Buffer.from('[device]\nname = PUMP-7\ninterval = 60\n'),
    'LOGS/OLD/EMPTY.TXT': Buffer.alloc(0),
    'FIRMWARE.BIN': bytes(300_000),
    'LOGO.GIF': kPicture,
    'LONG.TXT': Buffer.from('The pump ran for a minute and stopped.\n'.repeat(4000)),
  };
  for (let day = 1; day <= 30; ++day) files[`LOGS/DAY${day}.TXT`] = Buffer.from(`reading ${day}\n`.repeat(100 * day));
  for (const [name, contents] of Object.entries(files)) {
    fs.mkdirSync(path.dirname(path.join(tree, name)), { recursive: true });
    fs.writeFileSync(path.join(tree, name), contents);
  }
  const container = path.join(folder, 'card.orb');
  orba(folder, ['format', '--block-size', '1024', container]);
  orba(folder, ['put', ...fs.readdirSync(tree).map((name) => path.join(tree, name)), container]);
  return { container, files };
}

const healthy = makeHealthy();

function changed(name, change) {
  const bytes = fs.readFileSync(healthy.container);
  change(bytes);
  const file = path.join(folder, name);
  fs.writeFileSync(file, bytes);
  return file;
}

const corpus = (name) => writeCorpus(path.join(folder, `corpus-${name}`), name)[0];

// ---- The page -------------------------------------------------------------------------------------------------------

/** A page with the explorer, and what went wrong in it. */
async function openPage({ scheme = 'light', width = 1280, height = 800, seconds } = {}) {
  const context = await browser.newContext({
    viewport: { width, height }, colorScheme: scheme, acceptDownloads: true, offline: true,
  });
  const page = await context.newPage();
  const errors = [];
  const requests = [];
  page.on('pageerror', (error) => errors.push(String(error)));
  page.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
  page.on('request', (request) => requests.push(request.url()));
  if (seconds !== undefined) await page.clock.setFixedTime(seconds * 1000);
  await page.goto(kPage);
  return { page, errors, requests, close: () => context.close() };
}

async function withPage(options, use) {
  const opened = await openPage(options);
  try {
    await use(opened.page, opened);
    assert.deepEqual(opened.errors, []);
  } finally {
    await opened.close();
  }
}

/** Drops a file of the disk, and waits for one of the screens. */
async function drop(page, file, screen = '#explorer') {
  const session = await page.context().newCDPSession(page);
  const data = { items: [], files: [file], dragOperationsMask: 1 };
  for (const type of ['dragEnter', 'dragOver', 'drop']) {
    await session.send('Input.dispatchDragEvent', { type, x: 200, y: 200, data });
  }
  await session.detach();
  await page.locator(screen).waitFor({ timeout: 120_000 });
}

const row = (page, name) => page.getByRole('treeitem', { name, exact: false });
const text = (page, selector) => page.locator(selector).innerText();

async function downloaded(page, press) {
  const [download] = await Promise.all([page.waitForEvent('download', { timeout: 120_000 }), press()]);
  const file = path.join(scratch(), download.suggestedFilename());
  await download.saveAs(file);
  return file;
}

/** Each file of a folder of the host, by its path. */
function hostTree(top) {
  const names = fs.readdirSync(top, { recursive: true }).map(String).sort();
  return Object.fromEntries(names.map((name) => {
    const file = path.join(top, name);
    return [name, fs.statSync(file).isDirectory() ? null : fs.readFileSync(file).toString('base64')];
  }));
}

function unpacked(archive) {
  const out = scratch();
  const done = spawnSync('tar', ['-xf', archive, '-C', out]);
  assert.equal(done.status, 0, String(done.stderr));
  assert.equal(String(done.stderr), '');
  return out;
}

function got(container, ...paths) {
  const out = scratch();
  orba(out, ['get', ...paths.map((name) => `${container}:${name}`), out]);
  return out;
}

async function shoot(page, name) {
  await page.screenshot({ path: path.join(screenshots, `${name}.png`), fullPage: true });
}

/** What the known rules of accessibility find, in a few words each. */
async function audit(page) {
  await page.evaluate(kAxe);
  const { violations } = await page.evaluate(() => globalThis.axe.run(document, {
    runOnly: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'],
  }));
  return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ target }) => target.join(' ')).join(', ')}`);
}

// ---- Before a container is open -------------------------------------------------------------------------------------

test('welcome_opened_saysThatNothingIsUploadedAndAsksForNothing', () => withPage({}, async (page, { requests }) => {
  assert.equal(await text(page, 'h1:visible'), 'Drop a container here');
  assert.match(await text(page, 'footer'), /Nothing is uploaded\./);
  assert.deepEqual(requests.filter((url) => !url.startsWith('data:')), [kPage]);
  await shoot(page, 'welcome');
}));

test('policy_scriptsAndConnections_areRefused', () => withPage({}, async (page, opened) => {
  const policy = await page.locator('meta[http-equiv]').getAttribute('content');
  assert.doesNotMatch(policy, /unsafe-inline|'unsafe-eval|\*|http/);
  assert.match(policy, /^default-src 'none';/);
  const ran = await page.evaluate(async () => {
    const script = document.createElement('script');
    script.textContent = 'globalThis.ran = true';
    document.body.append(script);
    const image = document.createElement('img');
    image.setAttribute('onerror', 'globalThis.ran = true');
    image.src = 'data:,';
    document.body.append(image);
    await new Promise((resolve) => setTimeout(resolve, 100));
    const reached = await fetch('data:,reached').then(() => true, () => false);
    return { script: globalThis.ran === true, reached };
  });
  assert.deepEqual(ran, { script: false, reached: false });
  assert.ok(opened.errors.length >= 3 && opened.errors.every((error) => /Content Security Policy/.test(error)),
            opened.errors.join('\n'));
  opened.errors.length = 0;
}));

// ---- Healthy containers ---------------------------------------------------------------------------------------------

test('healthy_dropped_showsHealthFactsAndTree', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  assert.equal(await text(page, '#name'), 'card.orb');
  assert.equal(await text(page, '#verdict'), 'Clean');
  assert.match(await text(page, '#facts'), /Files\s+35 \(/);
  assert.match(await text(page, '#facts'), /Directories\s+4\s/);
  await row(page, 'LOGO.GIF').waitFor();
  const names = await page.locator('.row .name').allInnerTexts();
  assert.deepEqual(names, ['CONFIG', 'LOGS', 'FIRMWARE.BIN', 'LOGO.GIF', 'LONG.TXT']);
  await page.getByRole('tab', { name: 'Findings' }).click();
  assert.match(await text(page, '#findings'), /Nothing is wrong/);
  await page.getByRole('tab', { name: 'Repair' }).click();
  assert.match(await text(page, '#repair'), /There is nothing to repair/);
  assert.equal(await page.locator('#views').isVisible(), false);
}));

test('preview_files_areShownAsTextPictureAndBytes', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  await row(page, 'CONFIG').click();
  await row(page, 'DEVICE.INI').click();
  assert.equal(await text(page, 'pre.text'), '[device]\nname = PUMP-7\ninterval = 60\n');
  assert.equal(await text(page, '.path'), '/CONFIG/DEVICE.INI');
  await shoot(page, 'text');

  await row(page, 'LOGO.GIF').click();
  await page.locator('.view img').waitFor();
  assert.deepEqual(await page.locator('.view img').evaluate(async (image) => {
    await image.decode();
    return [image.naturalWidth, image.naturalHeight];
  }), [2, 1]);

  await row(page, 'FIRMWARE.BIN').click();
  await page.locator('.view pre.hex').waitFor();
  assert.equal((await text(page, '.view pre.hex')).split('\n')[1],
               '00000010  70 77 7e 85 8c 93 9a a1 a8 af b6 bd c4 cb d2 d9  pw~.............');
  await page.getByRole('button', { name: 'Last' }).click();
  await page.getByText('299,008 to 299,999 of 300,000').waitFor();
  await shoot(page, 'bytes');

  await row(page, 'LONG.TXT').click();
  await page.getByRole('button', { name: /^Show more/ }).click();
  await page.waitForFunction(() => document.querySelector('pre.text').textContent.length === 2 * 65536);
  await page.getByRole('button', { name: /^Show more/ }).click();
  await page.waitForFunction((whole) => document.querySelector('pre.text').textContent.length === whole,
                             healthy.files['LONG.TXT'].length);
}));

test('download_file_isWhatGetCopies', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  for (const name of ['FIRMWARE.BIN', 'LONG.TXT']) {
    await row(page, name).click();
    await page.getByRole('heading', { name: `/${name}` }).waitFor();
    const file = await downloaded(page, () => page.getByRole('button', { name: 'Download', exact: true }).click());
    assert.equal(path.basename(file), name);
    assert.ok(fs.readFileSync(file).equals(fs.readFileSync(path.join(got(healthy.container, `/${name}`), name))));
  }
}));

test('download_folder_isWhatGetCopies', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  await row(page, 'LOGS').click();
  const archive = await downloaded(page, () => page.getByRole('button', { name: /^Download folder/ }).click());
  assert.equal(path.basename(archive), 'LOGS.tar');
  assert.deepEqual(hostTree(unpacked(archive)), hostTree(path.join(got(healthy.container, '/LOGS'), 'LOGS')));
}));

test('download_all_isWhatGetCopiesWithTimes', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  const archive = await downloaded(page, () => page.getByRole('button', { name: /^Download all/ }).click());
  const names = Object.keys(healthy.files).map((name) => name.split('/')[0]);
  const expected = got(healthy.container, ...new Set(names.map((name) => `/${name}`)));
  const out = unpacked(archive);
  assert.deepEqual(hostTree(out), hostTree(expected));
  for (const name of Object.keys(healthy.files)) {
    const seconds = (top) => Math.floor(fs.statSync(path.join(top, name)).mtimeMs / 1000);
    assert.equal(seconds(out), seconds(expected), name);
  }
}));

test('map_pointed_tellsTheOwnerAndSelectsItsFile', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  await page.getByRole('tab', { name: 'Map' }).click();
  const map = page.getByRole('slider');
  await map.waitFor();
  await map.hover({ position: { x: 5, y: 5 } });
  await page.getByText('Block 1: node block').waitFor();
  await map.focus();
  await page.keyboard.press('ArrowRight');
  await page.getByText('Block 2: directory /').waitFor();
  assert.equal(await map.getAttribute('aria-valuenow'), '2');
  let owner = await text(page, '.owner');
  while (!owner.includes('/FIRMWARE.BIN')) {  // its blocks lie in a row; the map ends where the container does
    await page.keyboard.press('ArrowDown');
    await page.waitForFunction((before) => document.querySelector('.owner').textContent !== before, owner);
    owner = await text(page, '.owner');
  }
  await page.keyboard.press('Enter');
  await page.locator('.row[aria-selected=true]', { hasText: 'FIRMWARE.BIN' }).waitFor();
  await shoot(page, 'map');
}));

// ---- Marked and damaged containers ----------------------------------------------------------------------------------

/** The repaired container that the page offers is what the tool makes at the same time. */
async function compareRepair(container) {
  const copy = path.join(scratch(), path.basename(container));
  fs.copyFileSync(container, copy);
  const expected = repairAt(copy);
  let equal = false;
  for (const seconds of expected.seconds) {
    await withPage({ seconds }, async (page) => {
      await drop(page, container);
      await page.getByRole('tab', { name: 'Repair' }).click();
      const get = page.getByRole('button', { name: 'Download repaired container' });
      const file = await downloaded(page, () => get.click());
      assert.equal(path.basename(file), path.basename(container).replace('.orb', '-repaired.orb'));
      equal ||= fs.readFileSync(file).equals(expected.bytes);
    });
  }
  assert.ok(equal, 'the repaired bytes differ');
}

test('marked_dropped_saysSoAndIsRepairedAsTheToolDoes', async () => {
  const marked = changed('marked.orb', (bytes) => bytes.writeUInt32LE(1, 52));
  await withPage({}, async (page) => {
    await drop(page, marked);
    assert.equal(await text(page, '#verdict'), 'Marked as being updated');
    await page.getByText('A repair would keep all 35 files that can be read.').first().waitFor();
    await page.getByRole('button', { name: 'See the repair' }).click();
    assert.deepEqual(await page.locator('.steps li').allInnerTexts(),
                     ['Clears the mark of an update in progress. 1 write']);
    await shoot(page, 'marked');
  });
  await compareRepair(marked);
});

test('damaged_dropped_showsTheFindingsOfCheck', () => withPage({ scheme: 'dark' }, async (page) => {
  const container = corpus('several_cross_linked_three_times');
  const { findings } = JSON.parse(orba(folder, ['check', '--json', container], [4]).text);
  await drop(page, container);
  assert.equal(await text(page, '#verdict'), 'Damaged');
  assert.deepEqual(await page.locator('.findings .sentence').allInnerTexts(), findings.map((finding) => finding.text));
  assert.equal(await text(page, '#tab-findings'), `Findings (${findings.length})`);
  await shoot(page, 'findings');
}));

test('damaged_planned_showsTheStepsAndThePromiseOfTheTool', () => withPage({}, async (page) => {
  const container = corpus('several_cross_linked_three_times');
  const lines = orba(folder, ['repair', '--dry-run', '--verbose', container], [4]).text.trim().split('\n');
  const promise = lines.pop();
  await drop(page, container);
  await page.getByRole('button', { name: 'See the repair' }).click();
  const steps = await page.locator('.steps li').allInnerTexts();
  assert.deepEqual(steps.map((step, index) => `${index + 1}. ${step}`.toLowerCase()),
                   lines.map((line) => line.replace(/ \((\d+ writes?)\)$/, '. $1').toLowerCase()));
  const [, kept, readable] = /^keeps (\d+) of (\d+) readable files$/.exec(promise);
  assert.equal(kept, readable);
  assert.equal(await text(page, '.promise'), `A repair would keep all ${kept} files that can be read.`);
  await shoot(page, 'repair');
}));

for (const name of ['several_cross_linked_three_times', 'bitmap_file_free', 'chain_block_in_both_records']) {
  test(`damaged_${name}_isRepairedAsTheToolDoes`, () => compareRepair(corpus(name)));
}

test('damaged_asRepaired_showsTheCleanTreeAndRecoversWhatTheToolDoes', () => withPage({}, async (page) => {
  const container = corpus('several_cross_linked_three_times');
  await drop(page, container);
  await page.getByRole('button', { name: 'As repaired' }).click();
  await page.locator('#verdict', { hasText: 'Clean' }).waitFor();
  assert.equal(await page.getByRole('button', { name: 'As repaired' }).getAttribute('aria-pressed'), 'true');
  const all = await downloaded(page, () => page.getByRole('button', { name: /^Download all/ }).click());
  await page.getByRole('tab', { name: 'Repair' }).click();
  const recovered = await downloaded(page, () => page.getByRole('button', { name: /^Recover all/ }).click());
  orba(folder, ['recover', '--quiet', container, 'recovered'], [4]);
  const expected = hostTree(path.join(folder, 'recovered'));
  assert.deepEqual(hostTree(unpacked(recovered)), expected);
  assert.deepEqual(hostTree(unpacked(all)), expected);
  await page.getByRole('button', { name: 'As it is' }).click();
  await page.locator('#verdict', { hasText: 'Damaged' }).waitFor();
}));

test('plan_thatCostsFiles_saysWhichAndOffersRecoveryFirst', () => withPage({}, async (page) => {
  await page.evaluate(() => {  // a plan for a container without room for copies
    globalThis.Worker = class extends Worker {
      set onmessage(handler) {
        super.onmessage = (event) => {
          const { plan } = event.data.value ?? {};
          if (plan !== undefined) {
            const promise = { ...plan.promise, readable: 102, kept: 100, lost: 2, losses: ['/LOGS/L07', '/LOGS/L09'] };
            Object.assign(plan, { promise, breaksPromise: true });
          }
          handler(event);
        };
      }
    };
  });
  const container = corpus('several_cross_linked_three_times');
  await drop(page, container);
  await page.getByRole('button', { name: 'See the repair' }).click();
  assert.equal(await text(page, '.promise'), 'A repair would keep 100 of 102 files that can be read.');
  assert.deepEqual(await page.locator('#repair .warning li').allInnerTexts(), ['/LOGS/L07', '/LOGS/L09']);
  assert.deepEqual(await page.locator('#repair .actions button').allInnerTexts(),
                   ['Recover all files (.tar)', 'Download repaired container without 2 files']);
  assert.deepEqual(await audit(page), []);
}));

test('names_withMarkup_areText', () => withPage({}, async (page) => {
  const name = '<img/src=x/onerror=alert(1)>';
  const container = changed('markup.orb', (bytes) => {
    const at = bytes.indexOf(Buffer.from('FIRMWARE.BIN\0'));
    bytes.write(name.padEnd(30, '\0'), at, 'latin1');
  });
  page.on('dialog', () => assert.fail('a script of the container ran'));
  await drop(page, container);
  await page.locator('.row .name', { hasText: name }).click();
  await page.getByRole('heading', { name: `/${name}` }).waitFor();
  assert.equal(await page.locator('#explorer img').count(), 0);
  const file = await downloaded(page, () => page.getByRole('button', { name: 'Download', exact: true }).click());
  assert.ok(fs.readFileSync(file).equals(healthy.files['FIRMWARE.BIN']));
}));

test('directory_withOneNameManyTimes_isShownAndDownloaded', () => withPage({}, async (page) => {
  const count = 130_000;
  const entries = Buffer.alloc((count + 2) * 32);
  const put = (index, node, name) => {
    entries.writeUInt16LE(node, index * 32);
    entries.write(name, index * 32 + 2, 'latin1');
  };
  put(0, 3, '.');
  put(1, 1, '..');
  for (let index = 2; index < count + 2; ++index) put(index, 2, 'SAME');
  const container = path.join(folder, 'same.orb');
  fs.writeFileSync(path.join(folder, 'D'), entries);
  fs.writeFileSync(path.join(folder, 'F'), '');
  orba(folder, ['format', '--block-size', '1024', container]);
  for (const name of ['F', 'D']) orba(folder, ['put', path.join(folder, name), container]);
  const bytes = fs.readFileSync(container);
  const table = bytes.readUInt32LE(128);  // the block of the first nodes
  const record = bytes.readUInt32LE(36) + (table - 1) * 1024 + 2 * 64;
  assert.equal(bytes.readUInt16LE(record + 4), 3);
  bytes.writeUInt16LE(8, record + 6);  // a directory
  fs.writeFileSync(container, bytes);
  fs.truncateSync(container, 80 << 20);  // as many blocks as it takes to be believed
  await drop(page, container);
  await row(page, 'D').first().click();
  await row(page, 'SAME').first().waitFor();
  await page.keyboard.press('End');
  await page.locator('.row:focus', { hasText: 'F' }).waitFor();
  await page.keyboard.press('ArrowUp');
  assert.equal(await page.locator('.row:focus').getAttribute('aria-posinset'), String(count));
  const archive = await downloaded(page, () => page.getByRole('button', { name: /^Download folder/ }).click());
  const { stdout } = spawnSync('tar', ['-tf', archive], { maxBuffer: 1 << 26 });
  const names = new Set(String(stdout).trimEnd().split('\n'));
  assert.equal(names.size, count);
  assert.ok(names.has('SAME') && names.has(`SAME~${count}`));
}));

test('picture_thatClaimsToFillTheMemory_isShownAsBytes', () => withPage({}, async (page) => {
  const container = changed('bomb.orb', (bytes) => {
    const at = bytes.indexOf(kPicture);
    bytes.writeUInt32LE(0xffffffff, at + 6);  // its width and height
  });
  await drop(page, container);
  await row(page, 'LOGO.GIF').click();
  await page.locator('.view pre.hex').waitFor();
  assert.equal(await page.getByRole('button', { name: 'Picture' }).count(), 0);
}));

// ---- Other files ----------------------------------------------------------------------------------------------------

for (const [what, bytes] of [['empty', Buffer.alloc(0)], ['text', Buffer.from('Dear diary,\n'.repeat(1000))]]) {
  test(`wrongFile_${what}_isRefusedInWords`, () => withPage({}, async (page) => {
    const file = path.join(folder, `${what}.bin`);
    fs.writeFileSync(file, bytes);
    await drop(page, file, '#failed');
    assert.equal(await text(page, '#failed-title'), `${what}.bin is not a container, or its beginning is lost`);
    assert.ok((await page.locator('#failed .sentence').allInnerTexts()).length > 0);
    await shoot(page, `wrong-${what}`);
    await drop(page, healthy.container);
    assert.equal(await text(page, '#verdict'), 'Clean');
  }));
}

test('folder_dropped_isRefusedInWords', () => withPage({}, async (page) => {
  await drop(page, folder, '#failed');
  assert.equal(await text(page, '#failed-title'), 'This is a folder');
}));

test('file_thatChangesWhileOpen_isReportedInWords', () => withPage({}, async (page, opened) => {
  const container = changed('changing.orb', () => {});
  await drop(page, container);
  await row(page, 'LONG.TXT').click();
  await page.getByRole('button', { name: /^Show more/ }).waitFor();
  fs.appendFileSync(container, 'x');
  const told = (panel) => page.locator(`${panel} [role=alert]`, { hasText: /^The browser could not read this/ });
  await page.getByRole('button', { name: /^Show more/ }).click();
  await told('.view').waitFor();
  await page.getByRole('button', { name: 'Download', exact: true }).click();
  await told('.contents > ').waitFor();
  await page.getByRole('button', { name: /^Download all/ }).click();
  await told('#tree-notes').waitFor();
  await row(page, 'FIRMWARE.BIN').click();
  await told('.contents > ').waitFor();
  opened.errors.length = 0;  // the browser tells of the file, too
}));

test('file_thatGoesWhileOpen_isNotOfferedAsRepaired', () => withPage({}, async (page, opened) => {
  const container = changed('going.orb', (bytes) => bytes.writeUInt32LE(1, 52));
  await drop(page, container);
  await page.getByRole('button', { name: 'See the repair' }).click();
  fs.rmSync(container);
  await page.getByRole('button', { name: 'Download repaired container' }).click();
  await page.locator('#repair [role=alert]').waitFor();
  opened.errors.length = 0;
}));

test('files_droppedInARow_leaveTheLast', () => withPage({}, async (page) => {
  const marked = changed('first.orb', (bytes) => bytes.writeUInt32LE(1, 52));
  for (const file of [marked, healthy.container, marked]) await drop(page, file, 'body');
  await drop(page, healthy.container, 'body');
  await page.locator('#name', { hasText: 'card.orb' }).waitFor();
  await page.locator('#verdict', { hasText: 'Clean' }).waitFor();
  await page.getByRole('tab', { name: 'Repair' }).click();
  assert.match(await text(page, '#repair'), /There is nothing to repair/);
  assert.equal(await page.locator('#views').isVisible(), false);
}));

test('views_changedInARow_showOneContainerInAllParts', () => withPage({}, async (page) => {
  await page.evaluate(() => {  // what the repaired one holds comes late
    let workers = 0;
    globalThis.Worker = class extends Worker {
      number = ++workers;
      postMessage(request) {
        const late = this.number === 3 && request.call === 'list';
        setTimeout(() => super.postMessage(request), late ? 1000 : 0);
      }
    };
  });
  await drop(page, corpus('several_cross_linked_three_times'));
  await page.getByRole('button', { name: 'As repaired' }).waitFor();
  const legend = await page.locator('.legend').textContent();
  await page.getByRole('button', { name: 'As repaired' }).click();
  await page.locator('#verdict', { hasText: 'Clean' }).waitFor();
  await page.getByRole('button', { name: 'As it is' }).click();
  await page.locator('#verdict', { hasText: 'Damaged' }).waitFor();
  await page.waitForTimeout(1500);
  assert.equal(await page.locator('.legend').textContent(), legend);
  await page.getByRole('button', { name: 'As repaired' }).click();
  await page.waitForFunction((before) => document.querySelector('.legend').textContent !== before, legend);
}));

for (const call of ['check', 'list']) {
  test(`module_thatGivesUpIn_${call}_isReportedInWords`, () => withPage({}, async (page) => {
    await page.evaluate((failing) => {
      globalThis.Worker = class extends Worker {
        postMessage(request) {
          if (request.call !== failing) return super.postMessage(request);
          this.onmessage({ data: { id: request.id, error: 'memory access out of bounds' } });
        }
      };
    }, call);
    await drop(page, healthy.container, '#failed');
    assert.equal(await text(page, '#failed-title'), 'This file could not be opened');
    assert.equal(await text(page, '#failed-text'), 'memory access out of bounds');
  }));
}

// ---- Large containers -----------------------------------------------------------------------------------------------

/** Nearly 1 GB: one file of zeros, whose blocks are holes on the disk, between two others. */
function makeHuge() {
  const container = path.join(folder, 'huge.orb');
  const zeros = path.join(folder, 'ZEROS.BIN');
  fs.writeFileSync(zeros, '');
  fs.truncateSync(zeros, 1000 * 1024 * 1024);
  for (const name of ['FIRST.TXT', 'LAST.TXT']) fs.writeFileSync(path.join(folder, name), `this is ${name}\n`);
  orba(folder, ['format', '--block-size', '4096', container]);
  for (const name of ['FIRST.TXT', 'ZEROS.BIN', 'LAST.TXT']) orba(folder, ['put', path.join(folder, name), container]);
  spawnSync('fallocate', ['--dig-holes', container]);
  fs.rmSync(zeros);
  return container;
}

test('huge_dropped_isShownAndCopied', async (context) => {
  const container = makeHuge();
  await withPage({}, async (page) => {
    const begin = performance.now();
    await drop(page, container);
    await row(page, 'ZEROS.BIN').waitFor();
    context.diagnostic(`${fs.statSync(container).size} bytes shown after ${Math.round(performance.now() - begin)} ms`);
    assert.equal(await text(page, '#verdict'), 'Clean');
    await row(page, 'LAST.TXT').click();
    assert.equal(await text(page, 'pre.text'), 'this is LAST.TXT\n');
    await row(page, 'ZEROS.BIN').click();
    await page.getByText('1,048,576,000 bytes').waitFor();
    await page.locator('.view pre.hex').waitFor();
    await page.getByRole('tab', { name: 'Map' }).click();
    await page.getByText(/a cell stands for/).waitFor();
    await shoot(page, 'huge');
  });
  fs.writeSync(fs.openSync(container, 'r+'), Buffer.from([1]), 0, 1, 52);
  await withPage({}, async (page) => {
    const begin = performance.now();
    await drop(page, container);
    await page.getByRole('button', { name: 'See the repair' }).click();
    context.diagnostic(`its repair planned after ${Math.round(performance.now() - begin)} ms`);
    const get = page.getByRole('button', { name: 'Download repaired container' });
    const file = await downloaded(page, () => get.click());
    orba(folder, ['repair', '--quiet', container], [1]);
    const same = spawnSync('cmp', [file, container]);
    assert.equal(same.status, 0, String(same.stdout));
  });
  fs.rmSync(container);
});

test('directory_withThousandsOfFiles_drawsTheRowsInView', () => withPage({}, async (page) => {
  const many = path.join(folder, 'MANY');
  fs.mkdirSync(many);
  for (let index = 0; index < 3000; ++index) fs.writeFileSync(path.join(many, `FILE${index}.TXT`), '');
  const container = path.join(folder, 'many.orb');
  orba(folder, ['format', '--block-size', '4096', '--nodes', '4000', container]);
  orba(folder, ['put', many, container]);
  await drop(page, container);
  await row(page, 'MANY').click();
  await row(page, 'FILE0.TXT').waitFor();
  await page.keyboard.press('End');
  const last = page.locator('.row:focus');
  assert.match(await last.innerText(), /^FILE2999\.TXT/);
  assert.deepEqual([await last.getAttribute('aria-posinset'), await last.getAttribute('aria-setsize')],
                   ['3000', '3000']);
  assert.ok(await page.locator('.row').count() < 100);
}));

// ---- Keyboard and accessibility -------------------------------------------------------------------------------------

test('keyboard_alone_goesThroughTreeAndTabs', () => withPage({}, async (page) => {
  await drop(page, healthy.container);
  await row(page, 'CONFIG').focus();
  const focused = () => page.locator('.row:focus .name').innerText();
  await page.keyboard.press('ArrowDown');
  assert.equal(await focused(), 'LOGS');
  await page.keyboard.press('ArrowRight');
  await row(page, 'DAY1.TXT').waitFor();
  assert.equal(await page.locator('.row:focus').getAttribute('aria-expanded'), 'true');
  await page.keyboard.press('ArrowRight');
  assert.equal(await focused(), 'OLD');
  await page.keyboard.press('ArrowLeft');
  assert.equal(await focused(), 'LOGS');
  await page.keyboard.press('ArrowLeft');
  assert.equal(await page.locator('.row:focus').getAttribute('aria-expanded'), 'false');
  await page.keyboard.press('End');
  assert.equal(await focused(), 'LONG.TXT');
  await page.keyboard.type('fi');
  assert.equal(await focused(), 'FIRMWARE.BIN');
  await page.keyboard.press('Enter');
  await page.getByRole('heading', { name: '/FIRMWARE.BIN' }).waitFor();
  assert.equal(await page.locator('.row[tabindex="0"]').count(), 1);

  await page.getByRole('tab', { name: 'Contents' }).focus();
  for (const [name, panel] of [['Findings', '#findings'], ['Repair', '#repair'], ['Map', '#map']]) {
    await page.keyboard.press('ArrowRight');
    assert.match(await page.locator('[role=tab]:focus').innerText(), new RegExp(`^${name}`));
    assert.ok(await page.locator(panel).isVisible());
  }
}));

for (const scheme of ['light', 'dark']) {
  for (const [shape, width, height] of [['desktop', 1280, 800], ['phone', 360, 780]]) {
    test(`accessibility_${scheme}On${shape}_breaksNoRule`, () => withPage({ scheme, width, height }, async (page) => {
      const look = async (name) => {
        assert.deepEqual(await audit(page), [], name);
        const overflows = await page.evaluate(() => document.documentElement.scrollWidth > innerWidth);
        assert.equal(overflows, false, `${name} is wider than the screen`);
        await shoot(page, `${scheme}-${shape}-${name}`);
      };
      await look('welcome');
      await drop(page, corpus('several_cross_linked_three_times'));
      await page.getByRole('button', { name: 'See the repair' }).waitFor();
      await look('findings');
      await page.getByRole('tab', { name: 'Repair' }).click();
      await look('repair');
      await page.getByRole('tab', { name: 'Map' }).click();
      await look('map');
      await row(page, 'SMALL.TXT').click();
      await page.getByRole('tab', { name: 'Contents' }).click();
      await page.locator('.view pre').waitFor();
      await look('contents');
      const wrong = path.join(folder, 'wrong.bin');
      fs.writeFileSync(wrong, 'not a container');
      await drop(page, wrong, '#failed');
      await look('failed');
    }));
  }
}
