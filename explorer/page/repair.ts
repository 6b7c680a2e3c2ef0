// What a repair would do, step by step, and what it keeps. The repair is made in a copy, which can be downloaded.
import type { Container } from './container';
import { button, counted, download, element, number } from './dom';
import type { Plan } from './module';
import { archiveNotes, failure } from './preview';

export interface Repair {
  plan: Plan;
  repaired: Blob;
}

const kStepsShown = 200;

/** "card-repaired.orb" for "card.orb". */
export function repairedName(name: string): string {
  const dot = name.lastIndexOf('.');
  return dot > 0 ? `${name.slice(0, dot)}-repaired${name.slice(dot)}` : `${name}-repaired`;
}

/** What carrying the plan out comes to, in a sentence. */
export function prospect(plan: Plan): string {
  const { promise } = plan;
  const all = promise.kept === promise.readable;
  const parts: string[] = [];
  if (promise.readable > 0) {
    parts.push(`keep ${all ? (promise.readable > 1 ? 'all ' : '') : `${number(promise.kept)} of `}` +
               `${counted(promise.readable, 'file')} that can be read`);
  }
  if (promise.regained > 0) parts.push(`bring back ${counted(promise.regained, 'more file', 'more files')}`);
  if (promise.mended > 0) parts.push(`make ${counted(promise.mended, 'file')} whole`);
  if (promise.toLost > 0) parts.push(`put ${counted(promise.toLost, 'file')} under /LOST.FND`);
  return parts.length === 0 ? 'A repair would make the container consistent; there is no file in it to keep.'
    : `A repair would ${parts.length > 1 ? `${parts.slice(0, -1).join(', ')} and ${parts[parts.length - 1]}`
      : parts[0]}.`;
}

export function showNoRepair(root: HTMLElement): void {
  root.replaceChildren(element('p', { class: 'good' }, 'There is nothing to repair.'));
}

export function showPlanning(root: HTMLElement): void {
  root.replaceChildren(element('p', { class: 'busy', role: 'status' }, 'Working out what a repair would do…'));
}

export function showPlan(root: HTMLElement, container: Container, name: string, { plan, repaired }: Repair): void {
  root.replaceChildren();
  if (!plan.possible) {
    root.append(element('p', { class: 'warning' }, `This cannot be repaired: ${plan.problem}.`));
    return;
  }
  if (plan.notice !== '') root.append(element('p', { class: 'warning' }, sentence(plan.notice)));
  root.append(element('p', { class: 'promise' }, prospect(plan)));
  if (plan.promise.lost > 0) root.append(losses(plan));
  if (plan.promise.unread > 0) root.append(unread(plan));
  if (!plan.complete) {
    root.append(element('p', { class: 'warning' },
      `Something stays damaged: ${plan.problem || 'see the findings as repaired'}.`));
  }
  root.append(actions(root, container, name, { plan, repaired }));
  root.append(element('h3', {}, counted(plan.steps.length, 'step')), steps(plan));
}

function losses({ promise }: Plan): HTMLElement {
  const list = element('ul', {});
  for (const path of promise.losses) list.append(element('li', {}, path));
  if (promise.lost > promise.losses.length) {
    list.append(element('li', {}, `and ${number(promise.lost - promise.losses.length)} more`));
  }
  return element('div', { class: 'warning' },
    element('p', {}, `The container has no room for everything. Recover its files before you repair it: the repair ` +
      `would cost ${counted(promise.lost, 'file')} that can be read now.`), list);
}

function unread({ promise }: Plan): HTMLElement {
  return element('p', { class: 'warning' },
    `Whether ${counted(promise.unread, 'more file is', 'more files are')} kept is not known: the same blocks would ` +
      'be read over and over. Recover the files before you repair the container.');
}

function actions(root: HTMLElement, container: Container, name: string, { plan, repaired }: Repair): HTMLElement {
  const recover = button('Recover all files (.tar)', { class: plan.breaksPromise ? 'primary' : '' }, async () => {
    recover.disabled = true;
    root.querySelector('.archive-notes')?.remove();
    try {
      const { archive } = await container.call('recover');
      await download(archive.blob, `${name}.tar`);
      if (archive.problems.length > 0) root.append(archiveNotes(archive.problems));
    } catch (error) {
      root.append(failure(error));
    }
    recover.disabled = false;
  });
  const text = plan.promise.lost > 0 ? `Download repaired container without ${counted(plan.promise.lost, 'file')}`
    : 'Download repaired container';
  const get = button(text, { class: plan.breaksPromise ? '' : 'primary' }, () => {
    download(repaired, repairedName(name)).catch((error: unknown) => root.append(failure(error)));
  });
  return element('div', { class: 'download' },
    element('div', { class: 'actions' }, ...(plan.breaksPromise ? [recover, get] : [get, recover])),
    element('p', { class: 'hint' }, 'Your file stays as it is: the repair is made in the copy that you download.'));
}

function steps(plan: Plan): HTMLElement {
  const list = element('ol', { class: 'steps' });
  const add = (count: number) => {
    for (const step of plan.steps.slice(list.children.length, list.children.length + count)) {
      list.append(element('li', {}, sentence(step.text) + ' ',
                          element('span', { class: 'hint' }, counted(step.writes, 'write'))));
    }
  };
  add(kStepsShown);
  const left = plan.steps.length - kStepsShown;
  if (left <= 0) return list;
  const more = button(`Show ${number(left)} more`, {}, () => {
    add(left);
    more.remove();
  });
  return element('div', {}, list, more);
}

function sentence(text: string): string {
  const trimmed = text.trim();
  return trimmed.charAt(0).toUpperCase() + trimmed.slice(1) + (trimmed.endsWith('.') ? '' : '.');
}
