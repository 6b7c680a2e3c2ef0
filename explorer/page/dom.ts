// Elements and texts. Whatever comes from a container becomes text, never markup.

type Attributes = Record<string, string | number | boolean>;

export function element<Tag extends keyof HTMLElementTagNameMap>(
    tag: Tag, attributes: Attributes = {}, ...children: (Node | string)[]): HTMLElementTagNameMap[Tag] {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== false) made.setAttribute(name, value === true ? '' : String(value));
  }
  made.append(...children);
  return made;
}

export function button(text: string, attributes: Attributes, press: () => void): HTMLButtonElement {
  const made = element('button', { type: 'button', ...attributes }, text);
  made.addEventListener('click', press);
  return made;
}

export function byId<Type extends HTMLElement>(id: string): Type {
  return document.getElementById(id) as Type;
}

/** "1 file", "2 files", "1,200 files". */
export function counted(count: number, one: string, many = one + 's'): string {
  return `${number(count)} ${count === 1 ? one : many}`;
}

export function number(value: number): string {
  return value.toLocaleString('en');
}

/** "512 bytes", "1.5 KB", "1 GB", with three digits at most. */
export function size(bytes: number): string {
  if (bytes < 1024) return counted(bytes, 'byte');
  const units = ['KB', 'MB', 'GB'];
  let value = bytes / 1024;
  let unit = 0;
  while (value >= 999.5 && unit + 1 < units.length) {
    value /= 1024;
    ++unit;
  }
  return `${value.toLocaleString('en', { maximumSignificantDigits: 3 })} ${units[unit]}`;
}

export function attributesText(attributes: number): string {
  const words = ['read-only', 'user', 'system', 'directory'];
  return words.filter((_, bit) => (attributes & (1 << bit)) !== 0).join(', ');
}

/** Throws when the file that the bytes come from has changed or gone. */
export async function download(blob: Blob, name: string): Promise<void> {
  for (const end of [blob.slice(0, 1), blob.slice(-1)]) await end.arrayBuffer();
  const url = URL.createObjectURL(blob);
  const link = element('a', { href: url, download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(url), 60_000);
}

/** Said by a screen reader, and nowhere else. */
export function announce(text: string): void {
  byId('announcer').textContent = text;
}

export function message(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
