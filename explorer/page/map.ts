// The picture of a container's blocks: a cell for each block, or for some in a row where there are many. Answers to
// pointer and keys with the owner, and brings out the blocks of one node.
import type { Container } from './container';
import { counted, element, number } from './dom';
import { kShared, Use, type BlockInfo, type BlockUses, type Report } from './module';

interface Shade {
  name: string;
  colour: string;  // the name of a custom property
}

const kShades: Shade[] = [
  { name: 'nodes', colour: '--map-nodes' },
  { name: 'directories', colour: '--map-directories' },
  { name: 'block maps', colour: '--map-maps' },
  { name: 'files', colour: '--map-files' },
  { name: 'free', colour: '--map-free' },
  { name: 'leaked', colour: '--map-leaked' },
  { name: 'used twice', colour: '--map-shared' },
];
const kFiles = 3;
const kLeaked = 5;
const kTwice = 6;
const kOtherFiles = '--map-files-other';  // of two files next to each other, the colour of one

const kLargestCell = 16;
const kSmallestCell = 5;
const kMostHeight = 520;

interface Cell {
  shade: number;
  other: boolean;
  first: number;  // its first block
  last: number;
}

export interface MapEvents {
  chosen(way: number[]): void;
}

export class BlockMap {
  private container: Container | null = null;
  private report: Report | null = null;
  private blocks: BlockUses = { owners: new Uint16Array(), uses: new Uint8Array() };
  private otherFiles = new Uint8Array();  // by block: 1 where drawn in the other colour
  private cells: Cell[] = [];
  private size = kLargestCell;
  private columns = 1;
  private current = 0;
  private node = 0;  // the one that is brought out, 0 = none
  private asked = 0;
  private readonly canvas = element('canvas', {
    role: 'slider', tabindex: 0, 'aria-label': 'Blocks of the container', 'aria-valuemin': 1, 'aria-valuemax': 1,
    'aria-valuenow': 1, 'aria-describedby': 'map-help',
  });
  private readonly frame = element('div', { class: 'canvas' }, this.canvas);
  private readonly summary = element('p', { class: 'hint' });
  private readonly legend = element('ul', { class: 'legend', 'aria-label': 'Colours' });
  private readonly owner = element('p', { class: 'owner' });

  constructor(private readonly root: HTMLElement, private readonly events: MapEvents) {
    root.append(this.summary, this.legend, this.owner, this.frame,
                element('p', { class: 'hint', id: 'map-help' },
                  'A click, or the Enter key, selects the file that has the block; the arrow keys go from block ' +
                  'to block.'));
    this.canvas.addEventListener('pointermove', (event) => this.point(event));
    this.canvas.addEventListener('click', (event) => {
      this.point(event);
      void this.choose();
    });
    this.canvas.addEventListener('keydown', (event) => this.pressed(event));
    new ResizeObserver(() => this.layOut()).observe(this.frame);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.draw());
  }

  /** Shows the blocks of a container that was checked. */
  async show(container: Container, report: Report): Promise<void> {
    this.container = container;
    const blocks = await container.call('blocks');
    if (this.container !== container) return;
    this.report = report;
    this.blocks = blocks;
    this.otherFiles = alternate(blocks);
    this.current = this.node = 0;
    this.owner.textContent = '';
    this.showLegend();
    this.layOut();
  }

  /** Brings out the blocks of a node; 0 = of none. */
  highlight(node: number): void {
    this.node = node;
    const current = this.cells[this.current];
    if (node !== 0 && !(current !== undefined && this.owns(current))) {
      const first = this.cells.findIndex((cell) => this.owns(cell));
      if (first >= 0) this.moveTo(first);
    }
    this.draw();
  }

  private showLegend(): void {
    const counts = new Array<number>(kShades.length).fill(0);
    for (const use of this.blocks.uses) ++counts[shadeOf(use)]!;
    this.legend.replaceChildren();
    for (const [index, shade] of kShades.entries()) {
      if (counts[index] === 0) continue;
      const item = element('li', {}, element('span', { class: 'swatch', 'aria-hidden': true }));
      (item.firstChild as HTMLElement).style.background = index === kFiles
        ? `linear-gradient(90deg, var(${shade.colour}) 50%, var(${kOtherFiles}) 50%)` : `var(${shade.colour})`;
      item.append(`${shade.name} ${number(counts[index]!)}`);
      this.legend.append(item);
    }
  }

  private layOut(): void {
    const width = this.frame.clientWidth;
    const count = this.blocks.uses.length;
    if (width === 0 || this.report === null) return;
    const fits = (size: number) => Math.floor(width / size) * Math.floor(kMostHeight / size);
    this.size = kLargestCell;
    while (this.size > kSmallestCell && fits(this.size) < count) --this.size;
    this.columns = Math.max(1, Math.floor(width / this.size));
    const perCell = Math.max(1, Math.ceil(count / Math.max(1, fits(this.size))));
    this.cells = [];
    for (let first = 1; first <= count; first += perCell) {
      this.cells.push(this.makeCell(first, Math.min(count, first + perCell - 1)));
    }
    this.summary.textContent = count === 0 ? 'The container has no blocks.'
      : `${counted(count, 'block')} of ${number(this.report.blockSize)} bytes` +
        (perCell > 1 ? `; a cell stands for ${number(perCell)} and shows what most of them are, but leaks and double ` +
          'use in any case' : '');
    this.current = Math.min(this.current, Math.max(0, this.cells.length - 1));
    this.canvas.setAttribute('aria-valuemax', String(Math.max(1, this.cells.length)));
    this.draw();
  }

  private makeCell(first: number, last: number): Cell {
    const counts = new Array<number>(kShades.length).fill(0);
    for (let block = first; block <= last; ++block) ++counts[shadeOf(this.blocks.uses[block - 1]!)]!;
    let shade = counts.indexOf(Math.max(...counts));
    if (counts[kLeaked]! > 0) shade = kLeaked;
    if (counts[kTwice]! > 0) shade = kTwice;
    return { shade, other: first === last && this.otherFiles[first - 1] === 1, first, last };
  }

  private owns(cell: Cell): boolean {
    for (let block = cell.first; block <= cell.last; ++block) {
      if (this.blocks.owners[block - 1] === this.node) return true;
    }
    return false;
  }

  private draw(): void {
    const style = getComputedStyle(this.root);
    const colours = kShades.map((shade) => style.getPropertyValue(shade.colour));
    const otherFiles = style.getPropertyValue(kOtherFiles);
    const { size, columns } = this;
    const scale = devicePixelRatio;
    const width = columns * size;
    const height = Math.ceil(this.cells.length / columns) * size;
    this.canvas.width = Math.round(width * scale);
    this.canvas.height = Math.round(height * scale);
    this.canvas.style.width = `${width}px`;
    this.canvas.style.height = `${height}px`;
    const context = this.canvas.getContext('2d')!;
    context.scale(scale, scale);
    const gap = size > 7 ? 2 : 1;
    const place = (index: number) => [index % columns * size, Math.floor(index / columns) * size] as const;
    for (const [index, cell] of this.cells.entries()) {
      const [x, y] = place(index);
      const dimmed = this.node !== 0 && !this.owns(cell);
      context.globalAlpha = dimmed ? 0.35 : 1;
      context.fillStyle = cell.shade === kFiles && cell.other ? otherFiles : colours[cell.shade]!;
      context.fillRect(x, y, size - gap, size - gap);
      if (this.node !== 0 && !dimmed) {
        context.strokeStyle = style.getPropertyValue('--text');
        context.lineWidth = 1;
        context.strokeRect(x + 0.5, y + 0.5, size - gap - 1, size - gap - 1);
      }
    }
    context.globalAlpha = 1;
    if (this.owner.textContent !== '' && this.cells.length > 0) {
      const [x, y] = place(this.current);
      context.strokeStyle = style.getPropertyValue('--accent');
      context.lineWidth = 2;
      context.strokeRect(x, y, size - gap, size - gap);
    }
  }

  private point(event: PointerEvent | MouseEvent): void {
    const column = Math.floor(event.offsetX / this.size);
    const index = Math.floor(event.offsetY / this.size) * this.columns + column;
    if (column < this.columns && index >= 0 && index < this.cells.length) this.moveTo(index);
  }

  private pressed(event: KeyboardEvent): void {
    const to = {
      ArrowRight: this.current + 1, ArrowLeft: this.current - 1, ArrowDown: this.current + this.columns,
      ArrowUp: this.current - this.columns, Home: 0, End: this.cells.length - 1,
    }[event.key];
    if (to !== undefined) {
      event.preventDefault();
      if (to >= 0 && to < this.cells.length) this.moveTo(to);
    } else if (event.key === 'Enter') {
      void this.choose();
    }
  }

  private moveTo(index: number): void {
    if (index === this.current && this.owner.textContent !== '') return;
    this.current = index;
    void this.describe(this.cells[index]!);
  }

  private async describe(cell: Cell): Promise<void> {
    const asked = ++this.asked;
    const block = await this.container!.call('block', cell.first);
    if (asked !== this.asked) return;
    const text = this.textOf(cell, block);
    this.owner.textContent = text;
    this.canvas.setAttribute('aria-valuenow', String(this.current + 1));
    this.canvas.setAttribute('aria-valuetext', text);
    this.draw();
  }

  private textOf(cell: Cell, block: BlockInfo): string {
    const blocks = cell.first === cell.last ? `Block ${cell.first}`
      : `Blocks ${number(cell.first)} to ${number(cell.last)}`;
    const owners = new Set(this.blocks.owners.subarray(cell.first - 1, cell.last));
    const use = block.use === 'nothing' ? 'leaked' : block.use ?? '';
    let text = `${blocks}: ${use}`;
    if (block.path !== undefined) text += ` ${block.path}`;
    if (block.shared) text += ', used twice';
    if (owners.size > 1) text += ` and ${counted(owners.size - 1, 'other owner')}`;
    return text;
  }

  private async choose(): Promise<void> {
    const cell = this.cells[this.current];
    if (cell === undefined || this.container === null) return;
    const block = await this.container.call('block', cell.first);
    if (block.way !== undefined && block.way.length > 1) this.events.chosen(block.way);
  }
}

function shadeOf(use: number): number {
  if ((use & kShared) !== 0) return kTwice;
  switch (use) {
    case Use.nodes: return 0;
    case Use.directory: return 1;
    case Use.map: return 2;
    case Use.file: return kFiles;
    case Use.nothing: return kLeaked;
    default: return 4;
  }
}

/** Changes with each file met for the first time, block by block. */
function alternate({ owners, uses }: BlockUses): Uint8Array<ArrayBuffer> {
  const drawn = new Map<number, number>();
  const other = new Uint8Array(uses.length);
  for (const [index, owner] of owners.entries()) {
    if (uses[index] !== Use.file) continue;
    if (!drawn.has(owner)) drawn.set(owner, drawn.size % 2);
    other[index] = drawn.get(owner)!;
  }
  return other;
}
