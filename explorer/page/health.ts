// How a container is: the verdict in a word, the facts at a glance, the findings in sentences.
import { button, byId, counted, element, number, size } from './dom';
import type { Finding, Report, Severity } from './module';

const kFindingsStep = 100;

/** What stands beside the name, and how it is coloured. */
export function verdict(report: Report): { text: string; tone: string } {
  if (!report.readable) return { text: 'Cannot be read', tone: 'damage' };
  const marked = report.marked ? ', marked as being updated' : '';
  switch (report.verdict) {
    case 'clean': return report.marked ? { text: 'Marked as being updated', tone: 'interrupted' }
      : { text: 'Clean', tone: 'clean' };
    case 'leaks': return { text: 'Leaks space' + marked, tone: 'leak' };
    case 'interrupted': return { text: 'Interrupted update' + marked, tone: 'interrupted' };
    case 'damaged': return { text: 'Damaged' + marked, tone: 'damage' };
  }
}

/** No repair would find anything to do. */
export function isSound(report: Report): boolean {
  return report.readable && report.verdict === 'clean' && !report.marked;
}

export function showFacts(report: Report, bytes: number): void {
  const facts: [string, string][] = [
    ['Files', `${number(report.files)} (${size(report.fileBytes)})`],
    ['Directories', number(report.directories)],
    ['Container', size(bytes)],
    ['Blocks', `${number(report.blocks)} × ${number(report.blockSize)} bytes`],
    ['Free', counted(report.freeBlocks, 'block')],
  ];
  if (report.leakedBlocks > 0) facts.push(['Leaked', counted(report.leakedBlocks, 'block')]);
  byId('facts').replaceChildren(...facts.map(([name, value]) =>
    element('div', {}, element('dt', {}, name), element('dd', {}, value))));
}

/** "2 findings of damage, 1 leak" */
export function findingsText(report: Report): string {
  const kinds: [number, string, string][] = [
    [report.damage, 'finding of damage', 'findings of damage'],
    [report.interrupted, 'interrupted update', 'interrupted updates'],
    [report.leak, 'leak', 'leaks'],
    [report.note, 'note', 'notes'],
  ];
  return kinds.filter(([count]) => count > 0).map(([count, one, many]) => counted(count, one, many)).join(', ');
}

export function findingsCount(report: Report): number {
  return report.damage + report.interrupted + report.leak + report.note;
}

export function showFindings(root: HTMLElement, report: Report): void {
  root.replaceChildren();
  if (report.findings.length === 0) {
    root.append(element('p', { class: 'good' }, report.marked
      ? 'Nothing is wrong, but the container is marked: an update of it is in progress or was interrupted. ' +
        'A device does not mount it until it is repaired.'
      : 'Nothing is wrong: everything that the container says about itself agrees.'));
  } else {
    const list = element('ol', { class: 'findings' });
    const more = button('', {}, () => add());
    const add = () => {
      const from = list.children.length;
      list.append(...report.findings.slice(from, from + kFindingsStep).map(findingItem));
      const left = report.findings.length - list.children.length;
      more.textContent = `Show more (${number(left)} left)`;
      more.hidden = left === 0;
    };
    root.append(element('p', {}, findingsText(report) + '.'), list, more);
    add();
    if (report.unlisted > 0) {
      root.append(element('p', { class: 'hint' }, `${number(report.unlisted)} more are not listed.`));
    }
  }
  if (!report.readable) return;
  root.append(element('p', { class: 'hint' },
    'Contents carry no checksums: a file can be damaged without a finding.'));
}

const kWords: Record<Severity, string> = {
  damage: 'Damage', interrupted: 'Interrupted', leak: 'Leak', note: 'Note',
};

function findingItem(finding: Finding): HTMLElement {
  const place: string[] = [];
  if (finding.path !== undefined) place.push(finding.path);
  if (finding.node !== undefined) place.push(`node ${finding.node}`);
  if (finding.block !== undefined) place.push(`block ${finding.block}`);
  if (finding.offset !== undefined) place.push(`byte ${finding.offset}`);
  return element('li', { class: finding.severity },
    element('span', { class: 'severity' }, kWords[finding.severity]),
    element('span', { class: 'sentence' }, finding.text),
    element('span', { class: 'place' }, `${place.join(', ')}${place.length > 0 ? ' · ' : ''}${finding.kind}`));
}
