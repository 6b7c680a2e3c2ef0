// The page: takes a container, shows how it is and what it holds, and what a repair would make of it.
import { Container } from './container';
import { announce, byId, counted, element, message, size } from './dom';
import { findingsCount, findingsText, isSound, showFacts, showFindings, verdict } from './health';
import { BlockMap } from './map';
import type { Entry, Report } from './module';
import { archiveButton, hexText, Preview } from './preview';
import { prospect, showNoRepair, showPlan, showPlanning, type Repair } from './repair';
import { Tabs } from './tabs';
import { Tree } from './tree';

/** A container to look at: the file as it is, or as a repair would make it. */
interface View {
  container: Container;
  report: Report;
  bytes: number;
}

const tree = new Tree(byId('tree'), { selected: (entry, path) => void select(entry, path) });
const preview = new Preview(byId('preview'));
const map = new BlockMap(byId('map'), { chosen: (way) => void tree.reveal(way) });
const tabs = new Tabs(byId('tabs'));

let file: File | null = null;
let workers: Container[] = [];
let view: View | null = null;
let original: View | null = null;
let repair: Repair | null = null;
let repaired: View | null = null;

// ---- The module -----------------------------------------------------------------------------------------------------

/** The inspection lies in the page as text: compressed, then as base64. */
const module = (async () => {
  const binary = atob(byId('module').textContent!.trim());
  const bytes = Uint8Array.from(binary, (character) => character.charCodeAt(0));
  const unpacked = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'));
  return WebAssembly.compile(await new Response(unpacked).arrayBuffer());
})();
module.catch((error: unknown) => fail('This browser cannot run the explorer', message(error)));

// ---- Opening --------------------------------------------------------------------------------------------------------

/** A worker on the bytes. It ends when another file is opened, and what it was asked for never comes then. */
async function start(blob: Blob): Promise<Container> {
  const chosen = file;
  const compiled = await module;
  if (file !== chosen) throw new Error('another file was opened');
  const container = new Container();
  workers.push(container);
  await container.call('open', compiled, blob);
  return container;
}

async function openView(blob: Blob): Promise<View> {
  const container = await start(blob);
  return { container, report: await container.call('check'), bytes: blob.size };
}

async function open(chosen: File): Promise<void> {
  for (const worker of workers) worker.close();
  workers = [];
  file = chosen;
  view = original = repaired = null;
  repair = null;
  document.title = `${chosen.name} – orba explorer`;
  byId('busy-name').textContent = chosen.name;
  showScreen('busy');
  announce(`Opening ${chosen.name}`);
  try {
    const opened = await openView(chosen);
    if (file !== chosen) return;
    if (!opened.report.readable) return await refuse(chosen, opened.report);
    original = opened;
    await show(opened);
    if (file === chosen) await plan(chosen);
  } catch (error) {
    if (file === chosen) fail('This file could not be opened', message(error));
  }
}

/** Shows a view on all of the page. */
async function show(next: View): Promise<void> {
  view = next;
  const { report } = next;
  byId('name').textContent = file!.name;
  const { text, tone } = verdict(report);
  const badge = byId('verdict');
  badge.textContent = text;
  badge.className = `verdict ${tone}`;
  showFacts(report, next.bytes);
  showFindings(byId('findings'), report);
  const findings = findingsCount(report);
  byId('findings-count').textContent = findings > 0 ? ` (${findings.toLocaleString('en')})` : '';
  byId('as-is').setAttribute('aria-pressed', String(next === original));
  byId('as-repaired').setAttribute('aria-pressed', String(next !== original));
  preview.clear();
  byId('archive').replaceChildren(
    archiveButton(next.container, 0, 'Download all (.tar)', `${file!.name}.tar`, byId('tree-notes')));
  showScreen('explorer');
  const problems = await tree.show(next.container);
  if (view !== next) return;
  byId('tree-notes').replaceChildren(...problems.map((problem) =>
    element('p', { class: 'warning' }, `The root directory cannot be read whole: ${problem}.`)));
  byId('tree').hidden = tree.empty;
  byId('tree-empty').hidden = !tree.empty || problems.length > 0;
  await map.show(next.container, report);
  if (view !== next) return;
  announce(`${file!.name}: ${text}. ${counted(report.files, 'file')}. ${findingsText(report)}`);
}

/** In a worker of its own, so that the container can be looked at meanwhile. */
async function plan(chosen: File): Promise<void> {
  const root = byId('repair');
  const callout = byId('callout');
  const sound = isSound(original!.report);
  byId('views').hidden = true;
  callout.hidden = sound;
  tabs.show(sound ? 'tab-preview' : 'tab-findings');
  if (sound) return showNoRepair(root);
  callout.className = `callout ${verdict(original!.report).tone}`;
  byId('callout-text').textContent = 'Working out what a repair would do…';
  byId('callout-more').hidden = true;
  showPlanning(root);
  const container = await start(chosen);
  const made = await container.call('plan', new Date());
  if (file !== chosen) return;
  repair = made;
  showPlan(root, container, chosen.name, made);
  byId('callout-text').textContent = made.plan.possible ? prospect(made.plan)
    : `This cannot be repaired: ${made.plan.problem}.`;
  byId('callout-more').hidden = false;
  byId('views').hidden = !made.plan.possible || made.plan.steps.length === 0;
  announce(byId('callout-text').textContent!);
}

async function showRepaired(): Promise<void> {
  const chosen = file;
  const made = repair;
  if (made === null || view === repaired) return;
  const next = repaired ?? await openView(made.repaired);
  if (file !== chosen) return;
  repaired = next;
  await show(next);
}

async function select(entry: Entry, path: string): Promise<void> {
  map.highlight(entry.lost === true ? 0 : entry.node);
  if (byId('tab-map').getAttribute('aria-selected') !== 'true') tabs.show('tab-preview');
  await preview.show(view!.container, entry, path);
  // On a phone the details lie below the tree, perhaps out of sight.
  if (!entry.directory && matchMedia('(max-width: 56rem) and (pointer: coarse)').matches) {
    byId('tabs').scrollIntoView({ block: 'start' });
  }
}

// ---- What cannot be opened ------------------------------------------------------------------------------------------

function showScreen(id: string): void {
  for (const screen of document.querySelectorAll<HTMLElement>('.screen')) screen.hidden = screen.id !== id;
  byId('another').hidden = id === 'welcome';
}

async function refuse(chosen: File, report: Report): Promise<void> {
  const unreadable = report.findings.some((finding) => finding.kind === 'unreadable');
  if (unreadable) {
    fail(`The browser could not read all of ${chosen.name}`, 'Copy it to another disk, and open the copy.');
  } else {
    fail(`${chosen.name} is not a container, or its beginning is lost`,
         `In its ${size(chosen.size)} nothing shows where the blocks of a container lie.`);
  }
  showFindings(byId('failed-findings'), report);
  const head = new Uint8Array(await chosen.slice(0, 128).arrayBuffer().catch(() => new ArrayBuffer(0)));
  byId('failed-head').hidden = head.length === 0;
  byId('failed-bytes').textContent = hexText(head, 0);
}

function fail(title: string, text: string): void {
  byId('failed-title').textContent = title;
  byId('failed-text').textContent = text;
  byId('failed-findings').replaceChildren();
  byId('failed-head').hidden = true;
  showScreen('failed');
  announce(`${title}. ${text}`);
}

// ---- What people do -------------------------------------------------------------------------------------------------

addEventListener('unhandledrejection', ({ reason }) => fail('The explorer had to stop', message(reason)));

const input = byId<HTMLInputElement>('file');
input.addEventListener('change', () => {
  const chosen = input.files?.[0];
  if (chosen !== undefined) void open(chosen);
  input.value = '';
});
for (const id of ['choose', 'choose-again', 'another']) byId(id).addEventListener('click', () => input.click());
byId('as-is').addEventListener('click', () => {
  if (original !== null && view !== original) void show(original);
});
byId('as-repaired').addEventListener('click', () => {
  const chosen = file;
  showRepaired().catch((error: unknown) => {
    if (file === chosen) fail('The repaired container could not be read', message(error));
  });
});
byId('callout-more').addEventListener('click', () => {
  tabs.show('tab-repair');
  byId('tab-repair').focus();
});

let inside = 0;  // how many elements under the pointer the file is being dragged over
const dragging = (on: boolean) => document.body.classList.toggle('dragging', on);
addEventListener('dragenter', (event) => {
  event.preventDefault();
  ++inside;
  dragging(true);
});
addEventListener('dragleave', () => dragging(--inside > 0));
addEventListener('dragover', (event) => event.preventDefault());
addEventListener('drop', (event) => {
  event.preventDefault();
  inside = 0;
  dragging(false);
  const item = event.dataTransfer?.items[0];
  if (item?.webkitGetAsEntry()?.isDirectory) {
    fail('This is a folder', 'Drop the container file that lies in it.');
    return;
  }
  const dropped = event.dataTransfer?.files[0];
  if (dropped !== undefined) void open(dropped);
});
