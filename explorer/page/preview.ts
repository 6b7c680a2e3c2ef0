// What a file holds: as text, as a picture, or as bytes. Reads only what it shows.
import type { Container } from './container';
import { attributesText, button, counted, download, element, message, number, size } from './dom';
import type { Entry } from './module';
import type { FileContents } from './worker';

const kTextStep = 64 * 1024;
const kHexPage = 2048;
const kLargestPicture = 64 * 1024 * 1024;
const kMostPixels = 100_000_000;

type Form = 'text' | 'picture' | 'bytes';

interface Picture {
  type: string;
  magic: [offset: number, text: string][];
  /** Width and height, where a few bytes can make a picture that fills the memory. */
  extent?: (head: DataView) => [number, number];
}

const kPictures: Picture[] = [
  { type: 'image/png', magic: [[0, '\x89PNG\r\n\x1a\n']], extent: (head) => [head.getUint32(16), head.getUint32(20)] },
  { type: 'image/jpeg', magic: [[0, '\xff\xd8\xff']] },
  { type: 'image/gif', magic: [[0, 'GIF8']], extent: (head) => [head.getUint16(6, true), head.getUint16(8, true)] },
  { type: 'image/bmp', magic: [[0, 'BM'], [6, '\0\0\0\0']],
    extent: (head) => [head.getInt32(18, true), head.getInt32(22, true)] },
  { type: 'image/webp', magic: [[0, 'RIFF'], [8, 'WEBP']] },
];

export class Preview {
  private token = 0;
  private pictureUrl = '';

  constructor(private readonly root: HTMLElement) {}

  clear(): void {
    ++this.token;
    this.releasePicture();
    this.root.replaceChildren(element('p', { class: 'hint' }, 'Select a file to look at it.'));
  }

  async show(container: Container, entry: Entry, path: string): Promise<void> {
    const token = ++this.token;
    this.releasePicture();
    const actions = element('div', { class: 'actions' });
    const body = element('div', { class: 'contents' });
    this.root.replaceChildren(heading(entry, path), actions, body);
    if (entry.lost) {
      body.append(element('p', { class: 'warning' }, `This cannot be read: ${entry.problems.join('; ')}.`));
      return;
    }
    if (entry.problems.length > 0) {
      body.append(element('p', { class: 'warning' }, `Something is odd here: ${entry.problems.join('; ')}.`));
    }
    if (entry.directory) {
      actions.append(archiveButton(container, entry.node, 'Download folder (.tar)', entry.hostName + '.tar', body));
      return;
    }
    try {
      const contents = await container.call('read', entry.node);
      const head = new Uint8Array(await contents.blob.slice(0, 4096).arrayBuffer());
      if (this.token !== token) return;
      this.showContents(entry, contents, head, actions, body);
    } catch (error) {
      if (this.token === token) body.append(failure(error));
    }
  }

  private showContents(entry: Entry, contents: FileContents, head: Uint8Array, actions: HTMLElement,
                       body: HTMLElement): void {
    if (!contents.whole) {
      body.append(element('p', { class: 'warning' },
        `Only the first ${counted(contents.blob.size, 'byte')} can be read` +
        (contents.problem === '' ? '.' : `: ${contents.problem}.`)));
    }
    actions.append(button('Download', { class: 'primary' }, () => {
      download(contents.blob, entry.hostName).catch((error: unknown) => body.append(failure(error)));
    }));
    if (contents.blob.size === 0) {
      body.append(element('p', { class: 'hint' }, 'The file is empty.'));
      return;
    }
    const picture = kPictures.find((candidate) => isPicture(candidate, head));
    const forms: Form[] = ['text', 'bytes'];
    if (picture !== undefined && contents.blob.size <= kLargestPicture) forms.unshift('picture');
    let shownIn = element('div', { class: 'view' });
    const choices = element('div', { class: 'segments', role: 'group', 'aria-label': 'Show as' });
    const choose = (form: Form) => {
      for (const choice of choices.children) {
        choice.setAttribute('aria-pressed', String((choice as HTMLElement).dataset['form'] === form));
      }
      const view = element('div', { class: 'view' });  // what is still being read for the old one ends there
      shownIn.replaceWith(view);
      shownIn = view;
      this.releasePicture();
      const shown = form === 'picture' ? this.showPicture(contents.blob, picture!.type, view)
        : form === 'text' ? showText(contents.blob, encodingOf(head), view) : showBytes(contents.blob, 0, view);
      shown.catch((error: unknown) => view.replaceChildren(failure(error)));
    };
    const labels = { text: 'Text', bytes: 'Bytes', picture: 'Picture' };
    for (const form of forms) choices.append(button(labels[form], { 'data-form': form }, () => choose(form)));
    actions.append(choices);
    body.append(shownIn);
    choose(forms.includes('picture') ? 'picture' : looksLikeText(head) ? 'text' : 'bytes');
  }

  private async showPicture(blob: Blob, type: string, view: HTMLElement): Promise<void> {
    this.pictureUrl = URL.createObjectURL(new Blob([blob], { type }));
    const picture = element('img', { src: this.pictureUrl, alt: 'The picture that the file holds' });
    picture.addEventListener('error', () => {
      view.replaceChildren(element('p', { class: 'warning' }, 'The picture is damaged and cannot be shown.'));
    });
    view.append(picture);
  }

  private releasePicture(): void {
    if (this.pictureUrl !== '') URL.revokeObjectURL(this.pictureUrl);
    this.pictureUrl = '';
  }
}

function heading(entry: Entry, path: string): HTMLElement {
  const facts = element('dl', { class: 'facts' });
  const add = (name: string, value: string) =>
    facts.append(element('div', {}, element('dt', {}, name), element('dd', {}, value)));
  if (!entry.directory) {
    add('Size', entry.size < 1024 ? size(entry.size) : `${size(entry.size)} (${number(entry.size)} bytes)`);
  }
  add('Changed', entry.time === '' ? 'no date' : `${entry.time} UTC`);
  const attributes = attributesText(entry.attributes);
  if (attributes !== '') add('Attributes', attributes);
  add('Node', String(entry.node));
  return element('header', {}, element('h2', { class: 'path' }, path), facts);
}

/** A button that makes an archive of everything below a directory. */
export function archiveButton(container: Container, node: number, text: string, name: string,
                              notes: HTMLElement): HTMLButtonElement {
  const made = button(text, { class: 'primary' }, async () => {
    made.disabled = true;
    notes.querySelector('.archive-notes')?.remove();
    try {
      const archive = await container.call('archive', node);
      await download(archive.blob, name);
      if (archive.problems.length > 0) notes.append(archiveNotes(archive.problems));
    } catch (error) {
      notes.append(failure(error));
    }
    made.disabled = false;
  });
  return made;
}

/** What is missing in an archive. */
export function archiveNotes(problems: string[]): HTMLElement {
  const list = element('ul', {});
  for (const problem of problems.slice(0, 50)) list.append(element('li', {}, problem));
  if (problems.length > 50) list.append(element('li', {}, `and ${number(problems.length - 50)} more`));
  return element('div', { class: 'archive-notes warning', role: 'alert' },
    element('p', {}, 'Not everything could be read:'), list);
}

export function failure(error: unknown): HTMLElement {
  return element('p', { class: 'warning', role: 'alert' },
    `The browser could not read this (${message(error)}). If the file has changed or moved, open it again.`);
}

function isPicture({ magic, extent }: Picture, head: Uint8Array): boolean {
  if (!magic.every(([offset, text]) => startsWith(head, offset, text))) return false;
  if (extent === undefined) return true;
  if (head.length < 32) return false;
  const [width, height] = extent(new DataView(head.buffer, head.byteOffset));
  return Math.abs(width * height) <= kMostPixels;
}

function startsWith(bytes: Uint8Array, offset: number, text: string): boolean {
  return [...text].every((character, index) => bytes[offset + index] === character.charCodeAt(0));
}

function encodingOf(head: Uint8Array): string {
  if (startsWith(head, 0, '\xff\xfe')) return 'utf-16le';
  if (startsWith(head, 0, '\xfe\xff')) return 'utf-16be';
  try {
    new TextDecoder('utf-8', { fatal: true }).decode(head, { stream: true });
    return 'utf-8';
  } catch {
    return 'windows-1252';
  }
}

/** No control characters but those of texts. */
function looksLikeText(head: Uint8Array): boolean {
  const encoding = encodingOf(head);
  return encoding.startsWith('utf-16') || head.every((byte) => byte >= 32 || (byte >= 9 && byte <= 13));
}

async function showText(blob: Blob, encoding: string, view: HTMLElement): Promise<void> {
  const text = element('pre', { class: 'text', tabindex: 0, 'aria-label': 'Text of the file' });
  const decoder = new TextDecoder(encoding);
  let shown = 0;
  const more = button('Show more', {}, () => {
    add().catch((error: unknown) => more.replaceWith(failure(error)));
  });
  const add = async () => {
    const end = Math.min(blob.size, shown + kTextStep);
    text.append(decoder.decode(await blob.slice(shown, end).arrayBuffer(), { stream: end < blob.size }));
    shown = end;
    more.textContent = `Show more (${size(blob.size - shown)} left)`;
    more.hidden = shown === blob.size;
  };
  await add();
  view.append(text, more);
}

async function showBytes(blob: Blob, offset: number, view: HTMLElement): Promise<void> {
  const bytes = new Uint8Array(await blob.slice(offset, offset + kHexPage).arrayBuffer());
  const go = (to: number) => {
    showBytes(blob, to, view).catch((error: unknown) => view.replaceChildren(failure(error)));
  };
  const pages = element('div', { class: 'pages' });
  const last = Math.floor((blob.size - 1) / kHexPage) * kHexPage;
  if (last > 0) {
    const page = (text: string, to: number) => {
      const made = button(text, {}, () => go(to));
      made.disabled = to === offset || to < 0 || to > last;
      pages.append(made);
    };
    page('First', 0);
    page('Previous', offset - kHexPage);
    const end = number(offset + bytes.length - 1);
    pages.append(element('span', {}, `${number(offset)} to ${end} of ${number(blob.size)}`));
    page('Next', offset + kHexPage);
    page('Last', last);
  }
  view.replaceChildren(element('pre', { class: 'hex', tabindex: 0, 'aria-label': 'Bytes of the file' },
    hexText(bytes, offset)), pages);
}

/** Rows of 16 bytes: offset, numbers, characters. */
export function hexText(bytes: Uint8Array, offset: number): string {
  const rows: string[] = [];
  for (let at = 0; at < bytes.length; at += 16) {
    const row = [...bytes.subarray(at, at + 16)];
    const numbers = row.map((byte) => byte.toString(16).padStart(2, '0')).join(' ').padEnd(47);
    const characters = row.map((byte) => byte >= 32 && byte < 127 ? String.fromCharCode(byte) : '.').join('');
    rows.push(`${(offset + at).toString(16).padStart(8, '0')}  ${numbers}  ${characters}`);
  }
  return rows.join('\n');
}
