// The tree of files: directories are listed when they are opened, and only the rows in view are elements, so that
// tens of thousands of files in one directory stay quick.
import type { Container } from './container';
import { element, size } from './dom';
import type { Entry } from './module';

interface Row {
  entry: Entry;
  level: number;  // from 1
  position: number;  // among its siblings, from 1
  siblings: number;
  parent: Row | null;
  children: Row[] | null;  // null: not listed yet
  notes: string[];  // what could not be read of a directory
  open: boolean;
}

export interface TreeEvents {
  selected(entry: Entry, path: string): void;
}

const kOverscan = 8;  // rows drawn beyond those in view
const kOrder = new Intl.Collator('en', { numeric: true });

export class Tree {
  private container: Container | null = null;
  private roots: Row[] = [];
  private rows: Row[] = [];  // that are to be seen, from the top
  private shown = new Map<Row, HTMLElement>();
  private focused: Row | null = null;
  private selected: Row | null = null;
  private typed = '';
  private typedAt = 0;
  private readonly body = element('div', { role: 'presentation', class: 'rows' });

  constructor(private readonly root: HTMLElement, private readonly events: TreeEvents) {
    root.append(this.body);
    root.addEventListener('scroll', () => this.draw());
    root.addEventListener('keydown', (event) => void this.pressed(event));
    root.addEventListener('click', (event) => void this.clicked(event));
    new ResizeObserver(() => this.draw()).observe(root);
  }

  /** Shows the container's root directory. Returns what could not be read of it. */
  async show(container: Container): Promise<string[]> {
    this.container = container;
    this.focused = this.selected = null;
    const listing = await container.call('list', 0);
    if (this.container !== container) return [];
    this.roots = this.rowsOf(listing.entries, null);
    this.root.scrollTop = 0;
    this.layOut();
    return listing.problems;
  }

  get empty(): boolean {
    return this.roots.length === 0;
  }

  /** Opens the directories on the way and selects the last node of it. `way` begins with the root. */
  async reveal(way: number[]): Promise<boolean> {
    let rows = this.roots;
    for (const [depth, node] of way.slice(1).entries()) {
      const row = rows.find((candidate) => candidate.entry.node === node);
      if (row === undefined) return false;
      if (depth === way.length - 2) {
        this.layOut();
        this.focus(row, false);
        this.select(row);
        return true;
      }
      await this.open(row);
      rows = row.children ?? [];
    }
    return false;
  }

  private rowsOf(entries: Entry[], parent: Row | null): Row[] {
    const sorted = [...entries].sort((a, b) =>
      Number(b.directory) - Number(a.directory) || kOrder.compare(a.name, b.name));
    return sorted.map((entry, index) => ({
      entry, parent, level: (parent?.level ?? 0) + 1, position: index + 1, siblings: sorted.length, children: null,
      notes: [], open: false,
    }));
  }

  private async open(row: Row): Promise<void> {
    const { container } = this;
    if (row.children === null && container !== null) {
      this.shown.get(row)?.setAttribute('aria-busy', 'true');
      const listing = await container.call('list', row.entry.node);
      if (this.container !== container) return;
      row.children = this.rowsOf(listing.entries, row);
      row.notes = listing.problems;
    }
    row.open = true;
    this.layOut();
  }

  private close(row: Row): void {
    row.open = false;
    this.layOut();
  }

  private layOut(): void {
    this.rows = [];
    const stack = [...this.roots].reverse();
    for (let row = stack.pop(); row !== undefined; row = stack.pop()) {
      this.rows.push(row);
      if (!row.open || row.children === null) continue;
      for (let index = row.children.length - 1; index >= 0; --index) stack.push(row.children[index]!);
    }
    for (const made of this.shown.values()) made.remove();
    this.shown.clear();
    if (this.focused === null || !this.rows.includes(this.focused)) this.focused = this.rows[0] ?? null;
    this.draw();
  }

  private rowHeight(): number {
    return parseFloat(getComputedStyle(this.root).getPropertyValue('--row')) || 32;
  }

  private draw(): void {
    const height = this.rowHeight();
    this.body.style.height = `${this.rows.length * height}px`;
    const first = Math.max(0, Math.floor(this.root.scrollTop / height) - kOverscan);
    const bottom = this.root.scrollTop + this.root.clientHeight;
    const end = Math.min(this.rows.length, Math.ceil(bottom / height) + kOverscan);
    const wanted = new Map<Row, number>();
    for (let index = first; index < end; ++index) wanted.set(this.rows[index]!, index);
    if (this.focused !== null) wanted.set(this.focused, this.rows.indexOf(this.focused));
    for (const [row, made] of this.shown) {
      if (wanted.has(row)) continue;
      made.remove();
      this.shown.delete(row);
    }
    for (const [row, index] of wanted) {
      let made = this.shown.get(row);
      if (made === undefined) {
        made = this.make(row);
        this.shown.set(row, made);
        this.body.append(made);
      }
      made.style.transform = `translateY(${index * height}px)`;
      made.tabIndex = row === this.focused ? 0 : -1;
      made.setAttribute('aria-selected', String(row === this.selected));
    }
  }

  private make(row: Row): HTMLElement {
    const { entry } = row;
    const problems = [...entry.problems, ...row.notes];
    const made = element('div', {
      role: 'treeitem', class: entry.directory ? 'row directory' : 'row', 'aria-level': row.level,
      'aria-posinset': row.position, 'aria-setsize': row.siblings,
    });
    if (entry.directory) made.setAttribute('aria-expanded', String(row.open));
    made.style.setProperty('--level', String(row.level - 1));
    made.append(element('span', { class: 'twisty', 'aria-hidden': true }),
                element('span', { class: 'name' }, entry.name || '(no name)'));
    if (problems.length > 0) {
      made.title = problems.join('\n');
      made.append(element('span', { class: 'problem', role: 'img', 'aria-label': problems.join('; ') }, '!'));
    }
    if (!entry.directory) made.append(element('span', { class: 'size' }, size(entry.size)));
    made.append(element('span', { class: 'time' }, entry.time.slice(0, 10)));
    return made;
  }

  private focus(row: Row, moveFocus = true): void {
    this.focused = row;
    const height = this.rowHeight();
    const top = this.rows.indexOf(row) * height;
    if (top < this.root.scrollTop) this.root.scrollTop = top;
    if (top + height > this.root.scrollTop + this.root.clientHeight) {
      this.root.scrollTop = top + height - this.root.clientHeight;
    }
    this.draw();
    if (moveFocus) this.shown.get(row)?.focus({ preventScroll: true });
  }

  private select(row: Row): void {
    this.selected = row;
    this.draw();
    this.events.selected(row.entry, pathOf(row));
  }

  private async toggle(row: Row): Promise<void> {
    if (row.open) {
      this.close(row);
    } else {
      await this.open(row);
    }
  }

  private async clicked(event: MouseEvent): Promise<void> {
    const target = event.target as HTMLElement;
    const made = target.closest('[role=treeitem]');
    const row = [...this.shown].find(([, candidate]) => candidate === made)?.[0];
    if (row === undefined) return;
    this.focus(row);
    this.select(row);
    if (row.entry.directory) await this.toggle(row);
    this.focus(row);
  }

  private async pressed(event: KeyboardEvent): Promise<void> {
    const row = this.focused;
    if (row === null || event.altKey || event.ctrlKey || event.metaKey) return;
    const index = this.rows.indexOf(row);
    const page = Math.max(1, Math.floor(this.root.clientHeight / this.rowHeight()) - 1);
    const moves: Record<string, number> = {
      ArrowDown: index + 1, ArrowUp: index - 1, Home: 0, End: this.rows.length - 1, PageDown: index + page,
      PageUp: index - page,
    };
    const to = moves[event.key];
    if (to !== undefined) {
      event.preventDefault();
      this.focus(this.rows[Math.min(this.rows.length - 1, Math.max(0, to))]!);
    } else if (event.key === 'ArrowRight' && row.entry.directory) {
      event.preventDefault();
      if (!row.open) await this.open(row);
      else if (row.children !== null && row.children.length > 0) this.focused = row.children[0]!;
      this.focus(this.focused ?? row);
    } else if (event.key === 'ArrowLeft') {
      event.preventDefault();
      if (row.open) this.close(row);
      else if (row.parent !== null) this.focused = row.parent;
      this.focus(this.focused ?? row);
    } else if (event.key === 'Enter' || event.key === ' ') {
      event.preventDefault();
      this.select(row);
      if (row.entry.directory) await this.toggle(row);
      this.focus(row);
    } else if (event.key.length === 1) {
      event.preventDefault();
      this.jump(event.key, index);
    }
  }

  /** To the next row whose name begins with what was typed. */
  private jump(key: string, index: number): void {
    const now = performance.now();
    this.typed = now - this.typedAt < 700 ? this.typed + key : key;
    this.typedAt = now;
    const wanted = this.typed.toUpperCase();
    const from = this.typed.length === 1 ? index + 1 : index;
    for (let step = 0; step < this.rows.length; ++step) {
      const row = this.rows[(from + step) % this.rows.length]!;
      if (row.entry.name.toUpperCase().startsWith(wanted)) return this.focus(row);
    }
  }
}

function pathOf(row: Row): string {
  const names: string[] = [];
  for (let at: Row | null = row; at !== null; at = at.parent) names.push(at.entry.name);
  return '/' + names.reverse().join('/');
}
